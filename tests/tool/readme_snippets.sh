#!/bin/bash
# The README's code as a reader uses it, against a staged install: every C++ block
# is compiled through pkg-config (lmxcore-host) and run with the installed module;
# every shell block is checked by bash and, unless it runs the build scripts (CI
# runs those), run with /opt/... and build/default pointed at the staged install
# and the build tree.
#   readme_snippets.sh README STAGE BUILD_DIR [EXTRA_FLAGS]
set -eu
readme=$1 stage=$2 build=$3 flags=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk -v dir="$work" '/^```(cpp|sh)$/ { file = sprintf("%s/%02d.%s", dir, ++n, substr($0, 4)); next }
                    /^```/ { file = "" } file { print > file }' "$readme"
PKG_CONFIG_PATH=$(dirname "$(find "$stage" -name lmxcore.pc)")
export PKG_CONFIG_PATH
module=$(pkg-config --variable=modulepath lmxcore)
count=0
for snippet in "$work"/*.cpp "$work"/*.sh; do
  count=$((count + 1))
  echo "== ${snippet##*/}: $(head -1 "$snippet")"
  if [[ $snippet == *.cpp ]]; then
    # shellcheck disable=SC2046,SC2086
    c++ $flags -o "$work/host" "$snippet" $(pkg-config --cflags --libs lmxcore-host)
    "$work/host" "$module"
    continue
  fi
  bash -n "$snippet"
  grep -q '^bash scripts/' "$snippet" && continue
  # Each path is replaced before the ones that could appear inside its replacement.
  sed -e "s#/tmp/#$work/#g; s#\(\./\)\?build/default#$build#g; s#/opt/[a-z]*#$stage#g" "$snippet" >"$snippet.run"
  (cd "$work" && env -u XDG_STATE_HOME -u LMSDK_LOG_DIR -u LMSDK_REGISTRY HOME="$work" \
     bash -e "$snippet.run" >"$work/log" 2>&1) || { cat "$work/log"; exit 1; }
done
[[ $count -ge 6 ]] || { echo "only $count snippets found in $readme"; exit 1; }
