#!/usr/bin/env bash
# Installs every build and test dependency from Debian packages. A no-op when all are present.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  qtbase5-dev libqt5svg5-dev
  libflatbuffers-dev flatbuffers-compiler
  libassimp-dev
  libgtest-dev libgmock-dev libbenchmark-dev librapidcheck-dev
  libcli11-dev
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
