#!/usr/bin/env bash
# Builds the meshcore command and runs it on the bundled sample: a small scene
# that the tool builds itself (three meshes, a texture and a colour channel,
# three materials), saved as a Lightwave object, read back and described; the
# file is then converted and inspected as a script would, and drawn into a
# picture that is kept after the script ends.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target meshcore_tool >/dev/null
tool=build/default/meshcore

work=$(mktemp -d "${TMPDIR:-/tmp}/meshcore-demo.XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "\$ meshcore demo"
"$tool" demo "$work"
if [ -f "$work/demo.lwo" ]; then
  echo
  echo "\$ meshcore convert demo.lwo copy.lwo"
  "$tool" convert "$work/demo.lwo" "$work/copy.lwo"
  echo
  echo "\$ meshcore info --json copy.lwo"
  "$tool" info --json "$work/copy.lwo"
  echo
  picture=build/default/demo.png
  echo "\$ meshcore render copy.lwo demo.png --wire"
  "$tool" render "$work/copy.lwo" "$picture" --wire --silent
  echo "the picture of the demo scene is in $(pwd)/$picture"
fi
