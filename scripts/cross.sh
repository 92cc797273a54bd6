#!/usr/bin/env bash
# Android runs media processes as 32-bit and 64-bit ARM code. This builds
# every plug-in source for both with Debian's cross compilers (warnings as
# errors), then runs qmkvdump, the demuxer core's frames and seek landings as
# text, over the test corpus under qemu-user and compares its output with the
# native run's byte for byte.
#
#   scripts/cross.sh [BUILD_DIR [CORPUS_DIR]]
#
# BUILD_DIR (default build) holds the native build, which gives the native
# qmkvdump; the ARM objects and binaries go to BUILD_DIR/cross. CORPUS_DIR
# (default BUILD_DIR/corpus) is generated when it has no manifest yet.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
corpus=${2:-$build/corpus}
start=$SECONDS

scripts/setup.sh g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user

cmake -S . -B "$build" >/dev/null  # picks up a tree configured before qmkvdump existed
cmake --build "$build" --target qmkvdump -j"$(nproc)" >/dev/null
[ -f "$corpus/manifest.txt" ] || bash tests/corpus/make_corpus.sh "$corpus"

# The platform's headers as the plug-in sees them on the host: host/include,
# then the Android host libraries' (their own warnings are not ours). Only
# qmkvdump's own sources see the host's driver headers.
export CROSS_FLAGS="-std=c++17 -O2 -Wall -Wextra -Werror -fvisibility=hidden -I. -Ihost/include
  -isystem /usr/include/android"
export CROSS_OUT="$build/cross"
compile() {  # TRIPLE SOURCE
  local obj="$CROSS_OUT/$1/${2%.cpp}.o" driver=()
  case $2 in tools/* | host/*) driver=(-Ihost/driver) ;; esac
  mkdir -p "$(dirname "$obj")"
  # shellcheck disable=SC2086
  "$1-g++" $CROSS_FLAGS "${driver[@]}" -c "$2" -o "$obj"
}
export -f compile

triples=(arm-linux-gnueabihf aarch64-linux-gnu)
plugin=(demux/*.cpp common/*.cpp pcm/*.cpp extractor/*.cpp extractor/mfal/*.cpp qextractorcmn/*.cpp)
dump=(tools/qmkvdump/main.cpp tools/qmkvdump/android_log_stderr.cpp tools/qmkvprobe/core_reader.cpp
  host/driver/FileSource.cpp)
# shellcheck disable=SC2016
for t in "${triples[@]}"; do
  for s in "${plugin[@]}" "${dump[@]}"; do printf '%s\n%s\n' "$t" "$s"; done
done | xargs -d '\n' -n 2 -P "$(nproc)" bash -c 'compile "$0" "$1"'

# qmkvdump links the core alone: the front end needs the platform's libraries.
core=(demux/*.cpp common/*.cpp pcm/*.cpp extractor/mfal/*.cpp "${dump[@]}")
mapfile -t files < <(find "$corpus" -maxdepth 1 -type f \( -name '*.mkv' -o -name '*.mka' -o -name '*.webm' \) | sort)
"$build/qmkvdump" "${files[@]}" >"$CROSS_OUT/native.txt" 2>/dev/null
declare -A qemu=([arm-linux-gnueabihf]=qemu-arm [aarch64-linux-gnu]=qemu-aarch64)
for t in "${triples[@]}"; do
  objs=()
  for s in "${core[@]}"; do objs+=("$CROSS_OUT/$t/${s%.cpp}.o"); done
  "$t-g++" -static -o "$CROSS_OUT/$t/qmkvdump" "${objs[@]}"
  "${qemu[$t]}" "$CROSS_OUT/$t/qmkvdump" "${files[@]}" >"$CROSS_OUT/$t.txt" 2>/dev/null
  if ! cmp -s "$CROSS_OUT/native.txt" "$CROSS_OUT/$t.txt"; then
    echo "cross: $t output differs from the native run:" >&2
    diff "$CROSS_OUT/native.txt" "$CROSS_OUT/$t.txt" | head -20 >&2
    exit 1
  fi
done
echo "cross: ${#plugin[@]} plug-in sources built for ${triples[*]}; ${#files[@]} files," \
  "$(grep -c '^frame ' "$CROSS_OUT/native.txt") frames and $(grep -c '^seek ' "$CROSS_OUT/native.txt") seeks" \
  "equal under qemu ($((SECONDS - start)) s)"
