#!/usr/bin/env bash
# Builds the library, the tool, the tests and the benchmarks, then runs every test.
# Usage: scripts/test.sh [preset]   (default, sanitize or tsan)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"
