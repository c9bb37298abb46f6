#!/usr/bin/env bash
# Installs what is missing (the library's, the tool's and the Python binding's packages), builds a preset
# (default: "default") and runs its whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/install-deps.sh build tool python
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
