#!/usr/bin/env bash
# Installs what is missing, builds the default preset and runs the demo: built-in
# frames and sound through the library, written as PNG and WAV files into out/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build tool
cmake --preset default >/dev/null
cmake --build --preset default
./build/default/bin/lmxtool demo --out out
