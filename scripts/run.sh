#!/usr/bin/env bash
# Installs dependencies, builds the release preset and runs the main job of the command-line tool.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset release >/dev/null
cmake --build --preset release -j"$jobs"
exec ./build/release/bin/marvolith demo "$@"
