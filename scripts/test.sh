#!/usr/bin/env bash
# Installs dependencies, builds and runs the whole test suite: the release preset, then the
# address+undefined sanitizer preset. Benchmarks are built (so none rots) but not run.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
presets=("${@:-release asan}")
for preset in ${presets[@]}; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j"$jobs"
  ctest --preset "$preset" -j"$jobs"
done
