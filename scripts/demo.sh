#!/usr/bin/env bash
# Installs what is missing, builds the default preset and runs the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build
cmake --preset default >/dev/null
cmake --build --preset default
./build/default/bin/lmxtool info
