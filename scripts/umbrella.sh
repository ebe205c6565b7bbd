#!/usr/bin/env bash
# Regenerates meshcore/meshcore.h so that it includes every public header
# (tracked by git, so that work in progress is left out). Headers in detail/
# folders are internal: neither included here nor installed.
set -euo pipefail
cd "$(dirname "$0")/.."
{
  echo '#pragma once'
  echo '// Every public header of the library. Regenerate with scripts/umbrella.sh;'
  echo '// the header_check test fails when a header is missing here.'
  echo
  git ls-files 'meshcore/*/*.h' | grep -v '/detail/' | LC_ALL=C sort | sed 's|.*|#include "&"|'
} > meshcore/meshcore.h
