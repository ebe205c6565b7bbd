#!/usr/bin/env bash
# Makes sure the build tools and test libraries are present; installs them from
# Debian when possible, otherwise says exactly what is missing.
set -euo pipefail

need=()
command -v cmake >/dev/null || need+=(cmake)
command -v ninja >/dev/null || need+=(ninja-build)
command -v g++ >/dev/null || need+=(g++)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
if [ "${1:-}" = "--clang" ]; then
  command -v clang++ >/dev/null || need+=(clang)
  ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-dev)
fi

if [ ${#need[@]} -gt 0 ]; then
  echo "meshcore: installing missing packages: ${need[*]}" >&2
  if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}" >&2
  elif command -v sudo >/dev/null && command -v apt-get >/dev/null; then
    sudo apt-get update -qq && sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}" >&2
  else
    echo "meshcore: please install: ${need[*]} (Debian package names)" >&2
    exit 1
  fi
fi
