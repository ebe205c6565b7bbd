#!/usr/bin/env bash
# Converts every sample the meshcore command reads to .glb and .gltf and runs
# the Khronos glTF validator on the results. Optional: nothing else needs Node
# or the validator, and without them this says so and stops.
# Usage: scripts/validate_gltf.sh [build-dir]   (default build/default)
set -euo pipefail
cd "$(dirname "$0")/.."
tool="${1:-build/default}/meshcore"
samples="../shared/models"
if [ ! -x "$tool" ]; then
  echo "validate_gltf: build the tool first (scripts/test.sh or cmake --build --preset default)"
  exit 1
fi
if ! command -v node >/dev/null; then
  echo "validate_gltf: skipped, Node is not installed"
  exit 0
fi
export NODE_PATH="${NODE_PATH:-}:$(npm root -g 2>/dev/null || true):$PWD/scripts/node_modules"
if ! node -e "require.resolve('gltf-validator')" 2>/dev/null; then
  echo "validate_gltf: skipped, the validator is not installed (npm install --prefix scripts gltf-validator)"
  exit 0
fi
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
export MESHCORE_HOME="$out/home"
files=()
while IFS= read -r -d '' f; do
  base="$(basename "${f%.*}")_${f##*.}"
  if "$tool" convert --silent "$f" "$out/$base.glb" 2>/dev/null &&
     "$tool" convert --silent "$f" "$out/$base.gltf" 2>/dev/null; then
    files+=("$out/$base.glb" "$out/$base.gltf")
  fi
done < <(find "$samples" -type f -print0 | sort -z)
echo "validate_gltf: ${#files[@]} files from $samples"
node scripts/validate_gltf.js "${files[@]}"
