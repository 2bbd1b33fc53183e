"""H.264 elementary streams (ITU-T H.264): parameter sets, slice headers, the avcC record, and frames.

Records hold syntax elements under their published names. What the library's readers do differently from the standard
is told at each element; qlnutil.media.inspect gives the elements by the published syntax. What the readers have to say
about a stream goes to the logger "qlnutil".

>>> sps = read_sps(bytes.fromhex("6742c00bda0a11f97011000003000100000300320f142aa0"))
>>> sps.profile_idc, sps.level_idc
(66, 11)
>>> sps.pic_width_in_mbs_minus1 * 16 + 16
160
"""
from __future__ import annotations

from dataclasses import dataclass, field

from . import _core, _show
from ._buffer import Buffer
from ._core import H264Hrd as Hrd
from ._core import H264HrdSchedule as HrdSchedule
from ._core import H264Pps as Pps
from ._core import H264SliceHeader as SliceHeader
from ._core import H264Sps as Sps
from ._units import Framing, NalUnit, Reader, boxed, to_lengths, to_start_codes, units, with_lengths, with_sizes

__all__ = ["AvcC", "Framing", "Hrd", "HrdSchedule", "NalUnit", "Pps", "Scan", "SliceHeader", "Sps", "read_avcc",
           "read_pps", "read_slice_header", "read_sps", "scan", "to_lengths", "to_start_codes"]

# Profiles whose avcC ends in chroma format and bit depths (ISO/IEC 14496-15, clause 5.3.3.1.2).
_HIGH_PROFILES = (100, 110, 122, 144)


def read_sps(data: Buffer) -> Sps:
    """Reads a sequence parameter set, from its NAL header on; a start code in front is passed over.

    Raises StreamError for another unit, and for one that breaks off.
    """
    return _core.h264_read_sps(data)


def read_pps(data: Buffer) -> Pps:
    """Reads a picture parameter set, as read_sps does."""
    return _core.h264_read_pps(data)


def read_slice_header(data: Buffer, sps: Sps, pps: Pps) -> SliceHeader:
    """Reads the header of a slice with the sets that it refers to, from the first 256 bytes of the unit.

    Reference marking is not parsed. A header that breaks off is not told: its elements then hold all ones. Raises
    StreamError for a unit that is no slice.
    """
    return _core.h264_read_slice_header(data, sps, pps)


@dataclass
class AvcC:
    """The body of an avcC box (ISO/IEC 14496-15, AVCDecoderConfigurationRecord)."""

    configurationVersion: int = 1
    AVCProfileIndication: int = 0
    profile_compatibility: int = 0
    AVCLevelIndication: int = 0
    #: Bytes of a unit's length in samples, less 1.
    lengthSizeMinusOne: int = 3
    #: Sequence parameter sets: units from the NAL header on.
    sequence_sets: list[bytes] = field(default_factory=list)
    picture_sets: list[bytes] = field(default_factory=list)
    #: What stands behind the sets, as it is: chroma format, bit depths and SPS extensions of the high profiles.
    extension: bytes = b""

    @property
    def sps(self) -> Sps | None:
        """The first sequence parameter set, read; None where there is none."""
        return read_sps(self.sequence_sets[0]) if self.sequence_sets else None

    @property
    def pps(self) -> Pps | None:
        """The first picture parameter set, read; None where there is none."""
        return read_pps(self.picture_sets[0]) if self.picture_sets else None

    @classmethod
    def of_sets(cls, sequence_sets: list[bytes], picture_sets: list[bytes]) -> AvcC:
        """The record for these units: profile, level and extension are those of the first SPS."""
        sps = read_sps(sequence_sets[0])
        extension = b""
        if sps.profile_idc in _HIGH_PROFILES:
            extension = bytes((0xFC | sps.chroma_format_idc, 0xF8 | sps.bit_depth_luma_minus8,
                               0xF8 | sps.bit_depth_chroma_minus8, 0))
        head = sequence_sets[0][1:4]
        return cls(1, head[0], head[1], head[2], 3, list(sequence_sets), list(picture_sets), extension)

    def to_dict(self) -> dict[str, object]:
        """All members; sets as hexadecimal digits."""
        return {**vars(self), "sequence_sets": [unit.hex() for unit in self.sequence_sets],
                "picture_sets": [unit.hex() for unit in self.picture_sets], "extension": self.extension.hex()}

    def write(self) -> bytes:
        """The body of the box."""
        return (bytes((self.configurationVersion, self.AVCProfileIndication, self.profile_compatibility,
                       self.AVCLevelIndication, 0xFC | self.lengthSizeMinusOne, 0xE0 | len(self.sequence_sets)))
                + with_sizes(self.sequence_sets) + bytes((len(self.picture_sets),)) + with_sizes(self.picture_sets)
                + self.extension)

    def _repr_html_(self) -> str:
        return _show.table(("member", "value"), self.to_dict().items(), "AvcC")


def read_avcc(data: Buffer) -> AvcC:
    """Reads an avcC box, or its body alone. Raises StreamError for one that breaks off."""
    box, body = boxed(data, b"avcC")
    _core.h264_read_avcc(box)
    take = Reader(body, "avcC")
    head = take.take(5)
    sequence_sets = [take.take(take.number(2)) for _ in range(take.number(1) & 0x1F)]
    picture_sets = [take.take(take.number(2)) for _ in range(take.number(1))]
    return AvcC(head[0], head[1], head[2], head[3], head[4] & 3, sequence_sets, picture_sets, take.rest())


@dataclass(frozen=True)
class Scan:
    """What the units of a frame are."""

    units: tuple[NalUnit, ...]
    #: Units that the library's own walk visits; it ends at an SEI message in practice.
    visited: int
    #: The last set of its kind on that walk; None where there is none.
    sps: Sps | None
    pps: Pps | None
    #: Their units, None for those above 1024 bytes as well.
    sps_bytes: bytes | None
    pps_bytes: bytes | None

    def _repr_html_(self) -> str:
        return _show.table(("type", "offset", "size"), self.units, "units of a frame")


def scan(frame: Buffer, framing: Framing | str = Framing.LENGTHS) -> Scan:
    """Walks the units of a frame and reads its parameter sets. Raises StreamError for a frame that is not in that form."""
    return Scan(units(frame, framing, 0, 0x1F), *_core.h264_scan(frame, with_lengths(framing)))
