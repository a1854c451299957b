#!/usr/bin/env bash
# Installs the Debian packages Tamo builds with (only those missing), then
# configures and builds everything into build/. Safe to run repeatedly.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake g++ ninja-build pkg-config
          libgtest-dev libgmock-dev libbenchmark-dev
          nlohmann-json3-dev)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "Installing: ${missing[*]}" >&2
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >&2
fi

cmake -S . -B build -G Ninja >&2
cmake --build build -j "$(nproc)" >&2
