"""The library and the engine of qlnutil, for Python.

- qlnutil.h264, qlnutil.hevc: parameter sets, slice headers, configuration records and frames, element by element
- qlnutil.media: files inspected, checked and patched, their captions, and the stream editor
- qlnutil.archive: the same work over many files, in processes of this machine or of others
- qlnutil.captions: caption files, triplets and text
- qlnutil.formats, Timecode, qlnutil.transport, MediaCommand, ClipInfo, qlnutil.aac: values that hosts work with

Everything that takes bytes takes any object with a contiguous buffer (bytes, bytearray, memoryview, mmap) without a
copy, and keeps nothing of it. Failures are of one tree, qlnutil.Error (see qlnutil.errors). What the library says on
its way goes to the logger "qlnutil".
"""
from . import aac, archive, captions, formats, h264, hevc, media, transport
from ._core import Record
from .clipinfo import ClipInfo, ClipInfoStore
from .command import MediaCommand
from .errors import Cancelled, Error, NotApplicable, StreamError, WorkerDied
from .formats import SignalFormat, TimecodeType
from .timecode import Timecode

__all__ = ["Cancelled", "ClipInfo", "ClipInfoStore", "Error", "MediaCommand", "NotApplicable", "Record", "SignalFormat",
           "StreamError", "Timecode", "TimecodeType", "WorkerDied", "aac", "archive", "captions", "formats", "h264",
           "hevc", "media", "transport"]
