#!/usr/bin/env python3
"""Seed inputs for the fuzz targets.

  make_seeds.py crafted OUTDIR
      Encodes a few tiny streams with ffmpeg, then lays their frames out in
      Matroska files that exercise what plain muxer output rarely has (every
      lacing kind, BlockGroups, unknown sizes, header stripping, colour and
      mastering metadata, old-style codec IDs, VFW/ACM private data, tags,
      several clusters with cues). Writes OUTDIR/mkv/*.mk[av] and the codec
      configurations and first frames of every track, plus hand-made AAC
      configurations, to OUTDIR/config/. Its output is committed as
      fuzz/seeds/; rerun it only to change the seeds.

  make_seeds.py extract OUTDIR FILE...
      Writes the codec configuration and first frame of every track of each
      Matroska FILE to OUTDIR (used by scripts/fuzz.sh on generated files).
"""
import os
import struct
import subprocess
import sys
import tempfile
import zlib

# --- writing ------------------------------------------------------------------


def enc_id(i):
    return i.to_bytes((i.bit_length() + 7) // 8, 'big')


def enc_size(v, width=None):
    n = 1
    while v >= (1 << (7 * n)) - 1:
        n += 1
    if width is not None:
        n = max(n, width)
    return (v | (1 << (7 * n))).to_bytes(n, 'big')


UNKNOWN = b'\x01\xff\xff\xff\xff\xff\xff\xff'


def el(eid, *parts, unknown=False):
    body = b''.join(parts)
    return enc_id(eid) + (UNKNOWN if unknown else enc_size(len(body))) + body


def u(eid, v):
    return el(eid, v.to_bytes(max(1, (v.bit_length() + 7) // 8), 'big'))


def f32(eid, v):
    return el(eid, struct.pack('>f', v))


def f64(eid, v):
    return el(eid, struct.pack('>d', v))


def s(eid, text):
    return el(eid, text.encode('utf-8'))


def b(eid, data):
    return el(eid, data)


EBML, DOCTYPE, SEGMENT = 0x1A45DFA3, 0x4282, 0x18538067
SEEKHEAD, SEEK, SEEKID, SEEKPOS = 0x114D9B74, 0x4DBB, 0x53AB, 0x53AC
INFO, TCSCALE, DURATION, TITLE, MUXAPP, WRITEAPP, DATEUTC = 0x1549A966, 0x2AD7B1, 0x4489, 0x7BA9, 0x4D80, 0x5741, 0x4461
TRACKS, TRACKENTRY, TRACKNUMBER, TRACKUID, TRACKTYPE = 0x1654AE6B, 0xAE, 0xD7, 0x73C5, 0x83
CODECID, CODECPRIVATE, CODECNAME, LANGUAGE, NAME = 0x86, 0x63A2, 0x258688, 0x22B59C, 0x536E
FLAGDEFAULT, FLAGLACING, DEFAULTDURATION, TRACKTCSCALE = 0x88, 0x9C, 0x23E383, 0x23314F
CODECDELAY, SEEKPREROLL = 0x56AA, 0x56BB
VIDEO, PIXW, PIXH, DISPW, DISPH, CROPB, CROPT = 0xE0, 0xB0, 0xBA, 0x54B0, 0x54BA, 0x54AA, 0x54BB
COLOUR, MATRIX, BITS, RANGE, TRANSFER, PRIMARIES, MAXCLL, MAXFALL = 0x55B0, 0x55B1, 0x55B2, 0x55B9, 0x55BA, 0x55BB, 0x55BC, 0x55BD
MASTERING = 0x55D0
AUDIO, RATE, OUTRATE, CHANNELS, BITDEPTH = 0xE1, 0xB5, 0x78B5, 0x9F, 0x6264
ENCODINGS, ENCODING, ENC_ORDER, ENC_SCOPE, ENC_TYPE = 0x6D80, 0x6240, 0x5031, 0x5032, 0x5033
COMPRESSION, COMPALGO, COMPSETTINGS, ENCRYPTION, ENCALGO = 0x5034, 0x4254, 0x4255, 0x5035, 0x47E1
CLUSTER, TIMECODE, PREVSIZE, SIMPLEBLOCK, BLOCKGROUP, BLOCK = 0x1F43B675, 0xE7, 0xAB, 0xA3, 0xA0, 0xA1
BLOCKDURATION, REFBLOCK = 0x9B, 0xFB
CUES, CUEPOINT, CUETIME, CUETRACKPOS, CUETRACK, CUECLUSTERPOS = 0x1C53BB6B, 0xBB, 0xB3, 0xB7, 0xF7, 0xF1
TAGS, TAG, TARGETS, TARGETTYPEVALUE, SIMPLETAG, TAGNAME, TAGSTRING = 0x1254C367, 0x7373, 0x63C0, 0x68CA, 0x67C8, 0x45A3, 0x4487
CHAPTERS, EDITION, CHAPATOM, CHAPUID, CHAPSTART, CHAPDISPLAY, CHAPSTRING = 0x1043A770, 0x45B9, 0xB6, 0x73C4, 0x91, 0x80, 0x85
ATTACHMENTS, ATTACHED, FILENAME, FILEMIME, FILEDATA, FILEUID = 0x1941A469, 0x61A7, 0x466E, 0x4660, 0x465C, 0x46AE
VOID, CRC32 = 0xEC, 0xBF


def ebml_header(doctype='matroska'):
    return el(EBML, u(0x4286, 1), u(0x42F7, 1), u(0x42F2, 4), u(0x42F3, 8), s(DOCTYPE, doctype),
              u(0x4287, 4), u(0x4285, 2))


def lace(kind, frames):
    """Lace bytes (count and sizes) followed by the frames; kind 1 Xiph, 2 fixed, 3 EBML."""
    out = bytes([len(frames) - 1])
    if kind == 1:
        for fr in frames[:-1]:
            out += b'\xff' * (len(fr) // 255) + bytes([len(fr) % 255])
    elif kind == 3:
        out += enc_size(len(frames[0]))
        for prev, cur in zip(frames, frames[1:-1]):
            d = len(cur) - len(prev)
            n = 1
            while not -((1 << (7 * n - 1)) - 1) <= d <= (1 << (7 * n - 1)) - 1:
                n += 1
            out += enc_size(d + (1 << (7 * n - 1)) - 1, n)
    return out + b''.join(frames)


def block_payload(track, rel, flags, frames, kind):
    head = enc_size(track) + struct.pack('>h', rel)
    if len(frames) == 1 or kind == 0:
        return head + bytes([flags]) + b''.join(frames[:1])
    return head + bytes([flags | (kind << 1)]) + lace(kind, frames)


class Frame:
    def __init__(self, track, time, key, data):
        self.track, self.time, self.key, self.data = track, time, key, data


class Track:
    def __init__(self, number, ttype, codec, private=None, extra=b''):
        self.number, self.type, self.codec, self.private, self.extra = number, ttype, codec, private, extra

    def entry(self, strip=None, zlib_comp=False, encrypted=False):
        parts = [u(TRACKNUMBER, self.number), u(TRACKUID, 1000 + self.number), u(TRACKTYPE, self.type),
                 s(CODECID, self.codec)]
        if self.private is not None:
            parts.append(b(CODECPRIVATE, self.private))
        parts.append(self.extra)
        enc = None
        if strip is not None:
            enc = el(COMPRESSION, u(COMPALGO, 3), b(COMPSETTINGS, strip))
        elif zlib_comp:
            enc = el(COMPRESSION, u(COMPALGO, 0))
        if enc is not None:
            parts.append(el(ENCODINGS, el(ENCODING, u(ENC_ORDER, 0), u(ENC_SCOPE, 1), u(ENC_TYPE, 0), enc)))
        if encrypted:
            parts.append(el(ENCODINGS, el(ENCODING, u(ENC_ORDER, 0), u(ENC_SCOPE, 1), u(ENC_TYPE, 1),
                                          el(ENCRYPTION, u(ENCALGO, 5)))))
        return el(TRACKENTRY, *parts)


def mkv(tracks, frames, *, doctype='matroska', laced=None, groups=(), unknown=False, cues='end',
        cluster_ms=200, strip=None, zlib_tracks=(), encrypted=(), tags=None, chapters=False,
        attachment=False, title='seed', durations=()):
    """A Matroska file of `frames` (times in ms). laced: {track: (kind, per_block)};
    groups: tracks written in BlockGroups; strip: {track: prefix}."""
    laced = laced or {}
    strip = strip or {}
    info = el(INFO, u(TCSCALE, 1000000), f64(DURATION, float(max(f.time for f in frames) + 40)),
              s(TITLE, title), s(MUXAPP, 'make_seeds'), s(WRITEAPP, 'make_seeds'), el(DATEUTC, bytes(8)))
    track_bytes = el(TRACKS, *[t.entry(strip.get(t.number), t.number in zlib_tracks, t.number in encrypted)
                               for t in tracks])
    # Clusters of cluster_ms each; laced tracks gather per_block frames per block.
    clusters = []
    by_cluster = {}
    for fr in sorted(frames, key=lambda x: (x.time, x.track)):
        by_cluster.setdefault(fr.time // cluster_ms, []).append(fr)
    for ci in sorted(by_cluster):
        base = ci * cluster_ms
        blocks = []
        pending = {}
        for fr in by_cluster[ci]:
            data = fr.data
            if fr.track in strip and data.startswith(strip[fr.track]):
                data = data[len(strip[fr.track]):]
            elif fr.track in zlib_tracks:
                data = zlib.compress(data)
            if fr.track in laced:
                kind, per = laced[fr.track]
                group = pending.setdefault(fr.track, [])
                group.append((fr, data))
                if len(group) < per:
                    continue
                del pending[fr.track]
                if kind == 2:  # fixed lacing needs equal sizes
                    size = min(len(d) for _, d in group)
                    group = [(g, d[:size]) for g, d in group]
                blocks.append((group[0][0], [d for _, d in group], kind))
            else:
                blocks.append((fr, [data], 0))
        for tr, group in pending.items():
            kind = laced[tr][0]
            if kind == 2:
                size = min(len(d) for _, d in group)
                group = [(g, d[:size]) for g, d in group]
            blocks.append((group[0][0], [d for _, d in group], kind))
        out = [u(TIMECODE, base)]
        if ci > 0:
            out.append(u(PREVSIZE, 0))
        for fr, datas, kind in blocks:
            rel = fr.time - base
            if fr.track in groups:
                parts = [b(BLOCK, block_payload(fr.track, rel, 0, datas, kind))]
                if fr.track in durations:
                    parts.append(u(BLOCKDURATION, 40 * len(datas)))
                if not fr.key:
                    parts.append(el(REFBLOCK, struct.pack('>b', -40)))
                out.append(el(BLOCKGROUP, *parts))
            else:
                out.append(b(SIMPLEBLOCK, block_payload(fr.track, rel, 0x80 if fr.key else 0, datas, kind)))
        clusters.append((base, el(CLUSTER, *out, unknown=unknown)))

    extra = []
    if tags:
        extra.append(el(TAGS, el(TAG, el(TARGETS, u(TARGETTYPEVALUE, 50)),
                                 *[el(SIMPLETAG, s(TAGNAME, k), s(TAGSTRING, v)) for k, v in tags])))
    if chapters:
        extra.append(el(CHAPTERS, el(EDITION, el(CHAPATOM, u(CHAPUID, 7), u(CHAPSTART, 0),
                                                 el(CHAPDISPLAY, s(CHAPSTRING, 'One'))))))
    if attachment:
        extra.append(el(ATTACHMENTS, el(ATTACHED, s(FILENAME, 'a.txt'), s(FILEMIME, 'text/plain'),
                                        b(FILEDATA, b'seed\n'), u(FILEUID, 9))))

    def layout(seekhead):
        body = seekhead + info + track_bytes + b''.join(extra)
        pos = {}
        off = len(body)
        if cues == 'front':
            off += len(cue_bytes)
        for base, cl in clusters:
            pos[base] = off
            off += len(cl)
        return body, pos, off

    def cue_el(positions):
        points = []
        for base, _ in clusters:
            for t in tracks:
                if t.type == 1 or len(tracks) == 1:
                    points.append(el(CUEPOINT, u(CUETIME, base),
                                     el(CUETRACKPOS, u(CUETRACK, t.number), u(CUECLUSTERPOS, positions[base]))))
        return el(CUES, *points)

    # Positions depend on the cues' and the seek head's own sizes: settle them.
    cue_bytes = b''
    seekhead = b''
    for _ in range(6):
        body, positions, end = layout(seekhead)
        new_cues = cue_el(positions) if cues else b''
        cues_pos = len(body) if cues == 'front' else end
        entries = [(INFO, len(seekhead)), (TRACKS, len(seekhead) + len(info))]
        if cues:
            entries.append((CUES, cues_pos))
        new_seekhead = el(SEEKHEAD, *[el(SEEK, b(SEEKID, enc_id(i)), u(SEEKPOS, p)) for i, p in entries])
        if new_cues == cue_bytes and new_seekhead == seekhead:
            break
        cue_bytes, seekhead = new_cues, new_seekhead
    body, positions, end = layout(seekhead)
    seg = body + (cue_bytes if cues == 'front' else b'') + b''.join(cl for _, cl in clusters)
    if cues == 'end':
        seg += cue_bytes
    return ebml_header(doctype) + el(SEGMENT, seg, unknown=unknown)


# --- reading ------------------------------------------------------------------


def rd_vint(data, p):
    first = data[p]
    n = 1
    while n <= 8 and not first & (0x80 >> (n - 1)):
        n += 1
    v = first & (0xFF >> n)
    for i in range(1, n):
        v = (v << 8) | data[p + i]
    return v, n, v == (1 << (7 * n)) - 1


MASTERS = {SEGMENT, TRACKS, TRACKENTRY, CLUSTER, BLOCKGROUP, VIDEO, AUDIO}


def walk(data, p, end, out, parent=None):
    while p < end:
        _, n, _ = rd_vint(data, p)
        eid = int.from_bytes(data[p:p + n], 'big')
        size, m, unk = rd_vint(data, p + n)
        start = p + n + m
        stop = end if unk else min(end, start + size)
        out.append((eid, start, stop, parent))
        if eid in MASTERS:
            walk(data, start, stop, out, (eid, start))
        p = stop


def unlace(pl):
    _, n, _ = rd_vint(pl, 0)
    track = rd_vint(pl, 0)[0]
    rel = struct.unpack('>h', pl[n:n + 2])[0]
    flags = pl[n + 2]
    p = n + 3
    kind = (flags >> 1) & 3
    if kind == 0:
        return track, rel, flags, [pl[p:]]
    count = pl[p] + 1
    p += 1
    sizes = []
    if kind == 1:
        for _ in range(count - 1):
            size = 0
            while True:
                size += pl[p]
                p += 1
                if pl[p - 1] != 255:
                    break
            sizes.append(size)
    elif kind == 3:
        size, m, _ = rd_vint(pl, p)
        p += m
        sizes.append(size)
        for _ in range(count - 2):
            raw, m, _ = rd_vint(pl, p)
            p += m
            size += raw - ((1 << (7 * m - 1)) - 1)
            sizes.append(size)
    else:
        sizes = [(len(pl) - p) // count] * (count - 1)
    frames = []
    for size in sizes:
        frames.append(pl[p:p + size])
        p += size
    frames.append(pl[p:])
    return track, rel, flags, frames


def read_mkv(path):
    data = open(path, 'rb').read()
    els = []
    walk(data, 0, len(data), els)
    tracks = {}
    cur = None
    for eid, start, stop, parent in els:
        val = data[start:stop]
        if eid == TRACKENTRY:
            cur = {'private': None, 'frames': []}
            tracks[start] = cur
        elif parent is not None and parent[0] in (TRACKENTRY,) and cur is not None:
            if eid == TRACKNUMBER:
                cur['number'] = int.from_bytes(val, 'big')
            elif eid == TRACKTYPE:
                cur['type'] = int.from_bytes(val, 'big')
            elif eid == CODECID:
                cur['codec'] = val.decode('ascii', 'replace')
            elif eid == CODECPRIVATE:
                cur['private'] = val
    by_number = {t['number']: t for t in tracks.values()}
    base = 0
    for eid, start, stop, parent in els:
        if eid == TIMECODE and parent is not None and parent[0] == CLUSTER:
            base = int.from_bytes(data[start:stop], 'big')
        elif eid in (SIMPLEBLOCK, BLOCK):
            track, rel, flags, frames = unlace(data[start:stop])
            key = bool(flags & 0x80) if eid == SIMPLEBLOCK else True
            for i, fr in enumerate(frames):
                if track in by_number:
                    by_number[track]['frames'].append(Frame(track, base + rel + i * 20, key, fr))
    return by_number


def extract(outdir, files):
    os.makedirs(outdir, exist_ok=True)
    for path in files:
        try:
            tracks = read_mkv(path)
        except Exception as e:  # a seed source we cannot read is only skipped
            print('make_seeds: skipping %s: %s' % (path, e), file=sys.stderr)
            continue
        stem = os.path.splitext(os.path.basename(path))[0]
        for num, t in tracks.items():
            name = '%s-t%d-%s' % (stem, num, t.get('codec', '?').replace('/', '_'))
            if t['private']:
                open(os.path.join(outdir, name + '.private'), 'wb').write(t['private'])
            if t['frames']:
                open(os.path.join(outdir, name + '.frame'), 'wb').write(t['frames'][0].data[:4096])


# --- crafted seeds --------------------------------------------------------------

FF = ['ffmpeg', '-hide_banner', '-nostdin', '-loglevel', 'error', '-y']


def encode(work, name, args):
    out = os.path.join(work, name)
    subprocess.run(FF + args + [out], check=True)
    return read_mkv(out)


def video_src(seconds=0.6, size='64x48'):
    return ['-f', 'lavfi', '-i', 'testsrc2=size=%s:rate=10:duration=%s' % (size, seconds)]


def audio_src(seconds=0.6, rate=48000, channels=2):
    expr = '|'.join(['0.4*sin(2*PI*440*t)'] * channels)
    return ['-f', 'lavfi', '-i', 'aevalsrc=exprs=%s:sample_rate=%d:duration=%s' % (expr, rate, seconds)]


def video_extra(w, h, colour=False):
    parts = [u(PIXW, w), u(PIXH, h), u(DISPW, w), u(DISPH, h)]
    if colour:
        chroma = [f32(0x55D1 + i, v) for i, v in enumerate([0.708, 0.292, 0.170, 0.797, 0.131, 0.046, 0.3127, 0.3290])]
        parts.append(el(COLOUR, u(MATRIX, 9), u(BITS, 10), u(RANGE, 1), u(TRANSFER, 16), u(PRIMARIES, 9),
                        u(MAXCLL, 1000), u(MAXFALL, 400),
                        el(MASTERING, *chroma, f32(0x55D9, 1000.0), f32(0x55DA, 0.005))))
    return el(VIDEO, *parts)


def audio_extra(rate, channels, depth=None, out_rate=None):
    parts = [f64(RATE, float(rate)), u(CHANNELS, channels)]
    if depth:
        parts.append(u(BITDEPTH, depth))
    if out_rate:
        parts.append(f64(OUTRATE, float(out_rate)))
    return el(AUDIO, *parts)


def frames_of(track, number, limit=None):
    out = [Frame(number, fr.time, fr.key, fr.data) for fr in track['frames']]
    return out[:limit] if limit else out


def bits(*fields):
    """Packs (value, width) fields most significant bit first, zero-padded."""
    acc, n = 0, 0
    for value, width in fields:
        acc = (acc << width) | (value & ((1 << width) - 1))
        n += width
    pad = -n % 8
    return (acc << pad).to_bytes((n + pad) // 8, 'big')


def crafted(outdir):
    mkv_dir = os.path.join(outdir, 'mkv')
    cfg_dir = os.path.join(outdir, 'config')
    os.makedirs(mkv_dir, exist_ok=True)
    os.makedirs(cfg_dir, exist_ok=True)

    def save(name, data):
        open(os.path.join(mkv_dir, name), 'wb').write(data)

    with tempfile.TemporaryDirectory() as work:
        g3 = ['-g', '3', '-bf', '0']
        avc = encode(work, 'avc.mkv', video_src() + audio_src(rate=44100) +
                     ['-c:v', 'libx264', '-preset', 'ultrafast', '-crf', '40', '-pix_fmt', 'yuv420p'] + g3 +
                     ['-c:a', 'aac', '-b:a', '24k'])
        hevc = encode(work, 'hevc.mkv', video_src() + audio_src() +
                      ['-c:v', 'libx265', '-preset', 'ultrafast', '-crf', '45', '-x265-params', 'log-level=error',
                       '-pix_fmt', 'yuv420p'] + g3 + ['-c:a', 'libopus', '-b:a', '16k'])
        mp4v = encode(work, 'mp4v.mkv', video_src() + audio_src(rate=44100) +
                      ['-c:v', 'mpeg4', '-q:v', '20'] + g3 + ['-c:a', 'libmp3lame', '-b:a', '32k'])
        vp9 = encode(work, 'vp9.mkv', video_src() + audio_src(rate=44100) +
                     ['-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8', '-b:v', '30k', '-g', '3',
                      '-c:a', 'libvorbis', '-q:a', '0'])
        vp8 = encode(work, 'vp8.mkv', video_src() + ['-c:v', 'libvpx', '-deadline', 'realtime', '-b:v', '30k', '-g', '3'])
        mpg2 = encode(work, 'mpg2.mkv', video_src() + audio_src() +
                      ['-c:v', 'mpeg2video', '-q:v', '20'] + g3 + ['-c:a', 'ac3', '-b:a', '64k'])
        h263 = encode(work, 'h263.mkv', video_src(size='128x96') + ['-c:v', 'h263', '-q:v', '20'] + g3)
        mp43 = encode(work, 'mp43.mkv', video_src() + ['-c:v', 'msmpeg4', '-q:v', '20'] + g3)
        av1 = encode(work, 'av1.mkv', video_src(0.3, '64x64') +
                     ['-c:v', 'libaom-av1', '-usage', 'realtime', '-cpu-used', '8', '-b:v', '20k', '-g', '3'])

        def first(tracks, ttype):
            return next(t for t in tracks.values() if t.get('type') == ttype)

        v, a = first(avc, 1), first(avc, 2)
        # H.264 in BlockGroups with durations and references, AAC in Xiph
        # lacing, colour and mastering metadata, cues before the clusters,
        # tags, chapters and an attachment.
        save('avc_aac_xiph_groups.mkv', mkv(
            [Track(1, 1, 'V_MPEG4/ISO/AVC', v['private'], video_extra(64, 48, colour=True) + u(FLAGDEFAULT, 1)),
             Track(2, 2, 'A_AAC', a['private'], audio_extra(44100, 2) + s(LANGUAGE, 'eng') + s(NAME, 'Sound'))],
            frames_of(v, 1) + frames_of(a, 2), laced={2: (1, 3)}, groups={1}, durations={1}, cues='front',
            tags=[('TITLE', 'Seed'), ('ARTIST', 'Fuzz'), ('ALBUM', 'Corpus'), ('GENRE', 'Test'),
                  ('DATE_RELEASED', '2024'), ('PART_NUMBER', '3'), ('TOTAL_PARTS', '9'), ('COMPOSER', 'C'),
                  ('ALBUM_ARTIST', 'AA')],
            chapters=True, attachment=True))
        # The same frames in a live-style file: unknown Segment and Cluster
        # sizes, no cues, old AAC codec ID without private data.
        save('avc_unknown_sizes.mkv', mkv(
            [Track(1, 1, 'V_MPEG4/ISO/AVC', v['private'], video_extra(64, 48)),
             Track(2, 2, 'A_AAC/MPEG4/LC/SBR', None, audio_extra(22050, 2, out_rate=44100))],
            frames_of(v, 1) + frames_of(a, 2), unknown=True, cues=None))
        # H.264 with header stripping of the 4-byte length prefix's top bytes.
        save('avc_header_strip.mkv', mkv(
            [Track(1, 1, 'V_MPEG4/ISO/AVC', v['private'], video_extra(64, 48))],
            frames_of(v, 1), strip={1: b'\x00\x00'}, cluster_ms=100))

        v, a = first(hevc, 1), first(hevc, 2)
        save('hevc_opus_ebml.mkv', mkv(
            [Track(1, 1, 'V_MPEGH/ISO/HEVC', v['private'], video_extra(64, 48)),
             Track(2, 2, 'A_OPUS', a['private'], audio_extra(48000, 2) + u(CODECDELAY, 6500000) +
                   u(SEEKPREROLL, 80000000))],
            frames_of(v, 1) + frames_of(a, 2), laced={2: (3, 4)}, cluster_ms=300))

        v, a = first(mp4v, 1), first(mp4v, 2)
        save('mp4v_mp3_fixed.mkv', mkv(
            [Track(1, 1, 'V_MPEG4/ISO/ASP', v['private'], video_extra(64, 48)),
             Track(2, 2, 'A_MPEG/L3', None, audio_extra(44100, 2))],
            frames_of(v, 1) + frames_of(a, 2), laced={2: (2, 3)}, strip={1: b'\x00\x00\x01'}))

        v, a = first(vp9, 1), first(vp9, 2)
        save('vp9_vorbis.mkv', mkv(
            [Track(1, 1, 'V_VP9', None, video_extra(64, 48) + u(DEFAULTDURATION, 100000000)),
             Track(2, 2, 'A_VORBIS', a['private'], audio_extra(44100, 2) + f32(TRACKTCSCALE, 1.0))],
            frames_of(v, 1) + frames_of(a, 2), laced={2: (1, 2)}, cluster_ms=100))
        save('vp9_vorbis.webm', mkv(
            [Track(1, 1, 'V_VP9', None, video_extra(64, 48)),
             Track(2, 2, 'A_VORBIS', a['private'], audio_extra(44100, 2))],
            frames_of(v, 1, 4) + frames_of(a, 2, 4), doctype='webm'))

        v = first(vp8, 1)
        save('vp8_zlib_subs.mkv', mkv(
            [Track(1, 1, 'V_VP8', None, video_extra(64, 48)),
             Track(3, 0x11, 'S_TEXT/UTF8', None, s(LANGUAGE, 'ger')),
             Track(4, 0x11, 'S_TEXT/ASS', b'[Script Info]\nScriptType: v4.00+\n', b'')],
            frames_of(v, 1) + [Frame(3, 100, True, b'Hello'), Frame(3, 400, True, b'<i>World</i>'),
                               Frame(4, 200, True, b'0,0,Default,,0,0,0,,Text')],
            groups={3, 4}, durations={3, 4}, zlib_tracks={3}))

        v, a = first(mpg2, 1), first(mpg2, 2)
        save('mpg2_ac3_pcm.mkv', mkv(
            [Track(1, 1, 'V_MPEG2', v['private'], video_extra(64, 48)),
             Track(2, 2, 'A_AC3', None, audio_extra(48000, 2)),
             Track(3, 2, 'A_PCM/INT/BIG', None, audio_extra(8000, 1, depth=16)),
             Track(4, 2, 'A_PCM/FLOAT/IEEE', None, audio_extra(8000, 1, depth=32)),
             Track(5, 2, 'A_EAC3', None, audio_extra(48000, 6)),
             Track(6, 2, 'A_DTS', None, audio_extra(48000, 2)),
             Track(7, 2, 'A_TRUEHD', None, audio_extra(48000, 2)),
             Track(8, 2, 'A_FLAC', b'fLaC\x80\x00\x00\x22' + bytes(34), audio_extra(48000, 2))],
            frames_of(v, 1) + frames_of(a, 2) +
            [Frame(3, t, True, bytes(range(160))) for t in range(0, 600, 20)] +
            [Frame(4, t, True, struct.pack('>40f', *([0.25] * 40))) for t in range(0, 600, 20)],
            groups={3}, laced={4: (2, 2)}))
        save('encrypted.mkv', mkv(
            [Track(1, 1, 'V_MPEG2', v['private'], video_extra(64, 48)),
             Track(2, 2, 'A_AC3', None, audio_extra(48000, 2))],
            frames_of(v, 1, 3) + frames_of(a, 2, 3), encrypted={2}))

        # VFW video and ACM audio: BITMAPINFOHEADER and WAVEFORMATEX private data.
        v = first(h263, 1)
        bih = struct.pack('<IiiHH4sIiiII', 40, 128, 96, 1, 24, b'H263', 0, 0, 0, 0, 0)
        wfx = struct.pack('<HHIIHHH', 1, 1, 8000, 16000, 2, 16, 0)
        save('vfw_h263_acm.mkv', mkv(
            [Track(1, 1, 'V_MS/VFW/FOURCC', bih, video_extra(128, 96)),
             Track(2, 2, 'A_MS/ACM', wfx, audio_extra(8000, 1, depth=16))],
            frames_of(v, 1) + [Frame(2, t, True, bytes(320)) for t in range(0, 600, 40)]))
        v = first(mp43, 1)
        save('mp43.mkv', mkv([Track(1, 1, 'V_MPEG4/MS/V3', None, video_extra(64, 48))], frames_of(v, 1)))
        bih43 = struct.pack('<IiiHH4sIiiII', 40, 64, 48, 1, 24, b'MP43', 0, 0, 0, 0, 0)
        save('vfw_mp43.mkv', mkv([Track(1, 1, 'V_MS/VFW/FOURCC', bih43, video_extra(64, 48))], frames_of(v, 1, 4)))

        v = first(av1, 1)
        save('av1.mkv', mkv([Track(1, 1, 'V_AV1', v['private'], video_extra(64, 64))], frames_of(v, 1)))

        # The smallest useful file: one track, one cluster, one frame.
        save('tiny.mkv', mkv([Track(1, 1, 'V_MPEG4/ISO/AVC', first(avc, 1)['private'], video_extra(64, 48))],
                             frames_of(first(avc, 1), 1, 1), cues=None))

        for src in ('avc', 'hevc', 'mp4v', 'vp9', 'vp8', 'mpg2', 'h263', 'mp43', 'av1'):
            extract(cfg_dir, [os.path.join(work, src + '.mkv')])

    # AAC configurations: LC, HE-AAC with explicit SBR, HE-AAC v2 (PS),
    # an escaped object type, 960-sample frames, ER AAC LD, and an ADTS header.
    aac = {
        'aac_lc_44k_stereo.asc': bits((2, 5), (4, 4), (2, 4), (0, 3)),
        'aac_he_explicit_sbr.asc': bits((2, 5), (7, 4), (2, 4), (0, 3), (0x2B7, 11), (5, 5), (1, 1), (4, 4)),
        'aac_hev2_ps.asc': bits((29, 5), (6, 4), (1, 4), (3, 4), (2, 5), (0, 3)),
        'aac_escape_object.asc': bits((31, 5), (7, 6), (3, 4), (2, 4), (0, 8), (0, 8)),
        'aac_960.asc': bits((2, 5), (3, 4), (2, 4), (1, 1), (0, 2)),
        'aac_ld.asc': bits((23, 5), (5, 4), (1, 4), (0, 3), (0, 16)),
        'aac_explicit_rate.asc': bits((2, 5), (15, 4), (48000, 24), (2, 4), (0, 3)),
        'aac_adts.adts': bytes([0xFF, 0xF1, 0x50, 0x80, 0x02, 0x1F, 0xFC]),
    }
    for name, data in aac.items():
        open(os.path.join(cfg_dir, name), 'wb').write(data)


def main():
    if len(sys.argv) >= 3 and sys.argv[1] == 'crafted':
        crafted(sys.argv[2])
    elif len(sys.argv) >= 3 and sys.argv[1] == 'extract':
        extract(sys.argv[2], sys.argv[3:])
    else:
        print(__doc__, file=sys.stderr)
        sys.exit(2)


if __name__ == '__main__':
    main()
