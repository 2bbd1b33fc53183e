"""The files of a folder whose container and stream disagree in colour: colour_disagreements.py FOLDER [JOURNAL]

With a journal a run that was stopped goes on where it was.
"""
from __future__ import annotations

import sys

from qlnutil import archive


def main(folder: str, journal: str | None = None) -> int:
    found = 0
    for result in archive.check_all(archive.files(folder), journal=journal):
        if result.error:
            print(result.error, file=sys.stderr)
            continue
        for finding in result.value:
            if finding.kind in ("colour", "range"):
                print(f"{result.path}: {finding.text}")
                found += 1
    return found


if __name__ == "__main__":
    sys.exit(3 if main(*sys.argv[1:]) else 0)
