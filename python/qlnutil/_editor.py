"""The stream editor: one coded video stream, picture by picture, in memory."""
from __future__ import annotations

from collections.abc import Callable, Iterator, Sequence
from dataclasses import dataclass
from fractions import Fraction
from typing import Any, NamedTuple

from . import _core
from ._changes import Changes, as_options
from ._buffer import Buffer
from .captions import Triplet


@dataclass(frozen=True, kw_only=True)
class StreamDescription:
    """What is said of a stream in front of its first packet."""

    #: "h264", "hevc" or "mpeg2".
    codec: str
    #: Body of an avcC or hvcC box, units with start codes, or nothing.
    private_data: Buffer = b""
    #: 0 for start codes, 1, 2 or 4 for lengths in front of units; None for what private_data says.
    length_bytes: int | None = None
    #: Seconds in a unit of the packets' times.
    time_base: Fraction = Fraction(1)
    #: Packets a second; None where that is not known.
    average_rate: Fraction | None = None
    #: The lowest rate at which all times can stand; None where that is not known.
    base_rate: Fraction | None = None
    #: No container: times mean nothing.
    raw: bool = False
    #: Key marks and rates are the container's own.
    own_marks: bool = True
    #: Lines of a picture as the container says; 0 where it says nothing.
    height: int = 0
    #: Of two fields the bottom one is displayed first.
    bottom_first: bool = False

    def _values(self) -> dict[str, Any]:
        return {name: Fraction(value).as_integer_ratio() if name in ("time_base", "average_rate", "base_rate")
                and value is not None else value for name, value in vars(self).items()}


class EditedUnit(NamedTuple):
    """An access unit that comes back, with its times as they were."""

    data: bytes
    pts: int | None
    dts: int | None
    #: Also where a recovery point went in.
    key: bool
    #: False where the bytes are those that went in.
    changed: bool


class StreamSurvey:
    """What a first pass over a whole stream finds; captions and `interlaced` need one.

    Takes the same packets as the editor will. For one thread at a time; a finished one serves several editors.
    """

    def __init__(self, stream: StreamDescription) -> None:
        self._survey = _core.Survey(stream._values())

    def add(self, data: Buffer, pts: int | None = None, dts: int | None = None, key: bool = False) -> None:
        """Takes the next packet in coding order; its bytes are looked at during the call only."""
        self._survey.add(data, pts, dts, key)

    def finish(self) -> None:
        """Ends the pass. What follows is known from here on; before, it raises ValueError."""
        self._survey.finish()

    @property
    def pictures(self) -> int:
        """Pictures of the stream; the two fields of a frame are one."""
        return self._survey.pictures()

    @property
    def captioned(self) -> int:
        """Pictures that have captions."""
        return self._survey.captioned()

    @property
    def pictures_per_second(self) -> float:
        """0 where nothing tells it."""
        return self._survey.pictures_per_second()

    @property
    def steady(self) -> bool:
        """False where pictures are missing, or stand much longer or shorter than most."""
        return self._survey.steady()


class StreamEditor:
    """Edits one stream: access units in, access units out, changed or as they were.

    For one thread at a time; objects share nothing. After a failure the editor is of no use, and says so.

    captions: gives the triplets of the picture at a place in presentation order, from 0; called once for each picture,
    within push. where: what the text of a failure begins with.

    >>> editor = StreamEditor(StreamDescription(codec="h264"), colour="bt709")
    >>> list(editor.edit([]))
    []
    """

    def __init__(self, stream: StreamDescription, changes: Changes | None = None, *,
                 survey: StreamSurvey | None = None, captions: Callable[[int], Sequence[Triplet]] | None = None,
                 where: str = "", **more: Any) -> None:
        self._editor = _core.Editor(stream._values(), as_options(changes, **more),
                                    None if survey is None else survey._survey, captions, where)

    @property
    def private_data(self) -> bytes:
        """As the edited stream needs it, in the form in which it came: changed from the beginning."""
        return self._editor.private_data()

    def push(self, data: Buffer, pts: int | None = None, dts: int | None = None, key: bool = False) -> None:
        """Takes the next access unit in coding order, or the next packet with both fields of a frame."""
        self._editor.push(data, pts, dts, key)

    def pull(self) -> EditedUnit | None:
        """The next access unit, as soon as nothing that follows can change it; with timecodes up to 33 wait."""
        unit = self._editor.pull()
        return None if unit is None else EditedUnit(*unit)

    def finish(self) -> None:
        """Tells that no more comes: pull then gives all that is left."""
        self._editor.finish()

    def pulled(self) -> Iterator[EditedUnit]:
        """All that can be pulled now."""
        while (unit := self.pull()) is not None:
            yield unit

    def edit(self, units: Any) -> Iterator[EditedUnit]:
        """A whole stream: of tuples (data, pts, dts, key), as push takes them."""
        for unit in units:
            self.push(*unit)
            yield from self.pulled()
        self.finish()
        yield from self.pulled()

    @property
    def counts(self) -> dict[str, int]:
        """What was done so far, by kind; complete when all was pulled."""
        return self._editor.counts()
