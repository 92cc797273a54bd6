#!/usr/bin/env bash
# Generates the real-media test corpus into OUTDIR with ffmpeg and mkvmerge,
# plus OUTDIR/manifest.txt (one line per file: name, then a description).
#
# Idempotent: a file that already exists is kept; each file is written under
# a temporary name and renamed, so an interrupted run never leaves a partial
# file that a later run would take for finished.
#
# Everything is small (160x120, a few seconds) because CI builds it on every
# run; only h264_aac_30s.mkv is long, to give seeking room, and h264_uhd.mkv
# large, a few frames of 3840x2160.
set -euo pipefail
set -f  # the filter expressions below hold glob characters

if [ $# -ne 1 ]; then
  echo "usage: $0 OUTDIR" >&2
  exit 2
fi
out=$1
mkdir -p "$out"
out=$(cd "$out" && pwd)

for tool in ffmpeg mkvmerge gst-launch-1.0 python3; do
  command -v "$tool" >/dev/null || { echo "make_corpus: $tool is missing" >&2; exit 1; }
done

work=$(mktemp -d "$out/.work.XXXXXX")
trap 'rm -rf "$work"' EXIT

manifest=()
FF=(ffmpeg -hide_banner -nostdin -loglevel error -y)
MM=(mkvmerge --quiet)

# Sources. Two tones of different pitch so that the channels of a stereo
# (or 5.1) stream can be told apart after any sample conversion.
video() {  # seconds [size]
  echo -f lavfi -i "testsrc2=size=${2:-160x120}:rate=25:duration=$1"
}
stereo() {  # seconds rate
  echo -f lavfi -i "aevalsrc=exprs=0.5*sin(2*PI*440*t)|0.25*sin(2*PI*660*t):sample_rate=$2:duration=$1"
}
mono() {  # seconds rate
  echo -f lavfi -i "aevalsrc=exprs=0.5*sin(2*PI*440*t):sample_rate=$2:duration=$1"
}
surround51() {  # seconds rate
  echo -f lavfi -i "aevalsrc=exprs=0.4*sin(2*PI*220*t)|0.4*sin(2*PI*330*t)|0.4*sin(2*PI*440*t)|0.3*sin(2*PI*110*t)|0.4*sin(2*PI*550*t)|0.4*sin(2*PI*660*t):channel_layout=5.1:sample_rate=$2:duration=$1"
}
X264=(-c:v libx264 -preset ultrafast -crf 30 -g 25 -pix_fmt yuv420p)
X264_BF=(-c:v libx264 -preset veryfast -crf 30 -g 25 -bf 2 -pix_fmt yuv420p)
AAC=(-c:a aac -b:a 64k)

# gen NAME "description" CMD... : runs CMD with the literal word OUT
# replaced by a temporary path next to the final one (same extension, so
# ffmpeg and mkvmerge pick the right muxer), then renames it into place.
gen() {
  local name=$1 desc=$2
  shift 2
  manifest+=("$name $desc")
  [ -e "$out/$name" ] && return 0
  local tmp="$out/.tmp-$name"
  local args=() a
  for a in "$@"; do
    [ "$a" = OUT ] && a=$tmp
    args+=("$a")
  done
  rm -f "$tmp"
  local rc=0
  "${args[@]}" || rc=$?
  # mkvmerge exits 1 after mere warnings, with a usable file.
  if [ $rc -eq 1 ] && [ "${args[0]}" = mkvmerge ] && [ -s "$tmp" ]; then rc=0; fi
  if [ $rc -ne 0 ] || [ ! -s "$tmp" ]; then
    echo "make_corpus: failed to generate $name" >&2
    rm -f "$tmp"
    exit 1
  fi
  mv -f "$tmp" "$out/$name"
}

# Intermediate inputs live in the work directory, made on first use.
intermediate() {  # NAME CMD... (OUT as in gen)
  local name=$1
  shift
  [ -e "$work/$name" ] && return 0
  local args=() a
  for a in "$@"; do
    [ "$a" = OUT ] && a="$work/$name"
    args+=("$a")
  done
  "${args[@]}"
}

# Two rewrites of a Matroska file, sharing one small EBML reader:
#
# strip_headers makes one track use header stripping (ContentCompression
# algorithm 3): the longest prefix shared by all the track's frames (capped)
# is cut from every frame, laced or not, and stored as ContentCompSettings.
# Sizes, SeekHead and Cues positions are recomputed, so the result is an
# ordinary, fully indexed file. CRC-32 elements are recomputed. mkvmerge 74
# only offers header stripping for MPEG-4 part 2, and its output there is
# corrupt (frames of zeros), so we do it ourselves.
#
# long_doctype writes the EBML header with every size in its 8-byte form and
# the DocType padded with zero bytes, both valid EBML that some writers
# produce; the Segment follows unchanged (its positions count from its own
# start).
ebml_rewrite() {  # strip_headers IN OUT TRACKNUMBER MAXBYTES | long_doctype IN OUT
  python3 - "$@" <<'PY'
import sys, zlib

mode, src, dst = sys.argv[1:4]
data = open(src, 'rb').read()

SEGMENT, SEEKHEAD, SEEK, SEEKPOS = 0x18538067, 0x114D9B74, 0x4DBB, 0x53AC
TRACKS, TRACKENTRY, TRACKNUMBER, CONTENTENCODINGS = 0x1654AE6B, 0xAE, 0xD7, 0x6D80
CLUSTER, SIMPLEBLOCK, BLOCKGROUP, BLOCK, CLUSTERPOS, PREVSIZE = 0x1F43B675, 0xA3, 0xA0, 0xA1, 0xA7, 0xAB
CUES, CUEPOINT, CUETRACKPOS, CUECLUSTERPOS, CUERELPOS, CRC32 = 0x1C53BB6B, 0xBB, 0xB7, 0xF1, 0xF0, 0xBF
MASTERS = {SEGMENT, SEEKHEAD, SEEK, TRACKS, TRACKENTRY, CLUSTER, BLOCKGROUP, CUES, CUEPOINT, CUETRACKPOS}

def rd_vint(b, p):
    n = next(n for n in range(1, 9) if b[p] & (0x80 >> (n - 1)))
    v = int.from_bytes(b[p:p + n], 'big') & ((1 << (7 * n)) - 1)
    return v, n, v == (1 << (7 * n)) - 1

def enc_size(v):
    n = next(n for n in range(1, 9) if v < (1 << (7 * n)) - 1)  # all ones would mean 'unknown'
    return (v | (1 << (7 * n))).to_bytes(n, 'big')

def enc_uint(v):
    return v.to_bytes(max(1, (v.bit_length() + 7) // 8), 'big')

class El:
    def __init__(self, eid, payload=None, kids=None):
        self.id, self.payload, self.kids = eid, payload, kids

def parse(b, p, end):
    els = []
    while p < end:
        n = rd_vint(b, p)[1]
        size, m, unknown = rd_vint(b, p + n)
        start = p + n + m
        stop = end if unknown else start + size
        eid = int.from_bytes(b[p:p + n], 'big')
        e = El(eid, kids=parse(b, start, stop)) if eid in MASTERS else El(eid, payload=bytes(b[start:stop]))
        e.off, e.data_off = p, start
        els.append(e)
        p = stop
    return els

def walk(els):
    for e in els:
        yield e
        yield from walk(e.kids or [])

def child(e, eid):
    return next((k for k in e.kids if k.id == eid), None)

def uint(e):
    return int.from_bytes(e.payload, 'big')

if mode == 'long_doctype':
    def size8(v):
        return (v | (1 << 56)).to_bytes(8, 'big')
    assert data[:4] == b'\x1a\x45\xdf\xa3'
    size, n, _ = rd_vint(data, 4)
    p, end, body = 4 + n, 4 + n + size, b''
    while p < end:
        idn = rd_vint(data, p)[1]
        ident = data[p:p + idn]
        length, ln, _ = rd_vint(data, p + idn)
        value = data[p + idn + ln:p + idn + ln + length]
        if ident == b'\x42\x82':
            value += b'\0' * 3
        body += ident + size8(len(value)) + value
        p += idn + ln + length
    open(dst, 'wb').write(data[:4] + size8(len(body)) + body + data[end:])
    sys.exit()

track, cap = int(sys.argv[4]), int(sys.argv[5])
top = parse(data, 0, len(data))
seg = next(e for e in top if e.id == SEGMENT)
by_off = {e.off: e for e in walk(top)}

# Frames of a block: unlaced, or fixed-size laced (frames of one size stay
# of one size when the same prefix goes from each).
def split_block(pl):
    n = rd_vint(pl, 0)[1]
    lacing = (pl[n + 2] >> 1) & 3
    if lacing not in (0, 2):
        raise SystemExit('Xiph and EBML lacing are not handled')
    head = n + 3 + (lacing == 2)
    count = pl[n + 3] + 1 if lacing else 1
    size = (len(pl) - head) // count
    return pl[:head], [pl[head + i * size:head + (i + 1) * size] for i in range(count)]

blocks = [e for e in walk(top) if e.id in (SIMPLEBLOCK, BLOCK) and rd_vint(e.payload, 0)[0] == track]
if not blocks:
    raise SystemExit('track %d has no blocks' % track)
frames = [f for e in blocks for f in split_block(e.payload)[1]]
prefix = frames[0][:cap]
for f in frames:
    while not f.startswith(prefix):
        prefix = prefix[:-1]
if not prefix:
    raise SystemExit('track %d: frames share no leading bytes' % track)
for e in blocks:
    head, fr = split_block(e.payload)
    e.payload = head + b''.join(f[len(prefix):] for f in fr)

entry = next(e for e in walk([seg]) if e.id == TRACKENTRY and uint(child(e, TRACKNUMBER)) == track)
if child(entry, CONTENTENCODINGS):
    raise SystemExit('track %d already has ContentEncodings' % track)
entry.kids.append(El(CONTENTENCODINGS, kids=[El(0x6240, kids=[
    El(0x5031, enc_uint(0)), El(0x5032, enc_uint(1)), El(0x5033, enc_uint(0)),
    El(0x5034, kids=[El(0x4254, enc_uint(3)), El(0x4255, prefix)])])]))

# Position fields point at elements by their old offsets; remember the
# targets, then lay the file out until the positions stop moving.
fixups = []  # (element holding the value, target, base element or None for the segment)
for e in walk([seg]):
    if e.id == SEEK:
        pos = child(e, SEEKPOS)
        fixups.append((pos, by_off[seg.data_off + uint(pos)], None))
    elif e.id == CUETRACKPOS:
        cpos, rpos = child(e, CUECLUSTERPOS), child(e, CUERELPOS)
        cluster = by_off[seg.data_off + uint(cpos)]
        fixups.append((cpos, cluster, None))
        if rpos is not None:
            fixups.append((rpos, by_off[cluster.data_off + uint(rpos)], cluster))
    elif e.id == CLUSTER and child(e, CLUSTERPOS) is not None:
        fixups.append((child(e, CLUSTERPOS), e, None))
    elif e.id == PREVSIZE:
        raise SystemExit('PrevSize is not handled')

def build(e):  # serialises e into e.blob, CRC-32 elements recomputed
    if e.kids is not None:
        for k in e.kids:
            build(k)
        if e.kids and e.kids[0].id == CRC32:
            e.kids[0].payload = zlib.crc32(b''.join(k.blob for k in e.kids[1:])).to_bytes(4, 'little')
            build(e.kids[0])
        e.payload = b''.join(k.blob for k in e.kids)
    head = e.id.to_bytes((e.id.bit_length() + 7) // 8, 'big') + enc_size(len(e.payload))
    e.hlen, e.blob = len(head), head + e.payload

def place(e, p):
    e.new_off, e.new_data_off = p, p + e.hlen
    q = e.new_data_off
    for k in e.kids or []:
        place(k, q)
        q += len(k.blob)

for _ in range(10):
    p = 0
    for e in top:
        build(e)
        place(e, p)
        p += len(e.blob)
    changed = False
    for holder, target, base in fixups:
        v = enc_uint(target.new_off - (seg if base is None else base).new_data_off)
        changed, holder.payload = changed or holder.payload != v, v
    if not changed:
        break
else:
    raise SystemExit('layout did not settle')
open(dst, 'wb').write(b''.join(e.blob for e in top))
PY
}

# --- video with audio -------------------------------------------------------

gen h264_aac.mkv "H.264 High 160x120 25 fps (B-frames) + AAC-LC stereo 48 kHz, 3 s, ffmpeg, cues after the clusters" \
  "${FF[@]}" $(video 3) $(stereo 3 48000) "${X264_BF[@]}" "${AAC[@]}" OUT
gen h264_aac_cues_front.mkv "H.264 + AAC-LC stereo 44.1 kHz, 3 s, ffmpeg -reserve_index_space: cues before the clusters" \
  "${FF[@]}" $(video 3) $(stereo 3 44100) "${X264[@]}" "${AAC[@]}" -reserve_index_space 1024 OUT
gen h264_aac_30s.mkv "H.264 (key frame every 1 s, B-frames) + AAC-LC stereo 48 kHz, 30 s, for seeking" \
  "${FF[@]}" $(video 30) $(stereo 30 48000) "${X264_BF[@]}" -c:a aac -b:a 32k OUT
gen hevc_aac.mkv "HEVC (libx265) 160x120 + AAC-LC stereo 48 kHz, 3 s" \
  "${FF[@]}" $(video 3) $(stereo 3 48000) -c:v libx265 -preset ultrafast -crf 32 -g 25 \
  -x265-params log-level=error -pix_fmt yuv420p "${AAC[@]}" OUT
gen h264_uhd.mkv "H.264 3840x2160 5 fps, 2 s, video only: beyond a small device's size limit" \
  "${FF[@]}" -f lavfi -i "testsrc2=size=3840x2160:rate=5:duration=2" "${X264[@]}" -crf 45 OUT
gen vp8_vorbis.mkv "VP8 160x120 + Vorbis stereo 44.1 kHz, 3 s" \
  "${FF[@]}" $(video 3) $(stereo 3 44100) -c:v libvpx -deadline realtime -cpu-used 8 -b:v 150k -g 25 \
  -c:a libvorbis -q:a 1 OUT
gen vp9_opus.webm "WebM (DocType webm): VP9 160x120 + Opus stereo, 3 s" \
  "${FF[@]}" $(video 3) $(stereo 3 48000) -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 150k -g 25 \
  -c:a libopus -b:a 48k OUT
gen av1_opus.mkv "AV1 (libaom) 160x120 + Opus stereo, 2 s" \
  "${FF[@]}" $(video 2) $(stereo 2 48000) -c:v libaom-av1 -usage realtime -cpu-used 8 -b:v 100k -g 25 \
  -c:a libopus -b:a 48k OUT
gen mpeg4_mp3.mkv "MPEG-4 part 2 (mpeg4, B-frames) 160x120 + MP3 stereo 44.1 kHz, 3 s" \
  "${FF[@]}" $(video 3) $(stereo 3 44100) -c:v mpeg4 -q:v 6 -bf 2 -g 25 -c:a libmp3lame -b:a 64k OUT
gen mpeg2_ac3.mkv "MPEG-2 video (B-frames) 160x120 + AC-3 stereo 48 kHz, 3 s" \
  "${FF[@]}" $(video 3) $(stereo 3 48000) -c:v mpeg2video -q:v 6 -bf 2 -g 12 -c:a ac3 -b:a 96k OUT

# --- audio only ---------------------------------------------------------------

gen eac3.mka "E-AC-3 5.1 48 kHz, 2 s" "${FF[@]}" $(surround51 2 48000) -c:a eac3 -b:a 192k OUT
gen flac.mka "FLAC stereo 44.1 kHz 16-bit, 2 s" "${FF[@]}" $(stereo 2 44100) -c:a flac -sample_fmt s16 OUT
gen vorbis.mka "Vorbis stereo 48 kHz, 2 s" "${FF[@]}" $(stereo 2 48000) -c:a libvorbis -q:a 2 OUT
gen opus.mka "Opus mono 48 kHz, 2 s" "${FF[@]}" $(mono 2 48000) -c:a libopus -b:a 32k OUT
gen mp3.mka "MP3 stereo 48 kHz 128 kbit/s, 2 s" "${FF[@]}" $(stereo 2 48000) -c:a libmp3lame -b:a 128k OUT
gen pcm_s16le.mka "PCM A_PCM/INT/LIT 16-bit stereo 44.1 kHz, 2 s" "${FF[@]}" $(stereo 2 44100) -c:a pcm_s16le OUT
gen pcm_s24le.mka "PCM A_PCM/INT/LIT 24-bit stereo 48 kHz, 2 s" "${FF[@]}" $(stereo 2 48000) -c:a pcm_s24le OUT
gen pcm_s32le.mka "PCM A_PCM/INT/LIT 32-bit stereo 32 kHz, 2 s" "${FF[@]}" $(stereo 2 32000) -c:a pcm_s32le OUT
gen pcm_u8.mka "PCM A_PCM/INT/LIT 8-bit unsigned mono 8 kHz, 2 s" "${FF[@]}" $(mono 2 8000) -c:a pcm_u8 OUT
gen pcm_s16be.mka "PCM A_PCM/INT/BIG 16-bit stereo 22.05 kHz, 2 s" "${FF[@]}" $(stereo 2 22050) -c:a pcm_s16be OUT
gen pcm_s24be.mka "PCM A_PCM/INT/BIG 24-bit mono 48 kHz, 2 s" "${FF[@]}" $(mono 2 48000) -c:a pcm_s24be OUT
gen pcm_s32be.mka "PCM A_PCM/INT/BIG 32-bit stereo 16 kHz, 2 s" "${FF[@]}" $(stereo 2 16000) -c:a pcm_s32be OUT
gen pcm_f32le.mka "PCM A_PCM/FLOAT/IEEE 32-bit stereo 44.1 kHz, 2 s" "${FF[@]}" $(stereo 2 44100) -c:a pcm_f32le OUT

# --- subtitles ------------------------------------------------------------------

cat >"$work/subs.srt" <<'EOF'
1
00:00:00,500 --> 00:00:01,200
First line

2
00:00:01,400 --> 00:00:02,100
Second line
<i>in italics</i>

3
00:00:02,300 --> 00:00:02,900
Third, with ümlauts
EOF
cat >"$work/subs.ass" <<'EOF'
[Script Info]
ScriptType: v4.00+
PlayResX: 160
PlayResY: 120

[V4+ Styles]
Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding
Style: Default,Arial,12,&H00FFFFFF,&H000000FF,&H00000000,&H00000000,0,0,0,0,100,100,0,0,1,1,0,2,4,4,4,1

[Events]
Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text
Dialogue: 0,0:00:00.50,0:00:01.20,Default,,0,0,0,,First event
Dialogue: 0,0:00:01.40,0:00:02.10,Default,,0,0,0,,{\i1}Second{\i0} event
Dialogue: 0,0:00:02.30,0:00:02.90,Default,,0,0,0,,Third event
EOF

gen h264_srt.mkv "H.264 + SRT subtitles (S_TEXT/UTF8, 3 cues), 3 s" \
  "${FF[@]}" $(video 3) -i "$work/subs.srt" "${X264[@]}" -c:s srt -metadata:s:s:0 language=eng OUT
gen h264_ass.mkv "H.264 + ASS subtitles (S_TEXT/ASS, 3 events), 3 s" \
  "${FF[@]}" $(video 3) -i "$work/subs.ass" "${X264[@]}" -c:s ass OUT

# --- metadata -------------------------------------------------------------------

gen tags_ffmpeg.mkv "H.264 + AAC, 2 s, ffmpeg -metadata: title, artist, album, date, comment; track names and languages" \
  "${FF[@]}" $(video 2) $(stereo 2 48000) "${X264[@]}" "${AAC[@]}" \
  -metadata title="Corpus Title" -metadata artist="Corpus Artist" -metadata album="Corpus Album" \
  -metadata date=2024 -metadata comment="made by make_corpus.sh" \
  -metadata:s:v:0 title="Main video" -metadata:s:a:0 title="Main audio" -metadata:s:a:0 language=fre OUT

cat >"$work/tags.xml" <<'EOF'
<?xml version="1.0" encoding="UTF-8"?>
<Tags>
  <Tag>
    <Targets><TargetTypeValue>50</TargetTypeValue></Targets>
    <Simple><Name>ARTIST</Name><String>Tag Artist</String></Simple>
    <Simple><Name>DATE_RELEASED</Name><String>2023</String></Simple>
    <Simple><Name>GENRE</Name><String>Test</String></Simple>
  </Tag>
</Tags>
EOF
cat >"$work/chapters.txt" <<'EOF'
CHAPTER01=00:00:00.000
CHAPTER01NAME=Opening
CHAPTER02=00:00:01.000
CHAPTER02NAME=Middle
EOF
echo "attachment of the qmkv test corpus" >"$work/notes.txt"

# --- mkvmerge remuxes -------------------------------------------------------------

intermediate h264_mp3.mkv "${FF[@]}" $(video 3) $(stereo 3 48000) "${X264[@]}" -c:a libmp3lame -b:a 96k OUT

gen mkvmerge_meta.mkv "mkvmerge: H.264 + AAC with --title, --global-tags (ARTIST, DATE_RELEASED, GENRE; the source's global tags dropped), 2 chapters, a text attachment, track names and languages" \
  "${MM[@]}" -o OUT --title "Segment Title" --global-tags "$work/tags.xml" --chapters "$work/chapters.txt" \
  --attachment-mime-type text/plain --attach-file "$work/notes.txt" \
  --language 0:eng --track-name 0:Picture --language 1:ger --track-name 1:Sound --no-global-tags "$out/tags_ffmpeg.mkv"
gen mkvmerge_h264_aac.mkv "mkvmerge remux of h264_aac.mkv: AAC laced (Xiph lacing, as mkvmerge picks the smallest)" \
  "${MM[@]}" -o OUT "$out/h264_aac.mkv"
gen mkvmerge_h264_mp3.mkv "mkvmerge: H.264 + MP3 stereo 48 kHz, MP3 laced (fixed-size lacing)" \
  "${MM[@]}" -o OUT "$work/h264_mp3.mkv"
gen mkvmerge_nocues.mkv "mkvmerge --no-cues: H.264 + AAC without an index, a Cluster every 100 ms" \
  "${MM[@]}" -o OUT --no-cues --cluster-length 100ms "$out/h264_aac_cues_front.mkv"
gen mkvmerge_blockgroups.mkv "mkvmerge --engage no_simpleblocks: H.264 + AAC in BlockGroups with ReferenceBlock" \
  "${MM[@]}" -o OUT --engage no_simpleblocks "$out/h264_aac.mkv"
gen laced_vorbis.mka "mkvmerge remux of vorbis.mka: Vorbis laced (EBML and Xiph lacing mixed)" \
  "${MM[@]}" -o OUT "$out/vorbis.mka"
gen laced_ebml_opus.mka "mkvmerge --engage lacing_ebml: Opus mono laced with EBML lacing" \
  "${MM[@]}" -o OUT --engage lacing_ebml "$out/opus.mka"
gen laced_xiph_ac3.mka "mkvmerge --engage lacing_xiph: AC-3 stereo laced with Xiph lacing" \
  "${MM[@]}" -o OUT --engage lacing_xiph -D -S "$out/mpeg2_ac3.mkv"
gen zlib_aac_srt.mkv "mkvmerge --compression zlib on the AAC (track 2) and SRT (track 3) tracks, H.264 + AAC + SRT" \
  "${MM[@]}" -o OUT --compression 1:zlib "$out/h264_aac.mkv" -A -D --compression 1:zlib "$out/h264_srt.mkv"
gen hdrstrip_mpeg4.mkv "header stripping (00 00 01) on the MPEG-4 part 2 track 1 of mpeg4_mp3.mkv (ffmpeg-made, with CRC-32 elements)" \
  ebml_rewrite strip_headers "$out/mpeg4_mp3.mkv" OUT 1 3
gen hdrstrip_h264.mkv "header stripping (ContentCompAlgo 3) on the H.264 track 1 of mkvmerge_h264_aac.mkv; frames otherwise identical" \
  ebml_rewrite strip_headers "$out/mkvmerge_h264_aac.mkv" OUT 1 2
gen hdrstrip_mp3.mkv "header stripping (ContentCompAlgo 3) on the laced MP3 track 2 of mkvmerge_h264_mp3.mkv; frames otherwise identical" \
  ebml_rewrite strip_headers "$out/mkvmerge_h264_mp3.mkv" OUT 2 3
gen long_doctype.mkv "h264_aac.mkv with its EBML header's sizes in 8-byte form and the DocType padded with zero bytes" \
  ebml_rewrite long_doctype "$out/h264_aac.mkv" OUT

intermediate mono.wav "${FF[@]}" $(mono 2 44100) -c:a pcm_s16le OUT
intermediate mono_eac3.mka "${FF[@]}" $(mono 2 48000) -c:a eac3 -b:a 96k OUT
gen mkvmerge_mono.mka "mkvmerge: mono Opus, PCM and E-AC-3, whose Channels elements mkvmerge leaves out (default 1)" \
  "${MM[@]}" -o OUT "$out/opus.mka" "$work/mono.wav" "$work/mono_eac3.mka"

# --- GStreamer's matroskamux ------------------------------------------------------
# It writes the DocType "matroska" padded with a zero byte, and its own
# choice of elements, block kinds and cluster layout.
gst_mux() {  # OUT PIPELINE... (the pipeline feeds the element named mux; $mux_props are its properties)
  local dst=$1
  shift
  gst-launch-1.0 -q "$@" matroskamux name=mux ${mux_props:-} ! filesink location="$dst" >/dev/null
}
GV=(videotestsrc num-buffers=75 ! video/x-raw,width=160,height=120,framerate=25/1)
GA=(audiotestsrc num-buffers=100 wave=sine ! audio/x-raw,rate=48000,channels=2 ! audioconvert)

gen gst_h264_aac.mkv "GStreamer: H.264 (x264enc) + AAC (avenc_aac) stereo 48 kHz, 3 s" \
  gst_mux OUT "${GV[@]}" ! x264enc speed-preset=ultrafast bitrate=200 key-int-max=25 ! h264parse ! mux. \
  "${GA[@]}" ! avenc_aac ! aacparse ! mux.
gen gst_hevc_mp3.mkv "GStreamer: HEVC (x265enc) + MP3 (lamemp3enc) stereo 48 kHz, 3 s" \
  gst_mux OUT "${GV[@]}" ! x265enc speed-preset=ultrafast bitrate=200 key-int-max=25 ! h265parse ! mux. \
  "${GA[@]}" ! lamemp3enc ! mpegaudioparse ! mux.
gen gst_vp8_vorbis.mkv "GStreamer: VP8 (vp8enc) + Vorbis stereo 48 kHz, 3 s" \
  gst_mux OUT "${GV[@]}" ! vp8enc deadline=1 keyframe-max-dist=25 ! mux. "${GA[@]}" ! vorbisenc ! mux.
gen gst_vp9_opus.mkv "GStreamer: VP9 (vp9enc) + Opus stereo 48 kHz, 3 s" \
  gst_mux OUT "${GV[@]}" ! vp9enc deadline=1 keyframe-max-dist=25 ! mux. "${GA[@]}" ! opusenc ! mux.
gen gst_theora_flac.mkv "GStreamer: Theora (outside the video whitelist) + FLAC stereo 48 kHz, 3 s" \
  gst_mux OUT "${GV[@]}" ! theoraenc keyframe-force=25 ! mux. "${GA[@]}" ! flacenc ! flacparse ! mux.
gen gst_ac3.mka "GStreamer: AC-3 (avenc_ac3) stereo 48 kHz, 2 s" \
  gst_mux OUT "${GA[@]}" ! avenc_ac3 ! ac3parse ! mux.
gen gst_pcm.mka "GStreamer: PCM 16-bit little-endian stereo 48 kHz, 2 s" \
  gst_mux OUT "${GA[@]}" ! audio/x-raw,format=S16LE ! mux.

# --- recordings, written as they go ------------------------------------------------
# No Duration and no Cues, as browsers' and screen recorders, live muxers and
# pipes write them; GStreamer's streamable mode also leaves the Segment's and
# every Cluster's size unknown. Each has a remux by mkvmerge, with Cues and
# sizes, to compare seeks with.
gst_live() { mux_props=streamable=true gst_mux "$@"; }
LV=(videotestsrc num-buffers=150 ! video/x-raw,width=160,height=120,framerate=25/1)
LA=(audiotestsrc num-buffers=300 samplesperbuffer=960 wave=sine ! audio/x-raw,rate=48000,channels=2 ! audioconvert)
gen live_gst_h264_aac.mkv "GStreamer streamable=true: H.264 + AAC, 6 s; Segment and Clusters of unknown size, no Duration, no Cues" \
  gst_live OUT "${LV[@]}" ! x264enc speed-preset=ultrafast bitrate=200 key-int-max=25 ! h264parse ! mux. \
  "${LA[@]}" ! avenc_aac ! aacparse ! mux.
gen live_gst_vp8_opus.mkv "GStreamer streamable=true: VP8 + Opus, 6 s, as a browser records; unknown sizes, no Duration, no Cues" \
  gst_live OUT "${LV[@]}" ! vp8enc deadline=1 keyframe-max-dist=25 ! mux. "${LA[@]}" ! opusenc ! mux.
gen live_ff_h264_aac.mkv "ffmpeg -live 1: H.264 + AAC, 6 s; Segment of unknown size, Clusters with CRC-32, no Duration, no Cues" \
  "${FF[@]}" $(video 6) $(stereo 6 48000) "${X264[@]}" "${AAC[@]}" -live 1 OUT
gen live_pipe_vp9_opus.mkv "ffmpeg writing Matroska to a pipe: VP9 + Opus, 6 s; no Duration, no Cues" \
  sh -c 'exec "$@" -f matroska - >"$0"' OUT "${FF[@]}" $(video 6) $(stereo 6 48000) \
  -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 100k -g 25 -c:a libopus -b:a 32k
for live in live_gst_h264_aac live_gst_vp8_opus live_ff_h264_aac live_pipe_vp9_opus; do
  gen "${live}_cues.mkv" "mkvmerge remux of $live.mkv: the same streams with Duration, Cues and sized Clusters" \
    "${MM[@]}" -o OUT "$out/$live.mkv"
done

# --- what the plug-in describes ---------------------------------------------------
gen colour_hdr.mkv "mkvmerge: H.264 + AAC with Colour (BT.2020, PQ, limited range), MaxCLL/MaxFALL and MasteringMetadata" \
  "${MM[@]}" -o OUT --colour-matrix-coefficients 0:9 --colour-transfer-characteristics 0:16 \
  --colour-primaries 0:9 --colour-range 0:1 --max-content-light 0:1000 --max-frame-light 0:400 \
  --max-luminance 0:1000 --min-luminance 0:0.005 \
  --chromaticity-coordinates 0:0.708,0.292,0.170,0.797,0.131,0.046 --white-colour-coordinates 0:0.3127,0.329 \
  "$out/h264_aac.mkv"
gen theora_alac.mkv "Theora 160x120 + ALAC stereo, 2 s: codecs outside the plug-in's whitelists" \
  "${FF[@]}" $(video 2) $(stereo 2 44100) -c:v libtheora -q:v 5 -c:a alac OUT

# The manifest is rewritten every run (atomically) so it always lists
# exactly what this script makes.
printf '%s\n' "${manifest[@]}" >"$out/.tmp-manifest.txt"
mv -f "$out/.tmp-manifest.txt" "$out/manifest.txt"
