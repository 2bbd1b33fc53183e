"""How a transport position moves: speeds, positions, and the counter between an in point and an out point.

One frame has 65520 units, and a speed of 65520 is plain forward play; sums and products wrap at 32 bits.

>>> counter = Counter()
>>> counter.set_range(10, 13)
>>> counter.set_speed(Speed())
>>> counter.go_to(10)
>>> [counter.step() for _ in range(4)]
[11, 12, 10, 11]
"""
from ._core import NO_SPEED, PLAY, Counter, Position, Speed
from . import _core

__all__ = ["NO_SPEED", "PLAY", "Counter", "Position", "Speed", "channels", "fourcc_to_lower", "fourcc_to_upper",
           "speed_rate"]


def speed_rate(speed: int) -> int:
    """The absolute value of a speed in 1/65520 as 16.16 fixed point, truncated."""
    return _core.speed_rate(speed)


def channels(mask: int) -> list[int]:
    """The channels of a mask of 32 bits, one word with a single bit each."""
    return [_core.isolate_channel(mask, index) for index in range(_core.total_channels(mask))]


def fourcc_to_lower(fourcc: int) -> int:
    """Makes the letters A to Z among the four bytes small."""
    return _core.fourcc_to_lower(fourcc)


def fourcc_to_upper(fourcc: int) -> int:
    """Makes the letters a to z among the four bytes capital."""
    return _core.fourcc_to_upper(fourcc)
