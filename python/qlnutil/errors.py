"""How calls fail: one tree of exceptions, whose text is one line for people.

Wrong types, values that do not fit and closed files are Python's own TypeError, OverflowError, ValueError and
BufferError; missing memory is MemoryError. Everything else is an Error.
"""
from __future__ import annotations


class Error(Exception):
    """A piece of work that could not be done.

    The text is "PATH: WHAT; ADVICE", without the parts that are empty. Exceptions survive pickling, so that they come
    back from worker processes as they were.
    """

    def __init__(self, path: str = "", what: str = "", advice: str = "") -> None:
        super().__init__(path, what, advice)
        #: The file, option or track that is concerned; may be empty.
        self.path = path
        #: What is wrong with it.
        self.what = what
        #: What to do about it; may be empty.
        self.advice = advice

    def __str__(self) -> str:
        line = f"{self.path}: {self.what}" if self.path else self.what
        return f"{line}; {self.advice}" if self.advice else line


class NotApplicable(Error):
    """Nothing is wrong with the file, and it has nothing that the work is about: it is empty, or has no video."""


class Cancelled(Error):
    """The progress callback called the work off; nothing of its output stays."""


class StreamError(Error):
    """Bytes that are not the record, unit or frame that was asked for, or a record that makes no unit."""


class WorkerDied(Error):
    """The process that worked on a file ended under it."""
