#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) into build-fuzz/,
# replays every input under fuzz/regressions/, then fuzzes each target for
# SECONDS (default 60) and prints executions per second and coverage.
# Fails on any crash, timeout (5 s), out-of-memory (2 GB in all, 64 MB in
# one allocation) or leak.
#
# Usage: scripts/fuzz.sh [SECONDS]
# Environment:
#   QMKV_FUZZ_TARGETS  targets to run (default "core plugin config ebml")
#   QMKV_FUZZ_JOBS     targets fuzzed at the same time (default 2, at most nproc)
#   QMKV_FUZZ_DIR      build and work directory (default build-fuzz); the
#                      corpus each run grows is kept in DIR/corpus/ for the
#                      next run, crashing inputs go to DIR/artifacts/
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
seconds=${1:-60}
targets=${QMKV_FUZZ_TARGETS:-core plugin config ebml}
dir=${QMKV_FUZZ_DIR:-build-fuzz}
jobs=${QMKV_FUZZ_JOBS:-2}
[ "$jobs" -le "$(nproc)" ] || jobs=$(nproc)

scripts/setup.sh
scripts/setup.sh clang libclang-rt-14-dev  # clang and its fuzzer and sanitizer runtimes
cc=clang-14 cxx=clang++-14
command -v "$cxx" >/dev/null || { cc=clang; cxx=clang++; }

echo "fuzz: building into $dir"
mkdir -p "$dir"
build_targets=()
for t in $targets; do build_targets+=(--target "fuzz_$t"); done
if ! { CC=$cc CXX=$cxx cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQMKV_FUZZ=ON -DQMKV_TESTS=OFF &&
       cmake --build "$dir" -j"$(nproc)" "${build_targets[@]}"; } >"$dir/build.log" 2>&1; then
  tail -40 "$dir/build.log" >&2
  echo "fuzz: build failed (all of it in $dir/build.log)" >&2
  exit 1
fi

# Seeds: the committed ones (fuzz/seeds/: crafted structures plain muxers
# rarely write), tiny real files made once per build directory, the test
# corpus when a test run has made it, and the codec configurations and
# first frames of the real files.
real="$dir/seeds-real"
if [ ! -e "$real/.done" ]; then
  echo "fuzz: generating seed files into $real"
  rm -rf "$real"
  mkdir -p "$real"
  FF=(ffmpeg -hide_banner -nostdin -loglevel error -y)
  V=(-f lavfi -i testsrc2=size=64x48:rate=10:duration=1)
  A=(-f lavfi -i "aevalsrc=exprs=0.4*sin(2*PI*440*t)|0.2*sin(2*PI*660*t):sample_rate=44100:duration=1")
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v libx264 -preset ultrafast -crf 40 -g 4 -bf 2 -c:a aac -b:a 24k "$real/h264_aac.mkv"
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v libx264 -preset ultrafast -crf 40 -g 4 -c:a aac -b:a 24k \
    -reserve_index_space 512 "$real/h264_aac_cues_front.mkv"
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v libx265 -preset ultrafast -crf 45 -g 4 -x265-params log-level=error \
    -c:a libopus -b:a 16k "$real/hevc_opus.mkv"
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v libvpx -deadline realtime -b:v 30k -g 4 -c:a libvorbis -q:a 0 "$real/vp8_vorbis.mkv"
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 30k -g 4 -c:a libopus -b:a 16k \
    "$real/vp9_opus.webm"
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v mpeg4 -q:v 20 -bf 1 -g 4 -c:a libmp3lame -b:a 32k "$real/mpeg4_mp3.mkv"
  "${FF[@]}" "${V[@]}" "${A[@]}" -c:v mpeg2video -q:v 20 -bf 1 -g 4 -c:a ac3 -b:a 64k "$real/mpeg2_ac3.mkv"
  "${FF[@]}" -f lavfi -i testsrc2=size=64x64:rate=10:duration=0.5 -c:v libaom-av1 -usage realtime -cpu-used 8 \
    -b:v 20k -g 4 "$real/av1.mkv"
  "${FF[@]}" "${A[@]}" -c:a flac "$real/flac.mka"
  "${FF[@]}" "${A[@]}" -ar 8000 -c:a pcm_s16le "$real/pcm.mka"
  "${FF[@]}" "${A[@]}" -c:a eac3 -b:a 96k "$real/eac3.mka"
  # Codec IDs the test corpus lacks: DTS, TrueHD.
  "${FF[@]}" "${A[@]}" -strict -2 -c:a dca -t 0.06 "$real/dts.mka"
  "${FF[@]}" "${A[@]}" -strict -2 -c:a truehd -t 0.2 "$real/truehd.mka"
  printf '1\n00:00:00,100 --> 00:00:00,500\nOne\n\n2\n00:00:00,600 --> 00:00:00,900\n<i>Two</i>\n' >"$real/subs.srt"
  "${FF[@]}" "${V[@]}" -i "$real/subs.srt" -c:v libx264 -preset ultrafast -crf 40 -g 4 -c:s srt "$real/h264_srt.mkv"
  rm -f "$real/subs.srt"
  MM=(mkvmerge --quiet)
  "${MM[@]}" -o "$real/mkvmerge_laced.mkv" "$real/h264_aac.mkv" || [ $? -eq 1 ]
  "${MM[@]}" -o "$real/mkvmerge_nocues_groups.mkv" --no-cues --engage no_simpleblocks "$real/mpeg4_mp3.mkv" || [ $? -eq 1 ]
  "${MM[@]}" -o "$real/mkvmerge_zlib.mkv" --compression 1:zlib "$real/vp8_vorbis.mkv" || [ $? -eq 1 ]
  touch "$real/.done"
fi
corpus_seeds=()
[ -d build/corpus ] && corpus_seeds=(build/corpus)
# The codec configurations and first frames of every real file.
config_seeds="$dir/seeds-config"
if [ ! -e "$config_seeds/.done" ]; then
  rm -rf "$config_seeds"
  python3 fuzz/make_seeds.py extract "$config_seeds" "$real"/*.mk* "$real"/*.webm ${corpus_seeds[@]/%//*.mk*}
  touch "$config_seeds/.done"
fi
# The Matroska targets start from small seeds, every file cut to its first
# Clusters and blocks: an execution's cost grows with its input, and the
# structure of a file is all in its first few KB. Names are kept apart by
# their source, the corpus may share some with the committed seeds.
small_seeds="$dir/seeds-small"
if [ ! -e "$small_seeds/.done" ]; then
  rm -rf "$small_seeds"
  python3 fuzz/make_seeds.py cut "$small_seeds/committed" 6144 fuzz/seeds/mkv/*
  python3 fuzz/make_seeds.py cut "$small_seeds/real" 6144 "$real"/*.mk* "$real"/*.webm
  [ ${#corpus_seeds[@]} -eq 0 ] || python3 fuzz/make_seeds.py cut "$small_seeds/corpus" 6144 ${corpus_seeds[@]/%//*.mk*}
  touch "$small_seeds/.done"
fi

supp="$root/fuzz/ubsan.supp"
replay_fail=0
run_target() {  # NAME
  local t=fuzz_$1
  local bin="$dir/fuzz/$t" log="$dir/logs/$t.log"
  local corpus="$dir/corpus/$t" artifacts="$dir/artifacts/$t"
  mkdir -p "$corpus" "$artifacts" "$dir/logs"
  # Inputs are at most 8 KiB: no single block beyond 64 MiB is justified
  # (the largest legitimate one is a 15 MiB video input buffer).
  local opts=(-timeout=5 -rss_limit_mb=2048 -malloc_limit_mb=64 -artifact_prefix="$artifacts/")
  local seeds=()
  case $1 in
    config) opts+=(-max_len=8192); seeds=(fuzz/seeds/config "$config_seeds") ;;
    # The element readers need no more than a few KB to meet every case.
    # Entropic scheduling is off for the Matroska targets: its per-feature
    # bookkeeping (a random access into a 4 MB table for each of the tens of
    # thousands of features an input hits) cost more than the code under
    # test, and a run without it reached as much coverage in the same time.
    ebml) opts+=(-max_len=4096 -entropic=0 -dict=fuzz/matroska.dict); seeds=("$small_seeds") ;;
    # A file's structure fits in the seeds' 6 KiB with room to grow: twice
    # that repeated it in longer executions (a tenth fewer per second).
    *) opts+=(-max_len=8192 -entropic=0 -dict=fuzz/matroska.dict); seeds=("$small_seeds") ;;
  esac
  # Reproducers replay with nothing suppressed; each input runs
  # on its own so that one failure does not hide the others.
  local rc=0 f
  rm -f "$log.replay"
  for f in "fuzz/regressions/$t"/*; do
    [ -f "$f" ] || continue
    if ! "$bin" "${opts[@]}" "$f" >>"$log.replay" 2>&1; then
      echo "fuzz: $t: regression input $f fails" >&2
      grep -a -m2 -E 'ERROR: |runtime error|broken promise|CHECK' "$log.replay" | tail -1 >&2 || true
      rc=1
    fi
  done
  # The campaign goes on past known reports (fuzz/ubsan.supp). The
  # demuxer instance, the first-frame buffer and the sample buffers are
  # blocks above 128 KiB that ASan maps afresh for every input; clearing
  # their shadow in place costs less than mapping it anew each time.
  UBSAN_OPTIONS="suppressions=$supp" ASAN_OPTIONS="clear_shadow_mmap_threshold=4194304:${ASAN_OPTIONS:-}" "$bin" "${opts[@]}" -max_total_time="$seconds" -print_final_stats=1 \
    "$corpus" "${seeds[@]}" >"$log" 2>&1 || rc=1
  return $rc
}

echo "fuzz: $seconds s per target, $jobs at a time: $targets"
status=0
pids=()
names=()
for t in $targets; do
  run_target "$t" &
  pids+=($!)
  names+=("$t")
  if [ ${#pids[@]} -ge "$jobs" ]; then
    wait "${pids[0]}" || { status=1; echo "fuzz: fuzz_${names[0]} FAILED" >&2; }
    pids=("${pids[@]:1}")
    names=("${names[@]:1}")
  fi
done
for i in "${!pids[@]}"; do
  wait "${pids[$i]}" || { status=1; echo "fuzz: fuzz_${names[$i]} FAILED" >&2; }
done

printf '%-12s %10s %8s %7s %7s %7s\n' target execs exec/s cov ft corpus
for t in $targets; do
  log="$dir/logs/fuzz_$t.log"
  [ -f "$log" ] || continue
  last=$(grep -a -E '^#[0-9]+.*cov: ' "$log" | tail -1 || true)
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  units=$(sed -n 's/.* corp: \([0-9]*\)\/.*/\1/p' <<<"$last")
  printf '%-12s %10s %8s %7s %7s %7s\n' "fuzz_$t" "${execs:-?}" "${rate:-?}" "${cov:-?}" "${ft:-?}" "${units:-?}"
  if grep -aqE '^==[0-9]+==ERROR|runtime error|deadly signal|Test unit written' "$log"; then
    status=1
    echo "fuzz: fuzz_$t found a failure:" >&2
    grep -a -m5 -E 'ERROR|runtime error|SUMMARY|Test unit written' "$log" >&2 || true
  fi
done
[ $status -eq 0 ] && echo "fuzz: all targets clean" || echo "fuzz: FAILED (inputs under $dir/artifacts/)" >&2
exit $status
