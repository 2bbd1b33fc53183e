"""Signal formats, frame rates, timecode types, and the names of codecs and file types.

>>> hd = SignalFormat.of_raster(1920, 1080, Fraction(25), progressive=False)
>>> hd.name, hd.size, hd.rate
('1920x1080i@25', (1920, 1080), Fraction(25, 1))
"""
from __future__ import annotations

import enum
import json
from fractions import Fraction
from typing import Any

from . import _core


class TimecodeType(enum.IntEnum):
    """How a timecode counts."""

    #: A plain count of frames.
    FRAMES = 0
    #: 24
    FILM = 1
    #: 30, no numbers skipped
    NON_DROP_FRAME = 2
    #: 29.97, two numbers skipped a minute but each tenth
    DROP_FRAME = 4
    #: 25
    PAL = 8
    TC_50 = 16
    TC_59_94 = 32
    TC_60 = 64
    #: 23.976
    FILM_DROP = 128
    #: 23.976
    TC_23_98 = 132

    @property
    def frames_per_second(self) -> float:
        return _core.timecode_frames_per_second(self)

    @property
    def ms_per_frame(self) -> float:
        """NON_DROP_FRAME has the time of DROP_FRAME: hosts pace both by the same clock."""
        return _core.timecode_ms_per_frame(self)

    @classmethod
    def of_rate(cls, frames_per_second: float | Fraction) -> TimecodeType:
        """The type for a rate; multiples are folded to their base rate, and NON_DROP_FRAME is for all that have none."""
        return cls(_core.timecode_type_of_rate(float(frames_per_second)))


class SignalFormat(int):
    """One word for a raster at a rate and scan class; any word of 32 bits can be taken apart."""

    #: What of_raster gives where nothing fits.
    UNKNOWN = 0xF0000000

    def __new__(cls, word: int) -> SignalFormat:
        if not 0 <= word <= 0xFFFFFFFF:
            raise OverflowError(f"a signal format holds 32 bits, not {word}")
        return super().__new__(cls, word)

    @classmethod
    def of_raster(cls, width: int, height: int, rate: Fraction | int, progressive: bool = True) -> SignalFormat:
        """The word for a raster, by rules that pick among near matches; a negative height is that of a bottom-up image."""
        exact = Fraction(rate)
        return cls(_core.signal_format(exact.numerator, exact.denominator, width, height, progressive))

    @property
    def name(self) -> str:
        """As "1920x1080i@29.97"; "-1x-1 @Custom" where nothing is known."""
        return _core.name_of_format(self).rstrip()

    @property
    def rate(self) -> Fraction | None:
        """Frames a second; None where the word has no rate."""
        pair = _core.rate_of_format(self)
        return None if pair is None else Fraction(*pair)

    @property
    def size(self) -> tuple[int, int] | None:
        """Pixels and lines; None for sizes that are not known."""
        return _core.size_of_format(self, False)

    @property
    def field_size(self) -> tuple[int, int] | None:
        """Of one field, where pictures have two."""
        return _core.size_of_format(self, True)

    @property
    def frames_per_second(self) -> float:
        return _core.frames_per_second(self, 0, 0)

    @property
    def ms_per_frame(self) -> float:
        return _core.ms_per_frame(self, 0, 0)

    @property
    def timecode_type(self) -> TimecodeType:
        """With higher rates counted at their base rate."""
        return TimecodeType(_core.timecode_type_of_format(self))

    @property
    def full_rate_timecode_type(self) -> TimecodeType:
        """With 50, 59.94 and 60 kept apart."""
        return TimecodeType(_core.full_rate_timecode_type_of_format(self))

    def video(self) -> dict[str, int] | None:
        """width, height, rate, scale, the active rectangle and the scan flags; None without a rate or a size."""
        return _core.video_of_format(self)

    def to_dict(self) -> dict[str, Any]:
        """All that the library tells of the word, as `qlnmedia format --json` does."""
        report: dict[str, Any] = json.loads(_core.report_on_format(self))
        return report

    def __repr__(self) -> str:
        return f"SignalFormat({int(self):#010x}: {self.name})"


def normalized_rate(rate: int, scale: int) -> tuple[int, int]:
    """The usual pair for the many ways in which files store a frame rate; a pair that is not known stays."""
    return _core.normalized_rate(rate, scale)


def rate_of_size(width: int, height: int) -> Fraction | None:
    """A guess at the rate of a raster, for files that hold none; None for a width above 4096."""
    pair = _core.rate_of_size(width, height)
    return None if pair is None else Fraction(*pair)


def aspect_ratio(width: int, height: int) -> Fraction | None:
    """The picture aspect ratio that goes with a raster; None for none."""
    packed = _core.aspect_ratio(width, height)
    return Fraction(packed >> 16, packed & 0xFFFF) if packed & 0xFFFF else None


def matrix_of_size(width: int, height: int, flags: int = 0) -> int:
    """The host's colour matrix number for a raster; reads the default store once a process."""
    return _core.matrix_of_size(width, height, flags)


def size_of_token(token: int) -> int | None:
    """Pixels or lines of a size token; None for any other token."""
    size = _core.size_of_token(token)
    return None if size == 0xFFFFFFFF else size


def token_of_size(size: int) -> int | None:
    """Token of the largest listed size that `size` reaches, from 240 to 8192; None outside."""
    token = _core.token_of_size(size)
    return None if token == 0xFFFFFFFF else token


def codec_name(fourcc: int | str | bytes) -> str:
    """The display name of a codec by its code, a number or four characters; empty for an unknown one."""
    if isinstance(fourcc, str):
        fourcc = fourcc.encode("latin-1")
    if isinstance(fourcc, bytes):
        if len(fourcc) != 4:
            raise ValueError(f"a code has four characters, not {len(fourcc)}")
        fourcc = int.from_bytes(fourcc, "big")
    return _core.codec_name(fourcc)


def file_type_name(number: int) -> str:
    """The display name of a file type from 1 to 226; "Unknown file type" for others."""
    return _core.file_type_name(number)
