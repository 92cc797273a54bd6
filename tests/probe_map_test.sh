#!/usr/bin/env bash
# qmkvprobe --map draws a well-formed SVG and PNG of every corpus file and
# takes no other kind of picture. With --core, as the plug-in refuses the
# WebM file the core reads and draws.
set -euo pipefail
probe=$1
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
while read -r name _; do
  for ext in svg png; do
    "$probe" --core --map "$out/$name.$ext" "$QMKV_CORPUS_DIR/$name" >/dev/null 2>&1 ||
      { echo "--map $ext $name: exit $?" >&2; exit 1; }
  done
done <"$QMKV_CORPUS_DIR/manifest.txt"
rc=0
"$probe" --map "$out/x.jpg" "$QMKV_CORPUS_DIR/h264_aac.mkv" >/dev/null 2>&1 || rc=$?
[ $rc -eq 2 ] || { echo "--map x.jpg: exit $rc, not 2" >&2; exit 1; }
python3 - "$out" "$QMKV_CORPUS_DIR/manifest.txt" <<'PY'
import struct, sys, xml.etree.ElementTree as ET
for name in [line.split()[0] for line in open(sys.argv[2])]:
    png = open(f"{sys.argv[1]}/{name}.png", "rb").read()
    width, height = struct.unpack(">II", png[16:24])
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and png[12:16] == b"IHDR" and width > 0 and height > 0, name
    assert ET.parse(f"{sys.argv[1]}/{name}.svg").getroot().tag == "{http://www.w3.org/2000/svg}svg", name
PY
