#!/usr/bin/env bash
# Sets up, builds, makes a sample Matroska file and runs the probe on it.
# Usage: scripts/run.sh [FILE [PROBE OPTIONS...]]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh build
file=${1:-}
shift || true
if [ -z "$file" ]; then
  file=build/sample.mkv
  [ -f "$file" ] || ffmpeg -loglevel error -y \
    -f lavfi -i testsrc=size=320x240:rate=25:duration=3 \
    -f lavfi -i sine=frequency=440:duration=3 \
    -c:v libx264 -preset veryfast -g 25 -c:a aac -b:a 96k "$file"
fi
build/qmkvprobe "$@" "$file"
