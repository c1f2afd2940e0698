#!/usr/bin/env bash
# Installs dependencies, checks the layer map, builds and runs the whole test suite: the release
# preset, the address+undefined sanitizer preset, then a short run of each fuzz target on its
# seed corpus.
# Benchmarks are built (so none rots) but not run.
#
#   ./scripts/test.sh                 everything
#   ./scripts/test.sh release         one preset's tests (release, debug or asan)
#   FUZZ_SECONDS=300 ./scripts/test.sh fuzz    a longer fuzz run
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
# The layer map first: it takes a second and names the include that breaks it.
./scripts/check-layers.sh
jobs=$(nproc 2>/dev/null || echo 2)
stages=("${@:-release asan fuzz}")
for stage in ${stages[@]}; do
  echo "== $stage"
  cmake --preset "$stage" >/dev/null
  cmake --build --preset "$stage" -j"$jobs"
  if [ "$stage" != fuzz ]; then
    ctest --preset "$stage" -j"$jobs"
    continue
  fi
  # libFuzzer adds what it finds to the first directory: a scratch one under build/, so the
  # repository's seeds stay as they are. A crash fails the run and leaves its input in build/fuzz.
  for target in scene_file script_parser rig_file; do
    work="build/fuzz/corpus/$target"
    mkdir -p "$work"
    log="build/fuzz/$target.log"
    if ! ./build/fuzz/fuzz/"$target"_fuzz -max_total_time="${FUZZ_SECONDS:-30}" \
        -print_final_stats=1 -artifact_prefix=build/fuzz/ "$work" "fuzz/corpus/$target" >"$log" 2>&1; then
      tail -n 60 "$log"
      exit 1
    fi
    echo "$target: $(grep -E '^Done' "$log")"
  done
done
