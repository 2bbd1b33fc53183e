"""Carries captions across a transcode that loses them: captions_across_transcode.py IN TRANSCODED OUT

Out of IN as .mcc, into TRANSCODED again, which has the same pictures.
"""
from __future__ import annotations

import os
import sys
import tempfile

from qlnutil import media


def main(original: str, transcoded: str, out: str) -> None:
    with tempfile.TemporaryDirectory() as folder:
        captions = os.path.join(folder, "captions.mcc")
        media.extract_captions(original, captions)
        print(media.patch(transcoded, out, captions=captions, captions_offset="00:00:00:00"))
    before, after = media.captions(original), media.captions(out)
    print(f"{after.captioned} of {after.pictures} pictures have captions; before {before.captioned} of {before.pictures}")


if __name__ == "__main__":
    main(*sys.argv[1:])
