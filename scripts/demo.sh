#!/usr/bin/env bash
# Builds the meshcore command and runs it on the bundled sample.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target meshcore_tool >/dev/null
exec build/default/meshcore demo
