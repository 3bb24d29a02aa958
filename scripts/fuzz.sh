#!/usr/bin/env bash
# Builds the libFuzzer targets (clang) and runs each for a bounded time from
# the seed corpora kept in the repository, then prints executions, coverage
# and findings per target.  Exit status 1 when anything was found (a crash, a
# sanitizer report, a leak, a timeout, running out of memory or an input that
# made a loader allocate beyond its bound).  docs/fuzzing.md explains it.
#
#   scripts/fuzz.sh [-t SECONDS | -T SECONDS] [-j PARALLEL] [-f FORKS] [-o OUT] [TARGET...]
#
#   -t  seconds per target (default 30)
#   -T  seconds in all, shared out among the targets
#   -j  targets run side by side (default 1)
#   -f  libFuzzer processes per target (-fork); with it a finding does not
#       stop the target, it is counted and the run goes on (default: none)
#   -o  working folder: grown corpora and findings (default: a temporary one)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=30
total=0
parallel=1
forks=0
out=""
while getopts "t:T:j:f:o:h" opt; do
  case $opt in
    t) seconds=$OPTARG ;;
    T) total=$OPTARG ;;
    j) parallel=$OPTARG ;;
    f) forks=$OPTARG ;;
    o) out=$OPTARG ;;
    *) sed -n '2,19p' "$0"; exit 2 ;;
  esac
done
shift $((OPTIND - 1))

build=${FUZZ_BUILD:-build-fuzz}
if [ ! -f "$build/CMakeCache.txt" ]; then
  launcher=()
  command -v ccache > /dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVRNCAL_BUILD_FUZZ=ON \
    -DVRNCAL_BUILD_TESTS=OFF -DVRNCAL_BUILD_TOOLS=OFF "${launcher[@]}" > /dev/null
fi
cmake --build "$build" -j "$(nproc)" > /dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in "$build"/fuzz/fuzz_*.seeds; do
    t=${f##*/fuzz_}
    targets+=("${t%.seeds}")
  done
fi

if [ "$total" -gt 0 ]; then
  seconds=$((total / ${#targets[@]}))
  [ "$seconds" -ge 10 ] || seconds=10
fi

if [ -z "$out" ]; then
  out=$(mktemp -d)
  trap 'rm -rf "$out"' EXIT
fi
mkdir -p "$out"

# Inputs up to megabytes for the file readers; every input is also held to
# the loaders' memory bounds inside the targets (fuzz/alloc_guard.h).
max_len() {
  case $1 in
    corrector) echo 65536 ;;
    table_reference) echo 1048576 ;;
    *) echo 4194304 ;;
  esac
}

run_one() {
  local t=$1
  local corpus="$out/corpus/$t" findings="$out/findings/$t" log="$out/$t.log"
  mkdir -p "$corpus" "$findings"
  local flags=(-max_total_time="$seconds" -max_len="$(max_len "$t")" -timeout=30
               -malloc_limit_mb=1024 -rss_limit_mb=2560 -print_final_stats=1
               -artifact_prefix="$findings/")
  if [ "$forks" -gt 0 ]; then
    flags+=(-fork="$forks" -ignore_crashes=1 -ignore_ooms=1 -ignore_timeouts=1)
  fi
  # shellcheck disable=SC2046
  "$build/fuzz/fuzz_$t" "${flags[@]}" "$corpus" $(cat "$build/fuzz/fuzz_$t.seeds") > "$log" 2>&1 || true
}
export -f run_one max_len
export build out seconds forks

printf '%s\n' "${targets[@]}" | xargs -P "$parallel" -I{} bash -c 'run_one {}'

status=0
printf '%-16s %12s %8s %9s\n' target executions coverage findings
for t in "${targets[@]}"; do
  log="$out/$t.log"
  execs=$(grep -o '^stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1 || true)
  [ -n "$execs" ] || execs=$(grep -o '^#[0-9]*' "$log" | tail -1 | tr -d '#' || true)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || true)
  found=$(find "$out/findings/$t" -type f | wc -l)
  if grep -q 'ERROR: libFuzzer\|ERROR: AddressSanitizer\|runtime error:\|allocation finding' "$log"; then
    [ "$found" -gt 0 ] || found=1
  fi
  printf '%-16s %12s %8s %9s\n' "$t" "${execs:-?}" "${cov:-?}" "$found"
  if [ "$found" -gt 0 ]; then
    status=1
    echo "  $t: see $log and $out/findings/$t" >&2
    grep -m 5 'ERROR\|runtime error\|allocation finding\|SUMMARY' "$log" | sed 's/^/  /' >&2 || true
    trap - EXIT  # a temporary working folder is kept for the findings
  fi
done
exit $status
