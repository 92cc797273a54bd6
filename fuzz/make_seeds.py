#!/usr/bin/env python3
"""Seed inputs for the codec configuration fuzz target.

  make_seeds.py extract OUTDIR FILE...
      The codec configuration and first unlaced frame of every track of each Matroska FILE, into OUTDIR.
"""
import os
import sys

SEGMENT, CLUSTER, TRACKENTRY, TRACKNUMBER, CODECID, CODECPRIVATE = 0x18538067, 0x1F43B675, 0xAE, 0xD7, 0x86, 0x63A2
SIMPLEBLOCK, BLOCK = 0xA3, 0xA1
MASTERS = {SEGMENT, CLUSTER, 0x1654AE6B, TRACKENTRY, 0xA0}


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
            name = os.path.join(outdir, '%s-t%d-%s' % (stem, num, t.get(CODECID, b'?').rstrip(b'\0').decode('ascii', 'replace')
                                                       .replace('/', '_')))
            for suffix, key in (('.private', CODECPRIVATE), ('.frame', 'frame')):
                if t.get(key):
                    open(name + suffix, 'wb').write(t[key][:4096])


if __name__ == '__main__':
    if len(sys.argv) >= 3 and sys.argv[1] == 'extract':
        extract(sys.argv[2], sys.argv[3:])
    else:
        sys.exit(__doc__)
