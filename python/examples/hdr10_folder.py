"""Puts HDR10 into all files of a folder: hdr10_folder.py FOLDER OUT_FOLDER MASTERING MAXCLL MAXFALL

As: hdr10_folder.py in out p3 1000 400. Files keep their places below the folder.
"""
from __future__ import annotations

import os
import sys

from qlnutil import archive
from qlnutil.media import Changes, Hdr


def main(folder: str, out: str, mastering: str, max_cll: str, max_fall: str) -> int:
    pairs = [(path, os.path.join(out, os.path.relpath(path, folder))) for path in archive.files(folder)]
    for _, target in pairs:
        os.makedirs(os.path.dirname(target), exist_ok=True)
    changes = Changes(colour="bt2020-pq", hdr=Hdr(mastering, (int(max_cll), int(max_fall))))
    failed = 0
    for result in archive.patch_all(pairs, changes=changes):
        print(result)
        failed += not result.ok
    return failed


if __name__ == "__main__":
    sys.exit(1 if main(*sys.argv[1:]) else 0)
