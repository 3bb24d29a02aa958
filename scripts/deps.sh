#!/usr/bin/env bash
# Installs the Debian packages the build, tests and tools need, when missing;
# with --fuzz also clang and its runtime libraries for the fuzz targets.
# Runs as root directly, otherwise through sudo.
set -euo pipefail
packages=(cmake make g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libcairo2-dev libcli11-dev libfmt-dev nlohmann-json3-dev fonts-dejavu-core
          libopencv-dev libpng-dev libtiff-dev
          pybind11-dev python3-dev python3-numpy python3-pytest python3-matplotlib)
[ "${1:-}" = "--fuzz" ] && packages+=(clang-14 clang libclang-rt-14-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing missing packages: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq "${missing[@]}"
