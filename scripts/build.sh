#!/usr/bin/env bash
# Configures and builds into $1 (default build/), passing further arguments to CMake.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build}
shift || true
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)" >/dev/null
