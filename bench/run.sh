#!/usr/bin/env bash
# Builds the benchmark (Release, -DQMKV_BENCH=ON) in build-bench/, generates
# the files once (cached in build-bench/files), runs the harness, then the
# "where the time goes" runs: readAt and memcpy counts per reader, and
# callgrind instruction counts of the read and open phases.
#
#   bench/run.sh                 everything
#   BENCH_CALLGRIND=0 bench/run.sh   skip the callgrind runs (minutes)
#   BENCH_REPS=5 BENCH_OPEN_REPS=10 BENCH_SEEKS=100   harness repetitions
#
# Outputs in build-bench/: bench.md (the table), bench.json, where.md,
# copies/*.json, cg/*.out (callgrind) and cg/*.txt (annotations).
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${BENCH_OUT:-$ROOT/build-bench}
FILES=${BENCH_FILES_DIR:-$OUT/files}
REPS=${BENCH_REPS:-5}
OPEN_REPS=${BENCH_OPEN_REPS:-10}
SEEKS=${BENCH_SEEKS:-200}
CALLGRIND=${BENCH_CALLGRIND:-1}

# What the product build needs (compiler, Android host libraries, ffmpeg,
# mkvtoolnix, libavformat, libwebm), then what only the benchmark needs.
"$ROOT/scripts/setup.sh"
# valgrind (callgrind and its client-request header) and linux-perf (the
# profile of the open).
"$ROOT/scripts/setup.sh" valgrind linux-perf

# mkvparser's header, which Debian's libwebm-dev does not install: taken from
# the source package of the installed libwebm1 (the same version), fetched
# with apt-get through a private state directory whose sources are the
# system's own with deb-src types, so the system's apt state is untouched.
WEBM_SRC="$OUT/libwebm-src"
if [ ! -f "$WEBM_SRC/mkvparser/mkvparser.h" ]; then
  echo "bench: fetching mkvparser's header (libwebm source package)" >&2
  APT_DIR="$OUT/libwebm-apt"
  mkdir -p "$APT_DIR/parts" "$APT_DIR/lists/partial" "$APT_DIR/cache/archives/partial" "$WEBM_SRC"
  { [ -f /etc/apt/sources.list ] && sed -n 's/^deb /deb-src /p' /etc/apt/sources.list; } >"$APT_DIR/sources.list" || true
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] && sed 's/^Types:.*/Types: deb-src/' "$f" >"$APT_DIR/parts/$(basename "$f")"
  done
  APT=(apt-get -qq -o Dir::Etc::SourceList="$APT_DIR/sources.list" -o Dir::Etc::SourceParts="$APT_DIR/parts"
    -o Dir::State::Lists="$APT_DIR/lists" -o Dir::Cache="$APT_DIR/cache")
  "${APT[@]}" update
  (cd "$APT_DIR" && "${APT[@]}" source --download-only "libwebm=$(dpkg-query -W -f='${Version}' libwebm1)")
  tar -xf "$APT_DIR"/libwebm_*.orig.tar.* -C "$WEBM_SRC" --strip-components=1 --wildcards '*/mkvparser/mkvparser.h'
  rm -rf "$APT_DIR"
fi

# -g only adds line tables for callgrind's annotations; the code is the
# Release build's.
cmake -S "$ROOT" -B "$OUT" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-g \
  -DQMKV_BENCH=ON -DQMKV_TESTS=OFF >/dev/null
cmake --build "$OUT" --target qmkv_bench qmkv_bench_copies

"$ROOT/bench/make_files.sh" "$FILES"

echo "bench: harness ($REPS reps, $OPEN_REPS open reps, $SEEKS seeks per track)" >&2
"$OUT/qmkv_bench" --files "$FILES" --reps "$REPS" --open-reps "$OPEN_REPS" --seeks "$SEEKS" \
  --json "$OUT/bench.json" 2>"$OUT/bench.log" | tee "$OUT/bench.md"

READERS=(raw mapped raw-source core core-direct plugin lavf libwebm mkvparser)
NAMES=(hd1080.mkv opus11m.mka vorbis_laced.mkv long2h_cues.mkv long2h_nocues.mkv)

echo "bench: readAt and memcpy counts" >&2
mkdir -p "$OUT/copies"
for f in "${NAMES[@]}"; do
  for r in "${READERS[@]}"; do
    "$OUT/qmkv_bench_copies" --child "$r" "$FILES/$f" >"$OUT/copies/$r.$f.json" 2>/dev/null || true
  done
done

if [ "$CALLGRIND" != 0 ]; then
  echo "bench: callgrind (read and open phases; a few minutes)" >&2
  mkdir -p "$OUT/cg"
  for f in "${NAMES[@]}"; do
    for r in "${READERS[@]}"; do
      for phase in read open; do
        case "$r" in raw* | mapped) [ "$phase" = open ] && continue ;; esac
        LD_BIND_NOW=1 valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$OUT/cg/$r.$phase.$f.out" \
          "$OUT/qmkv_bench" --child "$r" "$FILES/$f" --phase "$phase" >/dev/null 2>&1 || true
      done
    done
    callgrind_annotate "$OUT/cg/core.read.$f.out" >"$OUT/cg/core.read.$f.txt" 2>/dev/null || true
    callgrind_annotate --inclusive=yes "$OUT/cg/core.read.$f.out" >"$OUT/cg/core.read.$f.incl.txt" 2>/dev/null || true
    callgrind_annotate --inclusive=yes "$OUT/cg/plugin.read.$f.out" >"$OUT/cg/plugin.read.$f.incl.txt" 2>/dev/null || true
  done
fi

# The open of the 2-hour file in a fresh process: where its new pages are
# first touched (page faults by function), for the core and libavformat.
echo "bench: perf profile of the open (page faults)" >&2
mkdir -p "$OUT/perf"
for r in core lavf; do
  LD_BIND_NOW=1 perf stat -x, -e page-faults,task-clock -o "$OUT/perf/open.$r.stat" \
    "$OUT/qmkv_bench" --child "$r" "$FILES/long2h_cues.mkv" --phase first >/dev/null 2>&1 || true
  LD_BIND_NOW=1 perf record -q -e page-faults -c 1 -g -o "$OUT/perf/open.$r.data" \
    "$OUT/qmkv_bench" --child "$r" "$FILES/long2h_cues.mkv" --phase first >/dev/null 2>&1 || true
  perf report -i "$OUT/perf/open.$r.data" --stdio --no-children --sort dso,symbol -g none \
    >"$OUT/perf/open.$r.txt" 2>/dev/null || true
done

python3 "$ROOT/bench/where.py" "$OUT" | tee "$OUT/where.md"
