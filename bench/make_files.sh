#!/usr/bin/env bash
# Generates the benchmark's Matroska files into OUTDIR (default
# build-bench/files). Idempotent: a file that already exists is kept; each is
# written under a temporary name and renamed when complete.
#
#   hd1080.mkv        25 s 1920x1080 30 fps H.264 at ~20 Mbit/s + AAC 192k
#                     (large frames; noise keeps the bit rate up)
#   opus11m.mka       11 min of Opus, 20 ms frames (many tiny frames)
#   vorbis_laced.mkv  5 min 640x360 H.264 + Vorbis, remuxed by mkvmerge, which
#                     laces the Vorbis packets (Xiph lacing)
#   long2h_cues.mkv   2 h 320x240 1 fps H.264 (every frame a key frame) + AAC
#                     24k mono, 1 s clusters, a cue for every frame of both
#                     tracks: a Cues element of several MB
#   long2h_nocues.mkv the same streams without Cues (mkvmerge --no-cues)
#   long2h_live.mkv   the same streams as GStreamer records live: no Duration,
#                     no Cues, Clusters of unknown size
set -euo pipefail

OUT=${1:-$(cd "$(dirname "$0")/.." && pwd)/build-bench/files}
mkdir -p "$OUT"
OUT=$(cd "$OUT" && pwd)
cd "$OUT"

FF=(ffmpeg -hide_banner -loglevel error -nostdin -y)
THREADS=${BENCH_THREADS:-2}

have() { [ -s "$1" ]; }

# hd1080.mkv ---------------------------------------------------------------
if ! have hd1080.mkv; then
  echo "make_files: hd1080.mkv" >&2
  "${FF[@]}" -f lavfi -i "testsrc2=size=1920x1080:rate=30,noise=alls=12:allf=t" \
    -f lavfi -i "sine=frequency=440:sample_rate=48000" -t 25 \
    -c:v libx264 -preset veryfast -b:v 20M -maxrate 24M -bufsize 40M -g 60 -pix_fmt yuv420p \
    -threads "$THREADS" -c:a aac -b:a 192k -ac 2 -f matroska hd1080.tmp.mkv
  mv hd1080.tmp.mkv hd1080.mkv
fi

# opus11m.mka --------------------------------------------------------------
if ! have opus11m.mka; then
  echo "make_files: opus11m.mka" >&2
  "${FF[@]}" -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=660" \
    -f lavfi -i "anoisesrc=color=pink:amplitude=0.05:sample_rate=48000:duration=660" \
    -filter_complex "[0:a][1:a]amix=inputs=2:duration=shortest,aformat=channel_layouts=stereo[a]" -map "[a]" \
    -c:a libopus -b:a 64k -frame_duration 20 -f matroska opus11m.tmp.mka
  mv opus11m.tmp.mka opus11m.mka
fi

# vorbis_laced.mkv ---------------------------------------------------------
if ! have vorbis_laced.mkv; then
  echo "make_files: vorbis_laced.mkv" >&2
  "${FF[@]}" -f lavfi -i "testsrc2=size=640x360:rate=25" \
    -f lavfi -i "sine=frequency=330:sample_rate=44100" -t 300 \
    -c:v libx264 -preset veryfast -b:v 1M -g 50 -pix_fmt yuv420p -threads "$THREADS" \
    -c:a libvorbis -q:a 3 -ac 2 -f matroska vorbis_src.tmp.mkv
  # mkvmerge laces audio by default (Xiph lacing for Vorbis).
  mkvmerge -q -o vorbis_laced.tmp.mkv vorbis_src.tmp.mkv
  rm -f vorbis_src.tmp.mkv
  mv vorbis_laced.tmp.mkv vorbis_laced.mkv
fi

# long2h_cues.mkv / long2h_nocues.mkv --------------------------------------
if ! have long2h_src.mkv && { ! have long2h_cues.mkv || ! have long2h_nocues.mkv; }; then
  echo "make_files: long2h source (2 h, 1 fps)" >&2
  "${FF[@]}" -f lavfi -i "testsrc2=size=320x240:rate=1" \
    -f lavfi -i "sine=frequency=500:sample_rate=22050" -t 7200 \
    -c:v libx264 -preset veryfast -b:v 40k -g 1 -pix_fmt yuv420p -threads "$THREADS" \
    -c:a aac -b:a 24k -ac 1 -f matroska long2h_src.tmp.mkv
  mv long2h_src.tmp.mkv long2h_src.mkv
fi
if ! have long2h_cues.mkv; then
  echo "make_files: long2h_cues.mkv" >&2
  mkvmerge -q -o long2h_cues.tmp.mkv --cluster-length 1000ms --cues 0:all --cues 1:all long2h_src.mkv
  mv long2h_cues.tmp.mkv long2h_cues.mkv
fi
if ! have long2h_nocues.mkv; then
  echo "make_files: long2h_nocues.mkv" >&2
  mkvmerge -q -o long2h_nocues.tmp.mkv --cluster-length 1000ms --no-cues long2h_src.mkv
  mv long2h_nocues.tmp.mkv long2h_nocues.mkv
fi
rm -f long2h_src.mkv

# long2h_live.mkv: the same streams as a live recording writes them
# (GStreamer's streamable mode): no Duration, no Cues, Segment and Clusters
# of unknown size.
if ! have long2h_live.mkv; then
  echo "make_files: long2h_live.mkv" >&2
  gst-launch-1.0 -q filesrc location=long2h_nocues.mkv ! matroskademux name=d \
    d.video_0 ! queue ! h264parse ! mux. d.audio_0 ! queue ! aacparse ! mux. \
    matroskamux name=mux streamable=true ! filesink location=long2h_live.tmp.mkv
  mv long2h_live.tmp.mkv long2h_live.mkv
fi

ls -l "$OUT"/*.mk[va] >&2
