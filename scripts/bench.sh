#!/usr/bin/env bash
# Builds our benchmarks and every peer benchmark CMake finds, runs them on the
# same generated data in one run and prints one table: the work, our time, the
# peer's (or floor's) time and the ratio against its target.
#   scripts/bench.sh            all rows
#   BENCH_REPS=5 scripts/bench.sh   more repetitions (the best is kept)
# Peers are optional (Debian: libosd-dev, libmeshoptimizer-dev, libassimp-dev,
# libcoin-dev, libtinyobjloader-dev, lib3ds-dev, libdxflib-dev); a row whose
# peer is missing shows only our time.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target meshcore_tool meshcore_bench meshcore_make_lwo_grid meshcore_peers >/dev/null

build=build/default
results=$(mktemp -d "${TMPDIR:-/tmp}/meshcore-bench.XXXXXX")
trap 'rm -rf "$results"' EXIT
reps=${BENCH_REPS:-3}

for exe in "$build/bench/meshcore_bench" "$build"/bench/peers/meshcore_peer_*; do
  [ -x "$exe" ] || continue
  name=$(basename "$exe")
  [ "$name" = meshcore_peer_assimp_import ] && continue
  echo "bench: running $name" >&2
  "$exe" --benchmark_filter='@' --benchmark_repetitions="$reps" \
    --benchmark_format=json --benchmark_out="$results/$name.json" >/dev/null ||
    echo "bench: $name failed" >&2
done

# Whole-process rows (the command-line tool against a peer's import program).
if [ -x scripts/bench_process.sh ]; then
  scripts/bench_process.sh "$build" >"$results/process.tsv" || echo "bench: whole-process rows failed" >&2
fi

python3 scripts/bench_table.py bench/peers/rows.tsv "$results"
