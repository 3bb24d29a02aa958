#!/usr/bin/env bash
# Applies deliberate faults to the library's sources one at a time, builds,
# runs the tests, and prints which faults the tests catch.
#
#   scripts/mutants.sh [-l LIST] [-k REGEX] [-n]
#
#   -l LIST   fault list (default scripts/mutants.list; its header gives the format)
#   -k REGEX  only the faults whose line matches REGEX (grep -E)
#   -n        dry run: only tell which faults apply to the current sources
#
# The working tree is never touched: the files git tracks are copied (as they
# stand, uncommitted edits included) to a scratch tree, and every fault is
# applied and undone there.  The scratch tree and its build persist between
# runs so that a run rebuilds only what changed; they live in $MUTANTS_DIR
# (default build-mutants/ beside the sources, ignored by git).
#
# A fault is "caught" when the build succeeds and a test fails or times out
# (the table names the first such test; the rest are not run), "missed" when
# every test passes, "n/a" when its text does not occur exactly once in its
# file (the code moved on), and "no-build" when the faulty source does not
# compile.  Tests run $MUTANTS_JOBS at a time (default 2) with a timeout of
# $MUTANTS_TIMEOUT seconds each (default 60); the install tests are left out.
set -euo pipefail

root=$(git rev-parse --show-toplevel)
list=$root/scripts/mutants.list
filter=
dry=0
while getopts "l:k:n" opt; do
  case $opt in
    l) list=$OPTARG ;;
    k) filter=$OPTARG ;;
    n) dry=1 ;;
    *) sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2 ;;
  esac
done
[ -r "$list" ] || { echo "mutants.sh: cannot read $list" >&2; exit 2; }

work=${MUTANTS_DIR:-$root/build-mutants}
src=$work/src
bld=$work/build
log=$work/log
timeout=${MUTANTS_TIMEOUT:-60}
jobs=${MUTANTS_JOBS:-2}
py=$(command -v /usr/bin/python3 python3 | head -n 1)
mkdir -p "$src" "$log"
export CCACHE_BASEDIR=$work

# ---- scratch tree: copy what changed, drop what git no longer tracks --------
(cd "$root" && git ls-files) | sort > "$work/tracked"
(cd "$src" && find . -type f | sed 's|^\./||' | sort) > "$work/present"
comm -13 "$work/tracked" "$work/present" | while IFS= read -r f; do rm -f "$src/$f"; done
while IFS= read -r f; do
  [ -f "$root/$f" ] || continue
  if ! cmp -s "$root/$f" "$src/$f"; then
    mkdir -p "$(dirname "$src/$f")"
    cp "$root/$f" "$src/$f"   # a fresh mtime, so the build sees the change
  fi
done < "$work/tracked"

# ---- faults: FILE @@ FIND @@ REPLACE @@ DESCRIPTION ---------------------------
faults=()
while IFS= read -r line; do
  case $line in ''|'#'*) continue ;; esac
  if [ -n "$filter" ] && ! grep -Eq -- "$filter" <<< "$line"; then continue; fi
  faults+=("$line")
done < "$list"
[ ${#faults[@]} -gt 0 ] || { echo "mutants.sh: no faults selected" >&2; exit 2; }

field() { awk -v n="$2" 'BEGIN { FS = " @@ " } { gsub(/^[ \t]+|[ \t]+$/, "", $n); print $n }' <<< "$1"; }

# Replaces the only occurrence of FIND in FILE; exit 3 when it is not there
# exactly once.
apply() {
  "$py" - "$1" "$2" "$3" <<'EOF'
import sys
path, find, repl = sys.argv[1:4]
text = open(path, encoding='utf-8').read()
if text.count(find) != 1:
    sys.exit(3)
open(path, 'w', encoding='utf-8').write(text.replace(find, repl))
EOF
}

build() { cmake --build "$bld" -j "$jobs" > "$1" 2>&1; }
# A fault is caught at its first failing test: the rest need not run.
run_tests() {
  ctest --test-dir "$bld" -j "$jobs" --timeout "$timeout" -E '^install\.' "${@:2}" > "$1" 2>&1
}

if [ "$dry" -eq 0 ]; then
  start=$(date +%s)
  if [ ! -f "$bld/CMakeCache.txt" ]; then
    # The test programs do not relink when only the shared library changes:
    # they load the rebuilt one at run time.
    # Ninja and ccache when they are there: every fault rebuilds a little.
    gen=(); launcher=()
    command -v ninja > /dev/null && gen=(-G Ninja)
    command -v ccache > /dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    cmake "${gen[@]}" -S "$src" -B "$bld" -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" \
          -DCMAKE_LINK_DEPENDS_NO_SHARED=ON \
          > "$log/configure.log" 2>&1 || { echo "mutants.sh: configure failed, see $log/configure.log" >&2; exit 1; }
  fi
  build "$log/clean-build.log" || { echo "mutants.sh: the unchanged sources do not build, see $log/clean-build.log" >&2; exit 1; }
  run_tests "$log/clean-tests.log" || { echo "mutants.sh: the unchanged sources fail their tests, see $log/clean-tests.log" >&2; exit 1; }
fi

current=
restore() { if [ -n "$current" ]; then cp "$root/$current" "$src/$current"; current=; fi; }
trap restore EXIT
trap 'exit 130' INT TERM

caught=0 missed=0 na=0 nobuild=0 i=0
printf '%-4s %-9s %-27s %s\n' '#' result file fault
for line in "${faults[@]}"; do
  i=$((i + 1))
  file=$(field "$line" 1)
  find=$(field "$line" 2)
  repl=$(field "$line" 3)
  what=$(field "$line" 4)
  detail=
  if [ ! -f "$src/$file" ]; then
    result=n/a
  else
    current=$file
    if apply "$src/$file" "$find" "$repl"; then
      if [ "$dry" -eq 1 ]; then
        result=applies
      elif ! build "$log/build-$i.log"; then
        result=no-build
      elif run_tests "$log/tests-$i.log" --stop-on-failure; then
        result=missed
      else
        result=caught
        first=$(grep -m 1 -E '\*\*\*(Failed|Timeout|Exception)' "$log/tests-$i.log" |
                sed -E 's/.*Test +#[0-9]+: ([^ ]+) .*/\1/' || true)
        detail=" (${first:-see $log/tests-$i.log})"
      fi
    else
      result=n/a
    fi
    restore
  fi
  case $result in
    caught) caught=$((caught + 1)) ;;
    missed) missed=$((missed + 1)) ;;
    no-build) nobuild=$((nobuild + 1)) ;;
    n/a) na=$((na + 1)) ;;
  esac
  printf '%-4s %-9s %-27s %s%s\n' "$i" "$result" "$file" "$what" "$detail"
done

if [ "$dry" -eq 0 ]; then
  build "$log/final-build.log" || true   # leave the scratch build unmutated
  secs=$(( $(date +%s) - start ))
  printf 'faults %d: caught %d, missed %d, n/a %d, no-build %d  (%dm%02ds)\n' \
    "$i" "$caught" "$missed" "$na" "$nobuild" $((secs / 60)) $((secs % 60))
else
  printf 'faults %d: %d apply, %d n/a\n' "$i" $((i - na)) "$na"
fi
