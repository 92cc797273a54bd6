#!/usr/bin/env python3
"""Where the time goes: per file and reader, from the child runs that
bench/run.sh made:

  copies/<reader>.<file>.json   qmkv_bench_copies --child: frames, readAt calls,
                                bytes read, bytes moved by memcpy/memmove
  cg/<reader>.<phase>.<file>.out callgrind of the read (or open) phase alone

Prints a Markdown table, then the top functions by self cost of the core's
read phase per file.
"""
import json
import os
import re
import subprocess
import sys

READERS = ["raw", "mapped", "raw-source", "core", "core-direct", "plugin", "lavf", "libwebm", "mkvparser"]
FILES = ["hd1080.mkv", "opus11m.mka", "vorbis_laced.mkv", "long2h_cues.mkv", "long2h_nocues.mkv"]


def callgrind_total(path):
    if not os.path.exists(path):
        return None
    total = None
    with open(path) as f:
        for line in f:
            m = re.match(r"(?:summary|totals):\s+(\d+)", line)
            if m:
                total = int(m.group(1))
    return total


def load_json(path):
    if not os.path.exists(path):
        return None
    with open(path) as f:
        for line in f:
            line = line.strip()
            if line.startswith("{"):
                return json.loads(line)
    return None


def fmt(v, spec):
    return "-" if v is None else format(v, spec)


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else "build-bench"
    print("| file | reader | frames | readAt/frame | readAt at open | src bytes / payload byte | "
          "memcpy bytes / payload byte | memcpy calls/frame | Ir/frame (read) | Ir/payload byte | Ir open |")
    print("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for f in FILES:
        for r in READERS:
            c = load_json(os.path.join(out, "copies", "%s.%s.json" % (r, f)))
            if c is None:
                continue
            ir_read = callgrind_total(os.path.join(out, "cg", "%s.read.%s.out" % (r, f)))
            ir_open = callgrind_total(os.path.join(out, "cg", "%s.open.%s.out" % (r, f)))
            frames = c["frames"]
            payload = max(c["bytes"], 1)
            raw = r in ("raw", "mapped", "raw-source")
            print("| %s | %s | %s | %s | %d | %.3f | %.3f | %s | %s | %s | %s |" % (
                f, r, "-" if raw else frames,
                "-" if raw else "%.2f" % (c["reads"] / frames),
                c["open_reads"],
                c["read_bytes"] / payload,
                c["copy_bytes"] / payload,
                "-" if raw else "%.2f" % (c["copy_calls"] / frames),
                "-" if raw or ir_read is None else "%.0f" % (ir_read / frames),
                fmt(None if ir_read is None else ir_read / payload, ".2f"),
                fmt(ir_open, ",")))
    print()
    for f in FILES:
        path = os.path.join(out, "cg", "core.read.%s.out" % f)
        if not os.path.exists(path):
            continue
        try:
            text = subprocess.run(["callgrind_annotate", path], capture_output=True, text=True).stdout
        except OSError:
            continue
        rows = []
        started = False
        for line in text.splitlines():
            if "file:function" in line:
                started = True
                continue
            if started and re.match(r"^\s*[\d,]+ \(", line):
                rows.append(line.strip())
            if len(rows) >= 8:
                break
        print("Core, read phase, %s: top functions by self cost (Ir)\n" % f)
        print("```")
        for row in rows:
            print(re.sub(r"\[.*\]$", "", row)[:160])
        print("```\n")


if __name__ == "__main__":
    main()
