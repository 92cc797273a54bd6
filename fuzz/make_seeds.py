#!/usr/bin/env python3
"""Seed inputs for the fuzz targets.

  make_seeds.py extract OUTDIR FILE...
      The codec configuration and first unlaced frame of every track of each Matroska FILE, into OUTDIR.
  make_seeds.py cut OUTDIR MAXBYTES FILE...
      Each Matroska FILE cut to its first Clusters and their first blocks, at most MAXBYTES long, into OUTDIR:
      headers, Cues, Tags and the rest stay, sizes and positions are fixed up, so that a small seed keeps
      the structure of its file.
"""
import os
import sys

SEGMENT, CLUSTER, TRACKENTRY, TRACKNUMBER, CODECID, CODECPRIVATE = 0x18538067, 0x1F43B675, 0xAE, 0xD7, 0x86, 0x63A2
SIMPLEBLOCK, BLOCK, BLOCKGROUP, VOID = 0xA3, 0xA1, 0xA0, 0xEC
SEEKHEAD, SEEK, SEEKPOSITION = 0x114D9B74, 0x4DBB, 0x53AC
CUES, CUEPOINT, CUETRACKPOSITIONS, CUECLUSTERPOSITION = 0x1C53BB6B, 0xBB, 0xB7, 0xF1
MASTERS = {SEGMENT, CLUSTER, 0x1654AE6B, TRACKENTRY, BLOCKGROUP, SEEKHEAD, SEEK, CUES, CUEPOINT, CUETRACKPOSITIONS}
TOP_LEVEL = {SEEKHEAD, 0x1549A966, 0x1654AE6B, CLUSTER, CUES, 0x1941A469, 0x1043A770, 0x1254C367}


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


def children(data, p, end, stop_at_top=False):
    """[id, header bytes, data bytes, unknown] of the elements in [p, end); an unknown-size element
    ends where the next of the Segment's children starts."""
    out = []
    while p < end:
        try:
            n = vint(data, p)[1]
            size, m, unknown = vint(data, p + n)
        except IndexError:
            break
        eid = int.from_bytes(data[p:p + n], 'big')
        if stop_at_top and eid in TOP_LEVEL:
            break
        start = p + n + m
        stop = min(end, start + size) if not unknown else end
        if unknown and eid != SEGMENT:  # runs to the next top-level element
            stop = start
            for c in children(data, start, end, True):
                stop += len(c[1]) + len(c[2])
        out.append([eid, data[p:start], data[start:stop], unknown])
        p = stop
    return out


def header(head, body):
    """`head` (ID and size field) with the size rewritten for `body` in the same length; unknown stays unknown."""
    n = vint(head, 0)[1]
    m = len(head) - n
    if vint(head, n)[2]:
        return head
    field = bytearray(len(body).to_bytes(m, 'big'))
    field[0] |= 0x80 >> (m - 1)
    return head[:n] + bytes(field)


def serialise(elements):
    return b''.join(header(h, body) + body for _, h, body, _ in elements)


def uints(data, eid_wanted):
    """(start, stop) of every `eid_wanted` value under the masters in `data`."""
    return [(start, stop) for eid, _, _, start, stop in walk(data) if eid == eid_wanted and 0 < stop - start <= 8]


def remap(data, eid_wanted, mapping):
    """Every `eid_wanted` value in `data` mapped through `mapping`, in the same length."""
    out = bytearray(data)
    for start, stop in uints(data, eid_wanted):
        old = int.from_bytes(data[start:stop], 'big')
        if old in mapping:
            out[start:stop] = mapping[old].to_bytes(stop - start, 'big')
    return bytes(out)


def shortened(level1, clusters, blocks):
    """The Segment's children with only the first `clusters` Clusters and their first `blocks` blocks, and
    short Void elements; the Cue points and seek entries follow."""
    kept, moved, old_pos, new_pos, n = [], {}, 0, 0, 0
    for eid, head, body, unknown in level1:
        old_size = len(head) + len(body)
        if eid == CLUSTER:
            n += 1
            if n > clusters:
                old_pos += old_size
                continue
            parts, taken = [], 0
            for c in children(body, 0, len(body)):
                taken += c[0] in (SIMPLEBLOCK, BLOCKGROUP)
                if c[0] not in (SIMPLEBLOCK, BLOCKGROUP) or taken <= blocks:
                    parts.append(c)
            body = serialise(parts)
        elif eid == VOID:  # room kept for a later rewrite: a little shows the structure
            body = body[:8]
        moved[old_pos] = new_pos
        kept.append([eid, head, body, unknown])
        old_pos += old_size
        new_pos += len(header(head, body)) + len(body)
    for e in kept:
        if e[0] == CUES:
            points = [c for c in children(e[2], 0, len(e[2]))
                      if all(int.from_bytes(c[2][a:b], 'big') in moved for a, b in uints(c[2], CUECLUSTERPOSITION))]
            e[2] = remap(serialise(points), CUECLUSTERPOSITION, moved)
        elif e[0] == SEEKHEAD:
            e[2] = remap(e[2], SEEKPOSITION, moved)
    return kept


def cut(outdir, max_bytes, files):
    os.makedirs(outdir, exist_ok=True)
    for path in files:
        data = open(path, 'rb').read()
        top = children(data, 0, len(data))
        at = next((i for i, e in enumerate(top) if e[0] == SEGMENT), None)
        if at is None:
            continue
        lead = b''.join(h + body for _, h, body, _ in top[:at])  # the EBML header, as it stands
        level1 = children(top[at][2], 0, len(top[at][2]))
        for clusters, blocks in ((3, 8), (2, 6), (2, 3), (1, 4), (1, 2)):
            body = serialise(shortened(level1, clusters, blocks))
            out = lead + header(top[at][1], body) + body
            if len(out) <= max_bytes:
                break
        # What is still too long is cut off, as a broken download is.
        open(os.path.join(outdir, os.path.basename(path)), 'wb').write(out[:max_bytes])


if __name__ == '__main__':
    if len(sys.argv) >= 3 and sys.argv[1] == 'extract':
        extract(sys.argv[2], sys.argv[3:])
    elif len(sys.argv) >= 4 and sys.argv[1] == 'cut':
        cut(sys.argv[2], int(sys.argv[3]), sys.argv[4:])
    else:
        sys.exit(__doc__)
