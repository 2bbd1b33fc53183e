"""What a stream shall say, in the forms in which people write it."""
from __future__ import annotations

import dataclasses
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from fractions import Fraction
from typing import Any


@dataclass(frozen=True)
class Hdr:
    """HDR10 values: a mastering display and a content light level, each or both."""

    #: "p3", "bt2020" (1000 and 0.0001 cd/m2 both), or "G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)" in units of 0.00002, and of
    #: 0.0001 cd/m2.
    mastering: str | None = None
    #: (MaxCLL, MaxFALL) in cd/m2, or "MAX,AVERAGE".
    light_level: str | Sequence[int] | None = None


@dataclass(frozen=True, kw_only=True)
class Changes:
    """What a stream shall say; what is None or False stays as it is. MPEG-2 streams take captions and nothing else."""

    #: A name (bt709, bt601-525, bt601-625, bt2020-pq, bt2020-hlg, p3-pq), "P:T:M", or the three codes of ITU-T H.273.
    colour: str | Sequence[int] | None = None
    full_range: bool | None = None
    #: Mastering display and content light level; a text is a mastering display.
    hdr: Hdr | str | None = None
    #: Of the first picture in presentation order: "HH:MM:SS:FF", ";" for drop-frame.
    timecode: str | None = None
    #: film, non-drop-frame, drop-frame, pal, 50, 59.94, 60, film-drop, 23.98; None for what the rate asks for.
    timecode_type: str | None = None
    #: Frames a second to count by: "25", "30000/1001", "nominal", a number or a Fraction.
    rate: str | int | Fraction | None = None
    #: Width to height of a sample: "W:H" or a pair; 0 to 0 for unspecified.
    sample_aspect: str | Sequence[int] | None = None
    #: "4", "4.1", "1b".
    level: str | None = None
    #: "main" or "high".
    tier: str | None = None
    #: Timing of the VUI in pictures a second, with ":fixed" behind it or not.
    timing: str | None = None
    #: 0 to 5.
    chroma_location: str | int | None = None
    #: Luma samples cut off: "LEFT,RIGHT,TOP,BOTTOM" or four numbers.
    cropping: str | Sequence[int] | None = None
    #: delimiters, filler, unspecified, sei:N, sei:NAME, t35:CC, t35:CC:PPPP; words, or a text with commas.
    remove: str | Iterable[str] | None = None
    #: HEVC: True for fields of interlaced frames, False for progressive frames.
    interlaced: bool | None = None
    delimiters: bool = False
    recovery_points: bool = False
    #: Takes out the captions that the stream has.
    replace_captions: bool = False


def _joined(value: Any, separator: str) -> Any:
    if value is None or isinstance(value, str):
        return value
    if isinstance(value, Iterable):
        return separator.join(map(str, value))
    return str(value)


_SEPARATORS = {"colour": ":", "sample_aspect": ":", "cropping": ",", "remove": ",", "light_level": ",",
               "chroma_location": "", "rate": ""}


def as_options(changes: Changes | None, **given: Any) -> dict[str, Any]:
    """The changes, with what is given by name in front, as the extension takes them."""
    known = {field.name for field in dataclasses.fields(Changes)}
    unknown = set(given) - known
    if unknown:
        raise TypeError(f"there is no change {min(unknown)}")
    values = {} if changes is None else {name: getattr(changes, name) for name in known}
    values.update((name, value) for name, value in given.items() if value is not None)
    hdr = values.pop("hdr", None)
    if isinstance(hdr, str):
        hdr = Hdr(hdr)
    if hdr is not None:
        if not isinstance(hdr, Hdr):
            raise TypeError(f"hdr cannot be {hdr!r}")
        values.update(mastering=hdr.mastering, light_level=hdr.light_level)
    return {name: _joined(value, _SEPARATORS[name]) if name in _SEPARATORS else value for name, value in values.items()}
