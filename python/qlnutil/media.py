"""Media files: what they say, whether their parts agree, what they say changed, and streams in memory.

All of it works with the interpreter's lock released, on as many threads as there are files. A progress callback may
return False to call the work off; Ctrl-C does so as well. Nothing of an output that is not whole stays.
"""
from __future__ import annotations

import json
import os
from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass, field
from typing import Any, NamedTuple, TypeAlias

from . import _core, _show
from ._changes import Changes, Hdr, as_options
from ._buffer import Buffer
from ._editor import EditedUnit, StreamDescription, StreamEditor, StreamSurvey

__all__ = ["CaptionLine", "CaptionService", "Changes", "EditedUnit", "FileCaptions", "Finding", "Findings", "Hdr",
           "PatchResult", "Progress", "Report", "StreamDescription", "StreamEditor", "StreamSurvey", "captions", "check",
           "extract_captions", "inspect", "patch", "recover"]

Path: TypeAlias = "str | bytes | os.PathLike[str] | os.PathLike[bytes]"


class Progress(NamedTuple):
    """One step of a piece of work."""

    #: "reading", "patching"
    what: str
    #: Bytes of the input.
    done: int
    #: Bytes of the input; 0 or below where that is not known.
    total: int
    #: The last step, also where the work fails.
    finished: bool


#: Called at most ten times a second in the thread that does the work; False calls it off, and so does an exception.
ProgressCallback: TypeAlias = Callable[[Progress], "bool | None"]


def _told(progress: ProgressCallback | None) -> Callable[[str, int, int, bool], bool | None] | None:
    if progress is None:
        return None
    tell = progress
    return lambda *step: tell(Progress(*step))


class Report(dict[str, Any]):
    """What a file says about itself: the JSON form of `qlnmedia inspect` as objects."""

    def _repr_html_(self) -> str:
        streams = self.get("summary", {}).get("streams", [])
        rows = [(stream.get("index"), stream.get("type"), stream.get("codec"),
                 "; ".join(f"{key}: {value}" for key, value in stream.items()
                           if key not in ("index", "type", "codec") and value not in (None, [], {})))
                for stream in streams]
        return _show.table(("stream", "type", "codec", "says"), rows, str(self.get("summary", {}).get("path", "")))


def inspect(path: Path, *, frames: int = 3, units: bool = False, details: bool = True) -> Report:
    """Reads a file and gives what it says, from the container down to single units.

    frames: coded frames of each video stream that are laid out. units: every unit of those frames. details: all behind
    the summary. Raises NotApplicable for a file that is empty or has no video, Error for one that is missing or no media.
    """
    return Report(json.loads(_core.inspect_file(path, frames, units, details)))


@dataclass(frozen=True)
class Finding:
    """One kind of disagreement in a file; the same in later frames counts up."""

    #: Index in the file.
    stream: int
    #: What it is about: "colour", "range", "size", "rate", "interlace", "hdr", "sets", "order", "captions", "damage",
    #: "aspect", "encryption" or "timecode".
    kind: str
    #: Who says what, in one line.
    text: str
    #: The first coded frame that shows it, from 0; None for the stream as a whole.
    frame: int | None = None
    #: Frames that show it.
    count: int = 1
    #: "error", "warning" or "note".
    severity: str = "warning"

    def __str__(self) -> str:
        where = f"stream {self.stream}" + ("" if self.frame is None else f", frame {self.frame}")
        return f"{where}: {self.severity}: {self.kind}: {self.text}"

    def to_dict(self) -> dict[str, Any]:
        return dict(vars(self))

    def _repr_html_(self) -> str:
        return Findings([self])._repr_html_()


class Findings(list[Finding]):
    """What check found, in the order in which it shows; empty for a sound file."""

    @property
    def worthy(self) -> bool:
        """Whether there is more than notes."""
        return any(finding.severity != "note" for finding in self)

    def _repr_html_(self) -> str:
        return _show.table(("stream", "kind", "finding", "frame", "count", "severity"),
                           [tuple("" if value is None else value for value in vars(one).values()) for one in self],
                           "" if self else "nothing found")


def check(path: Path, *, progress: ProgressCallback | None = None) -> Findings:
    """Holds container, configuration record and coded stream against each other and against the standards.

    Raises Error for a file that is missing or no media, NotApplicable for one without such a stream, Cancelled.
    """
    return Findings(Finding(*one) for one in _core.check_file(path, _told(progress)))


@dataclass(frozen=True)
class PatchResult:
    """What a run changed, one line each, as "stream 0: 12 parameter sets, avcC and container colour"."""

    lines: list[str] = field(default_factory=list)

    def __str__(self) -> str:
        return "\n".join(self.lines)

    def _repr_html_(self) -> str:
        return _show.table(("changed",), [(line,) for line in self.lines])


def patch(src: Path, dst: Path | None = None, changes: Changes | None = None, *,
          colour: str | Sequence[int] | None = None, hdr: Hdr | str | None = None, timecode: str | None = None,
          captions: Path | None = None, captions_offset: str | None = None, caption_track: bool = False,
          caption_stream: bool = False, caption_language: str | None = None, in_place: bool = False,
          initialization: Path | None = None, segments: bool = False, timecode_track: bool = False,
          keep_rate: bool = False, dry_run: bool = False, verify: bool = False,
          progress: ProgressCallback | None = None, **more: Any) -> PatchResult:
    """Changes what a file says of its streams, and leaves every coded slice as it is.

    The changes are given by name (all that Changes has), or as Changes, or both. dst gets its name when it is whole;
    it may be None with in_place (MP4 and MOV; a journal beside the file makes that safe) and dry_run. captions: a .scc or
    .mcc file; captions_offset: its timecode that falls on the first picture. caption_track: MP4 and MOV get the captions
    in a track of their own, whose language may be said ("eng"), and not in pictures. caption_stream: transport streams
    get them in a stream of ancillary data. initialization: the initialization segment of src, where that is a media
    segment alone. segments: src is a folder, playlist or manifest, dst a new folder. timecode_track: MP4 and MOV get a timecode track that says the same. keep_rate: of transport streams. verify:
    the output is read back and held against the input.

    Raises Error where it cannot be done, and Cancelled: dst then does not exist, or is what it was.
    """
    options = as_options(changes, colour=colour, hdr=hdr, timecode=timecode, **more)
    options.update(captions=captions, captions_offset=captions_offset, caption_track=caption_track,
                   caption_stream=caption_stream, caption_language=caption_language, in_place=in_place,
                   initialization=initialization, segments=segments, timecode_track=timecode_track,
                   keep_rate=keep_rate, dry_run=dry_run, verify=verify)
    return PatchResult(_core.patch_file(src, dst, options, _told(progress)))


def recover(path: Path) -> str:
    """Puts a file back as it was, where a change in place was cut off.

    Gives "nothing" where none was, "untouched" where it was before the first byte, "put back" where the file was changed.
    """
    return _core.recover_file(path)


class CaptionLine(NamedTuple):
    """One caption as it stands on the screen."""

    #: Seconds from the first picture.
    begin: float
    end: float
    #: Lines separated by a line feed.
    text: str


@dataclass(frozen=True)
class CaptionService:
    """One service with its captions in the order of their times."""

    #: "CC1" to "CC4", "T1" to "T4", "XDS", "service 1" to "service 63".
    name: str
    #: Empty for text services and extended data, which are not decoded.
    lines: list[CaptionLine]

    @property
    def text(self) -> str:
        return "\n".join(line.text for line in self.lines)


@dataclass(frozen=True)
class FileCaptions:
    """The captions that a file's video carries."""

    #: Index of the stream in the file.
    stream: int
    #: Pictures of the stream.
    pictures: int
    #: Pictures with captions, padding included.
    captioned: int
    #: None where there is nothing but padding.
    services: list[CaptionService]

    def __iter__(self) -> Iterator[CaptionService]:
        return iter(self.services)

    def _repr_html_(self) -> str:
        return _show.table(("service", "begin", "end", "text"),
                           [(service.name, f"{line.begin:.3f}", f"{line.end:.3f}", line.text)
                            for service in self.services for line in service.lines],
                           f"{self.captioned} of {self.pictures} pictures have captions")


def captions(path: Path, *, rate: str = "", progress: ProgressCallback | None = None) -> FileCaptions:
    """Reads the closed captions (CTA-608 and CTA-708) of a file.

    rate: pictures a second as "25" or "30000/1001", "nominal" for what a file of uneven pictures is made for; empty for
    what the file says. Raises NotApplicable for a file without captions.
    """
    stream, pictures, captioned, services = _core.read_file_captions(path, rate, _told(progress))
    return FileCaptions(stream, pictures, captioned,
                        [CaptionService(name, [CaptionLine(*line) for line in lines]) for name, lines in services])


def extract_captions(src: Path, dst: Path, *, service: str = "", rate: str = "", timecode_type: str = "",
                     start: str = "", progress: ProgressCallback | None = None) -> None:
    """Writes the captions of a file as .mcc, .scc, .srt or .txt; dst is there when it is whole.

    service: of .srt and .txt. timecode_type and start: how the labels of .mcc and .scc count, and the first one.
    """
    _core.extract_captions(src, dst, service, rate, timecode_type, start, _told(progress))
