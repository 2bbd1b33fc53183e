"""A count of frames with the way in which it is written (SMPTE ST 12-1)."""
from __future__ import annotations

from dataclasses import dataclass
from fractions import Fraction

from . import _core
from .formats import TimecodeType


@dataclass(frozen=True, order=False)
class Timecode:
    """A count of frames, from 0 to 2^32 - 1, and how it counts.

    >>> Timecode.parse("00:01:00;02", TimecodeType.DROP_FRAME).frames
    1800
    >>> str(Timecode(90000, TimecodeType.PAL) + 25)
    '01:00:01:00'
    """

    frames: int
    type: TimecodeType = TimecodeType.NON_DROP_FRAME

    def __post_init__(self) -> None:
        if not 0 <= self.frames <= 0xFFFFFFFF:
            raise OverflowError(f"a timecode holds 32 bits, not {self.frames}")
        object.__setattr__(self, "type", TimecodeType(self.type))

    @classmethod
    def parse(cls, text: str, type: TimecodeType = TimecodeType.NON_DROP_FRAME) -> Timecode:
        """Reads "HH:MM:SS:FF" (leading groups may be missing, ";" and "." separate as well) or a bare number.

        Drop-frame numbers that do not exist are taken as the next one that does. Raises StreamError for other texts.
        """
        return cls(_core.timecode_of_text(text, type), type)

    def converted(self, type: TimecodeType, rate: Fraction | int) -> Timecode:
        """The count of another type whose text is the same, for a picture rate in frames a second.

        A count that already counts like `type` stays; at 59.94 and 60 it is doubled.
        """
        exact = Fraction(rate)
        return Timecode(_core.convert_timecode(self.frames, type, exact.numerator, exact.denominator), type)

    def __str__(self) -> str:
        return _core.timecode_text(self.frames, self.type)

    def __repr__(self) -> str:
        return f"Timecode({str(self)!r}, {self.type.name})"

    def __int__(self) -> int:
        return self.frames

    def __add__(self, frames: int) -> Timecode:
        return Timecode(self.frames + frames, self.type) if isinstance(frames, int) else NotImplemented

    def __sub__(self, frames: int) -> Timecode:
        return Timecode(self.frames - frames, self.type) if isinstance(frames, int) else NotImplemented
