#!/usr/bin/env python3
"""Seed inputs for the fuzz targets (scripts/fuzz.sh adds tiny real files of its own).

  make_seeds.py crafted OUTDIR [CORPUS]
      OUTDIR/mkv/: the first 16 KiB of test-corpus files (CORPUS, else made by tests/corpus/make_corpus.sh) with what
      the real files lack, two of them altered in place, and tiny ffmpeg files of codec IDs the corpus lacks;
      OUTDIR/config/: their codec configurations and first frames. scripts/fuzz.sh makes them once per build dir.
  make_seeds.py extract OUTDIR FILE...
      The codec configuration and first unlaced frame of every track of each Matroska FILE, into OUTDIR.
"""
import os
import subprocess
import sys
import tempfile

SEGMENT, CLUSTER, TRACKENTRY, TRACKNUMBER, CODECID, CODECPRIVATE = 0x18538067, 0x1F43B675, 0xAE, 0xD7, 0x86, 0x63A2
SIMPLEBLOCK, BLOCK, ENCTYPE, COMPRESSION, COMPALGO, COMPSETTINGS = 0xA3, 0xA1, 0x5033, 0x5034, 0x4254, 0x4255
MASTERS = {SEGMENT, CLUSTER, 0x1654AE6B, TRACKENTRY, 0xA0, 0x6D80, 0x6240, COMPRESSION}
CUT = 16384
# Corpus files with what the generated real files lack: header stripping,
# EBML and fixed lacing, colour and mastering, tags, chapters and an
# attachment, ASS, big-endian and float PCM.
CORPUS = ['hdrstrip_h264.mkv', 'hdrstrip_mpeg4.mkv', 'hdrstrip_mp3.mkv', 'laced_ebml_opus.mka', 'laced_vorbis.mka',
          'mkvmerge_h264_mp3.mkv', 'colour_hdr.mkv', 'mkvmerge_meta.mkv', 'h264_ass.mkv', 'pcm_s16be.mka',
          'pcm_f32le.mka', 'theora_alac.mkv']


def vint(data, p):
    n = 1
    while n < 8 and not data[p] & (0x80 >> (n - 1)):
        n += 1
    v = data[p] & (0xFF >> n)
    for i in range(1, n):
        v = (v << 8) | data[p + i]
    return v, n, v == (1 << (7 * n)) - 1


def walk(data, p=0, end=None, out=None):
    """(id, size field offset, size field length, data start, data end) of every element, in file order."""
    out = [] if out is None else out
    end = len(data) if end is None else end
    while p < end:
        try:
            _, n, _ = vint(data, p)
            size, m, unknown = vint(data, p + n)
        except IndexError:  # cut off inside a header
            break
        start = p + n + m
        stop = end if unknown else min(end, start + size)
        out.append((int.from_bytes(data[p:p + n], 'big'), p + n, m, start, stop))
        if out[-1][0] in MASTERS:
            walk(data, start, stop, out)
        p = stop
    return out


def extract(outdir, files):
    os.makedirs(outdir, exist_ok=True)
    for path in files:
        data = open(path, 'rb').read()
        stem, tracks, track = os.path.splitext(os.path.basename(path))[0], {}, {}
        for eid, _, _, start, stop in walk(data):
            val = data[start:stop]
            if eid == TRACKENTRY:
                track = {}
            elif eid == TRACKNUMBER:
                tracks[int.from_bytes(val, 'big')] = track
            elif eid in (CODECID, CODECPRIVATE):
                track[eid] = val
            elif eid in (SIMPLEBLOCK, BLOCK) and len(val) > 4:
                num, n, _ = vint(val, 0)
                if not val[n + 2] & 6:  # laced blocks are left out
                    tracks.get(num, {}).setdefault('frame', val[n + 3:])
        for num, t in tracks.items():
            name = os.path.join(outdir, '%s-t%d-%s' % (stem, num, t.get(CODECID, b'?').decode('ascii', 'replace')
                                                       .replace('/', '_')))
            for suffix, key in (('.private', CODECPRIVATE), ('.frame', 'frame')):
                if t.get(key):
                    open(name + suffix, 'wb').write(t[key][:4096])


def unknown_sizes(data):
    out = bytearray(data)
    for eid, at, m, _, _ in walk(data):
        if eid in (SEGMENT, CLUSTER):
            out[at:at + m] = bytes([0xFF >> (m - 1)]) + b'\xff' * (m - 1)
    return bytes(out)


def encrypted(data):
    """Header removal turned into AES encryption with the stripped bytes for a key ID: only IDs and values change."""
    out = bytearray(data)
    for eid, at, _, _, stop in walk(data):
        if eid == ENCTYPE:
            out[stop - 1] = 1
        elif eid == COMPRESSION:
            out[at - 1] = 0x35
        elif eid == COMPALGO:
            out[at - 2:at], out[stop - 1] = b'\x47\xe1', 5
        elif eid == COMPSETTINGS:
            out[at - 2:at] = b'\x47\xe2'
    return bytes(out)


def crafted(outdir, corpus=None):
    mkv_dir, cfg_dir = os.path.join(outdir, 'mkv'), os.path.join(outdir, 'config')
    os.makedirs(mkv_dir, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        if corpus is None:
            corpus = os.path.join(work, 'corpus')
            root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
            subprocess.run([os.path.join(root, 'tests', 'corpus', 'make_corpus.sh'), corpus], check=True)
        seeds = {name: open(os.path.join(corpus, name), 'rb').read()[:CUT] for name in CORPUS}
        seeds['unknown_sizes.mkv'] = unknown_sizes(seeds.pop('h264_ass.mkv'))
        seeds['encrypted.mkv'] = encrypted(seeds['hdrstrip_h264.mkv'])
        for name, data in seeds.items():
            open(os.path.join(mkv_dir, name), 'wb').write(data)
        # VFW video with ACM audio, MS MPEG-4 v3, DTS and TrueHD.
        ff = ['ffmpeg', '-hide_banner', '-nostdin', '-loglevel', 'error', '-y', '-f', 'lavfi', '-i']
        video, audio = 'testsrc2=size=128x96:rate=10:duration=0.4', 'sine=duration=0.2:sample_rate=48000'
        for name, args in (('vfw_h263_acm.mkv', [video, '-f', 'lavfi', '-i', audio, '-c:v', 'h263', '-q:v', '20',
                                                 '-g', '3', '-c:a', 'pcm_alaw', '-ar', '8000']),
                           ('mp43.mkv', [video, '-c:v', 'msmpeg4', '-q:v', '20', '-g', '3']),
                           ('dts.mka', [audio, '-strict', '-2', '-c:a', 'dca', '-ac', '2', '-t', '0.06']),
                           ('truehd.mka', [audio, '-strict', '-2', '-c:a', 'truehd'])):
            subprocess.run(ff + args + [os.path.join(mkv_dir, name)], check=True)
    extract(cfg_dir, [os.path.join(mkv_dir, name) for name in sorted(os.listdir(mkv_dir))])


if __name__ == '__main__':
    if len(sys.argv) in (3, 4) and sys.argv[1] == 'crafted':
        crafted(*sys.argv[2:])
    elif len(sys.argv) >= 3 and sys.argv[1] == 'extract':
        extract(sys.argv[2], sys.argv[3:])
    else:
        sys.exit(__doc__)
