"""Caption files (.scc, .mcc) as the triplets of pictures, such triplets as files, and as text.

>>> track = CaptionTrack(Fraction(30), pictures={0: [Triplet(True, 0, 0x94, 0x20)]})
>>> read(track.to_scc()).pictures[0][0]
Triplet(valid=True, type=0, first=148, second=32)
"""
from __future__ import annotations

import os
import tempfile
from collections.abc import Mapping, Sequence
from dataclasses import dataclass, field
from fractions import Fraction
from typing import Any, NamedTuple

from . import _core, _show
from ._buffer import Buffer


class Triplet(NamedTuple):
    """One caption triplet of CTA-708: cc_valid, cc_type and two bytes; line 21 bytes with their parity."""

    valid: bool
    #: 0 and 1 line 21 of field 1 and 2, 2 caption channel data, 3 caption channel packet start.
    type: int
    first: int
    second: int


@dataclass
class CaptionTrack:
    """The captions of pictures, by the number of the picture from the label 00:00:00:00."""

    #: Pictures a second: 24000/1001, 24, 25, 30000/1001, 30, 50, 60000/1001 or 60.
    rate: Fraction
    #: Labels leave numbers out.
    drop_frame: bool = False
    #: At most 31 triplets a picture; pictures without captions are left out.
    pictures: dict[int, list[Triplet]] = field(default_factory=dict)

    def _values(self) -> tuple[int, int, bool, list[tuple[int, Sequence[Triplet]]]]:
        rate = Fraction(self.rate)
        return rate.numerator, rate.denominator, self.drop_frame, sorted(self.pictures.items())

    def to_mcc(self) -> bytes:
        """The text of a .mcc file. Raises Error for a rate that there is none of, and for too many triplets."""
        return _core.caption_bytes(*self._values(), False)

    def to_scc(self) -> bytes:
        """The text of a .scc file: line 21, field 1."""
        return _core.caption_bytes(*self._values(), True)

    def write(self, path: str | os.PathLike[str]) -> None:
        """Writes a .mcc or .scc file, by the path's ending; it is there when it is whole."""
        name = os.fspath(path)
        if not name.lower().endswith((".mcc", ".scc")):
            raise ValueError(f"{name} ends in neither .mcc nor .scc")
        text = self.to_scc() if name.lower().endswith(".scc") else self.to_mcc()
        handle, beside = tempfile.mkstemp(dir=os.path.dirname(name) or ".", prefix=".captions-")
        try:
            with os.fdopen(handle, "wb") as file:
                file.write(text)
            umask = os.umask(0)
            os.umask(umask)
            os.chmod(beside, 0o666 & ~umask)
            os.replace(beside, name)
        except BaseException:
            os.unlink(beside)
            raise

    def services(self) -> dict[str, list[tuple[float, float, str]]]:
        """The text of each service: (begin, end, text) in seconds from number 0.

        "CC1" to "CC4" and "service 1" to "service 63"; text services and extended data without lines.
        """
        return {name: lines for name, lines in _core.caption_texts(*self._values())}

    def text(self, service: str | None = None) -> str:
        """The lines of one service, by default of the first that has some; empty where there is none."""
        services = self.services()
        lines = services[service] if service is not None else next(filter(None, services.values()), [])
        return "\n".join(line[2] for line in lines)

    def _repr_html_(self) -> str:
        rows = [(name, f"{begin:.3f}", f"{end:.3f}", text)
                for name, lines in self.services().items() for begin, end, text in lines]
        return _show.table(("service", "begin", "end", "text"), rows, f"{len(self.pictures)} pictures with captions")


def _track(found: tuple[int, int, bool, list[tuple[int, list[tuple[bool, int, int, int]]]]]) -> CaptionTrack:
    numerator, denominator, drop_frame, pictures = found
    return CaptionTrack(Fraction(numerator, denominator), drop_frame,
                        {number: [Triplet(*one) for one in triplets] for number, triplets in pictures})


def read(data: Buffer | str | os.PathLike[str]) -> CaptionTrack:
    """Reads a .scc or .mcc file: a path, or its bytes. Raises Error for any other text, and for damaged packets."""
    if isinstance(data, (str, os.PathLike)):
        with open(data, "rb") as file:
            return _track(_core.parse_captions(file.read(), os.fspath(data)))
    return _track(_core.parse_captions(data, ""))


def of_file(path: str | bytes | os.PathLike[Any], rate: str = "") -> CaptionTrack:
    """The triplets of each picture of a media file, its first picture having the number 0.

    rate as for qlnutil.media.captions. Raises NotApplicable for a file without captions.
    """
    return _track(_core.parse_captions(_core.file_caption_bytes(path, rate), os.fsdecode(path)))
