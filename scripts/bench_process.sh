#!/usr/bin/env bash
# Whole-process timings of `meshcore info` against the peer's import program,
# on generated Lightwave grids. Prints "name<TAB>milliseconds" lines on
# standard output (progress goes to standard error):
#   info_lwo@meshcore, info_lwo@assimp          best of BENCH_PROCESS_RUNS (default 10)
#                                               runs on the 1000 x 1000 grid
#   info_lwo_worst@meshcore, info_lwo_worst@assimp
#                                               worst of 10 runs on the 3000 x 3000
#                                               grid, each of ours right after a
#                                               run of the peer on the same file
#   info_lwo_worst@meshcore-advice, ...-noadvice
#                                               the same with MESHCORE_HUGEPAGES=1 / 0
# usage: scripts/bench_process.sh BUILD_DIR
# The peer rows are skipped when the peer program was not built.
set -euo pipefail
build=${1:?usage: bench_process.sh BUILD_DIR}
tool=$build/meshcore
maker=$build/bench/meshcore_make_lwo_grid
peer=$build/bench/peers/meshcore_peer_assimp_import
runs=${BENCH_PROCESS_RUNS:-10}
for exe in "$tool" "$maker"; do
  [ -x "$exe" ] || { echo "bench_process: $exe is missing" >&2; exit 1; }
done
[ -x "$peer" ] || peer=

work=$(mktemp -d "${TMPDIR:-/tmp}/meshcore-process.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Wall time of one run of the command, in milliseconds; a failed run fails the script.
time_ms() {
  local start end
  start=$(date +%s%N)
  "$@" >/dev/null 2>&1 || { echo "bench_process: '$*' failed" >&2; return 1; }
  end=$(date +%s%N)
  echo $(((end - start) / 1000000))
}

# min and max of a list of numbers.
least() { printf '%s\n' "$@" | sort -n | head -n1; }
most() { printf '%s\n' "$@" | sort -n | tail -n1; }

echo "bench_process: writing the 1000 x 1000 grid" >&2
"$maker" 1000 "$work/grid1000.lwo" >/dev/null
ours=() theirs=()
for _ in $(seq "$runs"); do
  ours+=("$(time_ms "$tool" info "$work/grid1000.lwo")")
  [ -z "$peer" ] || theirs+=("$(time_ms "$peer" "$work/grid1000.lwo")")
done
echo "bench_process: 1000 grid runs (ms): ours ${ours[*]}; peer ${theirs[*]:-not run}" >&2
printf 'info_lwo@meshcore\t%s\n' "$(least "${ours[@]}")"
[ -z "$peer" ] || printf 'info_lwo@assimp\t%s\n' "$(least "${theirs[@]}")"
rm -f "$work/grid1000.lwo"

echo "bench_process: writing the 3000 x 3000 grid" >&2
"$maker" 3000 "$work/grid3000.lwo" >/dev/null
plain=() advice=() noadvice=() theirs=()
for round in $(seq 10); do
  echo "bench_process: tail round $round of 10" >&2
  # The peer uses a few GB: each of our runs starts on the memory it left.
  for mode in default 1 0; do
    [ -z "$peer" ] || theirs+=("$(time_ms "$peer" "$work/grid3000.lwo")")
    case $mode in
    default) plain+=("$(time_ms "$tool" info "$work/grid3000.lwo")") ;;
    1) advice+=("$(MESHCORE_HUGEPAGES=1 time_ms "$tool" info "$work/grid3000.lwo")") ;;
    0) noadvice+=("$(MESHCORE_HUGEPAGES=0 time_ms "$tool" info "$work/grid3000.lwo")") ;;
    esac
  done
done
echo "bench_process: 3000 grid runs (ms): default ${plain[*]}; advice ${advice[*]};" \
  "no advice ${noadvice[*]}; peer ${theirs[*]:-not run}" >&2
printf 'info_lwo_worst@meshcore\t%s\n' "$(most "${plain[@]}")"
printf 'info_lwo_worst@meshcore-advice\t%s\n' "$(most "${advice[@]}")"
printf 'info_lwo_worst@meshcore-noadvice\t%s\n' "$(most "${noadvice[@]}")"
[ -z "$peer" ] || printf 'info_lwo_worst@assimp\t%s\n' "$(most "${theirs[@]}")"
