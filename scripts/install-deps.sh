#!/usr/bin/env bash
# Installs the Debian packages a job needs, only those missing.
# Usage: scripts/install-deps.sh [build] [windows] [sanitizers] [bench] [tool] [python]
set -euo pipefail

declare -A groups=(
  [build]="build-essential cmake ccache googletest libgtest-dev libgmock-dev liblog4cxx-dev libtbb-dev"
  [windows]="g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64 wine"
  [sanitizers]="clang clang-format clang-tidy libclang-rt-dev valgrind"
  [bench]="libbenchmark-dev libyuv-dev libspeexdsp-dev libsoxr-dev libsamplerate0-dev libtbb-dev python3-opencv"
  [tool]="libpng-dev libsndfile1-dev libcli11-dev pkg-config"
  [python]="python3-dev python3-numpy pybind11-dev python3-pytest python3-pil"
)

wanted=()
for group in "${@:-build}"; do
  for package in ${groups[$group]}; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed" || wanted+=("$package")
  done
done
[ ${#wanted[@]} -eq 0 ] && exit 0

echo "Installing: ${wanted[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${wanted[@]}" >/dev/null
