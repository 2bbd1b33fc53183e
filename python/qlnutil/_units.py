"""What frames of H.264 and HEVC have in common: their two forms, and the units in them."""
from __future__ import annotations

import enum
from collections.abc import Iterable
from typing import NamedTuple

from . import _core
from ._buffer import Buffer
from .errors import StreamError


class Framing(enum.Enum):
    """How units are told apart in a frame."""

    #: Each unit has its size in front, as a big-endian number of four bytes.
    LENGTHS = "lengths"
    #: Each unit has a start code in front (Annex B).
    START_CODES = "start codes"


class NalUnit(NamedTuple):
    """A unit inside of a frame."""

    #: nal_unit_type
    type: int
    #: Of its NAL header in the frame, in bytes.
    offset: int
    #: From the NAL header on, in bytes, without trailing zeros behind a start code.
    size: int


def with_lengths(framing: Framing | str) -> bool:
    return Framing(framing) is Framing.LENGTHS


def units(frame: Buffer, framing: Framing | str, shift: int, mask: int) -> tuple[NalUnit, ...]:
    with memoryview(frame) as given, given.cast("B") as view:
        return tuple(NalUnit(view[offset] >> shift & mask, offset, size)
                     for offset, size in _core.units(view, with_lengths(framing)))


def to_lengths(frame: Buffer) -> bytes:
    """A frame with start codes as one with lengths of four bytes.

    Zeros in front of a start code count to the unit in front of it. Raises StreamError for a frame that does not begin
    with a start code.
    """
    return _core.to_lengths(frame)


def to_start_codes(frame: Buffer) -> bytes:
    """A frame with lengths of four bytes as one with start codes of four bytes.

    A frame whose first unit has one byte looks like one with start codes, and comes back as it is. Raises StreamError
    for a frame that its lengths do not fill.
    """
    return _core.to_start_codes(frame)


def boxed(data: Buffer, kind: bytes) -> tuple[bytes, memoryview]:
    """A configuration record as a box and as its body, whichever it came as."""
    view = memoryview(data).cast("B")
    if bytes(view[4:8]) == kind:
        size = int.from_bytes(view[:4], "big")
        if size < 8 or size > len(view):
            raise StreamError("", f"the {kind.decode()} box says {size} bytes, and there are {len(view)}")
        return bytes(view[:size]), view[8:size]
    return (len(view) + 8).to_bytes(4, "big") + kind + bytes(view), view


class Reader:
    """Big-endian numbers and units out of a configuration record, none of them behind its end."""

    def __init__(self, body: memoryview, name: str) -> None:
        self.body, self.at, self.name = body, 0, name

    def take(self, size: int) -> bytes:
        if size > len(self.body) - self.at:
            raise StreamError("", f"the {self.name} record breaks off")
        self.at += size
        return bytes(self.body[self.at - size:self.at])

    def number(self, size: int) -> int:
        return int.from_bytes(self.take(size), "big")

    def rest(self) -> bytes:
        return self.take(len(self.body) - self.at)


def with_sizes(parts: Iterable[bytes]) -> bytes:
    """Units with 16-bit sizes in front, as configuration records hold them."""
    out = bytearray()
    for part in parts:
        if len(part) > 0xFFFF:
            raise StreamError("", f"a unit of {len(part)} bytes does not fit a configuration record")
        out += len(part).to_bytes(2, "big") + part
    return bytes(out)
