"""HEVC elementary streams (ITU-T H.265): parameter sets, the hvcC record, frames, and Dolby Vision.

Records hold syntax elements under their published names; see qlnutil.h264 for what holds of both.
"""
from __future__ import annotations

from dataclasses import dataclass, field

from . import _core, _show
from ._buffer import Buffer
from ._core import HevcConfigHead as ConfigHead
from ._core import HevcDolbyVisionConfig as DolbyVisionConfig
from ._core import HevcLongTermPicture as LongTermPicture
from ._core import HevcPps as Pps
from ._core import HevcProfileTierLevel as ProfileTierLevel
from ._core import HevcShortTermRps as ShortTermRps
from ._core import HevcSps as Sps
from ._core import HevcVps as Vps
from ._units import Framing, NalUnit, Reader, boxed, to_lengths, to_start_codes, units, with_lengths, with_sizes
from .errors import StreamError

__all__ = ["ConfigHead", "DolbyVisionConfig", "DolbyVisionUnits", "Framing", "HvcC", "LongTermPicture", "NalUnit",
           "Pps", "ProfileTierLevel", "Scan", "ShortTermRps", "Sps", "UnitArray", "Vps", "find_dolby_vision",
           "read_dolby_vision", "read_hvcc", "read_pps", "read_sps", "read_vps", "scan", "to_lengths",
           "to_start_codes"]


def read_vps(data: Buffer) -> Vps:
    """Reads a video parameter set, from its NAL header on; a start code in front is passed over.

    HRD parameters and extension are read past. Raises StreamError for another unit, and for one that breaks off.
    """
    return _core.hevc_read_vps(data)


def read_sps(data: Buffer) -> Sps:
    """Reads a sequence parameter set, as read_vps does."""
    return _core.hevc_read_sps(data)


def read_pps(data: Buffer) -> Pps:
    """Reads a picture parameter set, as read_vps does."""
    return _core.hevc_read_pps(data)


@dataclass
class UnitArray:
    """The units of one type in an hvcC record."""

    nal_unit_type: int
    #: All units of that type are here, and none in the stream.
    array_completeness: bool = True
    #: From the NAL header on.
    units: list[bytes] = field(default_factory=list)


@dataclass
class HvcC:
    """The body of an hvcC box (ISO/IEC 14496-15, HEVCDecoderConfigurationRecord)."""

    #: Everything in front of the arrays. write() puts their number into it.
    head: ConfigHead = field(default_factory=ConfigHead)
    arrays: list[UnitArray] = field(default_factory=list)
    #: What stands behind the arrays, as it is; mostly nothing.
    rest: bytes = b""

    def _first(self, kind: int) -> bytes | None:
        return next((unit for array in self.arrays if array.nal_unit_type == kind for unit in array.units), None)

    @property
    def vps(self) -> Vps | None:
        """The first video parameter set, read; None where there is none."""
        unit = self._first(32)
        return None if unit is None else read_vps(unit)

    @property
    def sps(self) -> Sps | None:
        """The first sequence parameter set, read; None where there is none."""
        unit = self._first(33)
        return None if unit is None else read_sps(unit)

    @property
    def pps(self) -> Pps | None:
        """The first picture parameter set, read; None where there is none."""
        unit = self._first(34)
        return None if unit is None else read_pps(unit)

    def to_dict(self) -> dict[str, object]:
        """The head's elements, and the arrays with their units as hexadecimal digits."""
        arrays = [{**vars(array), "units": [unit.hex() for unit in array.units]} for array in self.arrays]
        return {**self.head.to_dict(), "arrays": arrays, "rest": self.rest.hex()}

    def write(self) -> bytes:
        """The body of the box."""
        head = self.head.copy()
        head.numOfArrays = len(self.arrays)
        out = bytearray(head.write())
        for array in self.arrays:
            out.append((0x80 if array.array_completeness else 0) | array.nal_unit_type)
            out += len(array.units).to_bytes(2, "big") + with_sizes(array.units)
        return bytes(out) + self.rest

    def _repr_html_(self) -> str:
        return _show.table(("member", "value"), self.to_dict().items(), "HvcC")


def read_hvcc(data: Buffer) -> HvcC:
    """Reads an hvcC box, or its body alone.

    Raises StreamError for one that breaks off, or whose reserved bits are wrong.
    """
    box, body = boxed(data, b"hvcC")
    take = Reader(body, "hvcC")
    if not take.take(23)[22]:  # without arrays the library's reader has nothing to end with
        return HvcC(_core.hevc_read_hvcc(box)[0], [], take.rest())
    arrays = []
    for _ in range(body[22]):
        head = take.number(1)
        arrays.append(UnitArray(head & 0x3F, bool(head & 0x80), [take.take(take.number(2)) for _ in range(take.number(2))]))
    # The sets fold their own values into what the reader makes of the head, which is read without them.
    bare = (31).to_bytes(4, "big") + b"hvcC" + bytes(body[:22]) + b"\0"
    head_record = _core.hevc_read_hvcc(bare)[0]
    head_record.numOfArrays = len(arrays)
    return HvcC(head_record, arrays, take.rest())


def read_dolby_vision(data: Buffer) -> DolbyVisionConfig:
    """Reads the 24 bytes of a Dolby Vision configuration: the body of a dvcC, dvvC or dvwC box.

    Raises StreamError where there are fewer.
    """
    body = bytes(memoryview(data).cast("B")[:24])
    if len(body) < 24:
        raise StreamError("", f"a Dolby Vision configuration has 24 bytes, and there are {len(body)}")
    bits = int.from_bytes(body[2:4], "big")
    compatibility = int.from_bytes(body[4:8], "big")
    return DolbyVisionConfig(
        dv_version_major=body[0], dv_version_minor=body[1],
        dv_flags=bits >> 9 | (bits >> 3 & 0x3F) << 7 | (bits >> 2 & 1) << 13 | (bits >> 1 & 1) << 14 | (bits & 1) << 15,
        dv_compatibility=compatibility >> 28 | (compatibility & 0xFFFFFFF) << 4,
        dv_reserved=[int.from_bytes(body[at:at + 4], "big") for at in range(8, 24, 4)])


@dataclass(frozen=True)
class DolbyVisionUnits:
    """Where the last prefix SEI unit and the last Dolby Vision RPU of a frame stand.

    Each as (offset, size) from the second byte of the unit's header on; None where there is none.
    """

    sei: tuple[int, int] | None
    rpu: tuple[int, int] | None


def find_dolby_vision(frame: Buffer) -> DolbyVisionUnits:
    """Finds them in a frame with lengths."""
    return DolbyVisionUnits(*_core.hevc_find_dolby_vision(frame))


@dataclass(frozen=True)
class Scan:
    """What the units of a frame are."""

    units: tuple[NalUnit, ...]
    #: Units that the library's own walk visits.
    visited: int
    #: The last set of its kind on that walk; None where there is none.
    vps: Vps | None
    sps: Sps | None
    pps: Pps | None
    #: The unit of the PPS; None for one above 1024 bytes as well.
    pps_bytes: bytes | None

    def _repr_html_(self) -> str:
        return _show.table(("type", "offset", "size"), self.units, "units of a frame")


def scan(frame: Buffer, framing: Framing | str = Framing.LENGTHS) -> Scan:
    """Walks the units of a frame and reads its parameter sets. Raises StreamError for a frame that is not in that form."""
    return Scan(units(frame, framing, 1, 0x3F), *_core.hevc_scan(frame, with_lengths(framing)))
