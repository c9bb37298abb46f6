#!/usr/bin/env bash
# Renders the library's wing graph, written by the configure step from the wing lists in
# liblmxcore/CMakeLists.txt, and CMake's target graph into docs/ (needs graphviz's dot).
set -euo pipefail
cd "$(dirname "$0")/.."
command -v dot >/dev/null || { sudo=""; [ "$(id -u)" = 0 ] || sudo=sudo; $sudo apt-get update -qq && $sudo apt-get install -y -qq graphviz; }
cmake --preset default --graphviz=build/default/targets/targets.dot >/dev/null
dot -Tsvg build/default/wings.dot -o docs/wings.svg
dot -Tsvg build/default/targets/targets.dot -o docs/targets.svg
echo "docs/wings.svg docs/targets.svg"
