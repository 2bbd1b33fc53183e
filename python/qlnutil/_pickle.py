"""How records travel between processes."""
from __future__ import annotations

from . import _core


def restore(kind: type[_core.Record], memory: bytes) -> _core.Record:
    """A record of a class from its bytes. Raises ValueError where they are none of it."""
    return _core.restore_record(kind, memory)
