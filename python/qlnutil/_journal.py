"""The journal of a run over many files: what is done stays done when the run is stopped."""
from __future__ import annotations

import fcntl
import json
import os
from typing import Any

from .errors import Error


def identity(path: str) -> dict[str, int]:
    """What tells that a file is the one of the last run; nothing for one that cannot be looked at from here."""
    try:
        status = os.stat(path)
    except (OSError, ValueError):
        return {}
    return {"size": status.st_size, "modified": status.st_mtime_ns}


class Journal:
    """One line of JSON a file, appended in one piece when the file is done.

    A line that was cut off by the end of a run, or of the machine, counts as not written. One run has a journal at a
    time.
    """

    def __init__(self, path: str | os.PathLike[str]) -> None:
        self.path = os.fspath(path)
        try:
            self._file = os.open(self.path, os.O_RDWR | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC, 0o666)
        except OSError as error:
            raise Error(self.path, error.strerror or "cannot be opened") from error
        try:
            self._entries = self._begin()
        except BaseException:
            os.close(self._file)
            raise

    def _begin(self) -> dict[tuple[str, str], tuple[int, int]]:
        """Where the last line of each file stands: reports of a large archive do not fit the memory."""
        try:
            fcntl.flock(self._file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError as error:
            raise Error(self.path, "another run has this journal", "give it one of its own") from error
        places: dict[tuple[str, str], tuple[int, int]] = {}
        at = 0
        with open(self.path, "rb") as file:
            for number, line in enumerate(file, 1):
                if not line.endswith(b"\n"):
                    os.ftruncate(self._file, at)
                    break
                try:
                    entry = json.loads(line)
                    places[entry["work"], entry["file"]] = (at, len(line))
                except (ValueError, KeyError, TypeError) as error:
                    raise Error(self.path, f"line {number} is none of a journal", "give a file of its own") from error
                at += len(line)
        return places

    def find(self, head: dict[str, Any]) -> dict[str, Any] | None:
        """The entry of a file that is still the one that was worked on, with the same options."""
        place = self._entries.get((head["work"], head["file"]))
        if place is None:
            return None
        entry: dict[str, Any] = json.loads(os.pread(self._file, place[1], place[0]))
        return entry if all(entry.get(key) == head.get(key) for key in ("size", "modified", "options")) else None

    def add(self, entry: dict[str, Any]) -> None:
        line = json.dumps(entry).encode() + b"\n"
        if os.write(self._file, line) != len(line):
            raise Error(self.path, "could not be written whole", "look for room on the disk")

    def close(self) -> None:
        os.close(self._file)
