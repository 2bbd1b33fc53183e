"""One file, cell by cell, as in a notebook: walk_through.py FILE"""
from __future__ import annotations

import sys

# %% What the file says of itself; a notebook shows it as a table.
from qlnutil import Timecode, h264, hevc, media

path = sys.argv[1]
report = media.inspect(path, frames=1, units=True)
video = next(stream for stream in report["summary"]["streams"] if stream["type"] == "video")
print(video["codec"], video["width"], "x", video["height"])

# %% Its first sequence parameter set, read by the library as a host does.
with open(path, "rb") as file:
    data = file.read()
kind = b"hvcC" if b"hvcC" in data else b"avcC"
at = data.index(kind) - 4
box = memoryview(data)[at:at + int.from_bytes(data[at:at + 4], "big")]
record: h264.AvcC | hevc.HvcC = hevc.read_hvcc(box) if kind == b"hvcC" else h264.read_avcc(box)
sps = record.sps
print(sps)

# %% A change to it, and the unit that comes of it.
if isinstance(sps, h264.Sps):
    sps.video_full_range_flag = 1
    print(len(sps.write()), "bytes")

# %% Whether container and stream agree.
findings = media.check(path)
print("\n".join(map(str, findings)) or "nothing found")

# %% What a patch would do; nothing is written.
print(media.patch(path, colour="bt709", timecode=str(Timecode.parse("10:00:00:00")), dry_run=True))
