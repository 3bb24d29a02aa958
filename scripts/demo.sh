#!/usr/bin/env bash
# What `make demo` shows: each command as a user types it, then its output,
# on the bundled sample.  Usage: scripts/demo.sh [BUILD_DIR]
set -euo pipefail
tool=${1:-build}/tools/vrncal
mkdir -p out
run() {
  echo "\$ vrncal $*"
  "$tool" "$@"
}
run info examples/sample.cor
run correct examples/sample.cor examples/points.txt -o out/counts.txt
echo '$ head -n 6 out/counts.txt'
head -n 6 out/counts.txt
run evaluate examples/sample.cor --lens examples/lens.ini
run plot examples/sample.cor --lens examples/lens.ini -o out/demo.png
echo "plot written to out/demo.png"
