#!/usr/bin/env bash
# Installs dependencies, builds the release preset and runs the main job of the command-line tool.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset release >/dev/null
# Only what the main job needs: the tool and the module it loads (tests and benchmarks build
# with scripts/test.sh).
cmake --build --preset release -j"$jobs" --target marvolith Marvolith.dlc
exec ./build/release/bin/marvolith demo "$@"
