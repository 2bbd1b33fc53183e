"""Clip information: descriptive metadata by tag name, in a store or in memory."""
from __future__ import annotations

import os
from collections.abc import Mapping
from typing import Any, TypeAlias

from . import _core, _show

Value: TypeAlias = "str | int"

#: The stored fields in the record's order, and whether each is a number.
FIELDS: dict[str, bool] = dict(_core.clip_info_fields())
_SPELLED = {name.lower(): name for name in FIELDS}


class ClipInfo(dict[str, "Value"]):
    """Clip information by tag name, "Title"; letters of either case are the same.

    Numbers are from 0 to 4294967294. Bytes of texts that are no UTF-8 are kept as surrogate escapes.
    """

    def __init__(self, values: Mapping[str, Value] | None = None, **more: Value) -> None:
        super().__init__()
        self.update({**(values or {}), **more})

    def __setitem__(self, name: str, value: Value) -> None:
        spelled = _SPELLED.get(name.lower())
        if spelled is None:
            raise KeyError(f"no stored field is named {name}")
        if not isinstance(value, int if FIELDS[spelled] else str):
            raise TypeError(f"{spelled} is {'a number' if FIELDS[spelled] else 'a text'}, not {value!r}")
        super().__setitem__(spelled, value)

    def __getitem__(self, name: str) -> Value:
        return super().__getitem__(_SPELLED.get(name.lower(), name))

    def update(self, values: Any = (), /, **more: Value) -> None:
        for name, value in dict(values, **more).items():
            self[name] = value

    def to_dict(self) -> dict[str, Value]:
        return dict(self)

    def _repr_html_(self) -> str:
        return _show.table(("field", "value"), self.items(), "clip information")


class ClipInfoStore:
    """A user file with clip information, or, without a path, the default store.

    Each call opens it, reads or changes it as a whole, and closes it.
    """

    def __init__(self, path: str | bytes | os.PathLike[Any] | None = None) -> None:
        self.path = path

    def read(self) -> ClipInfo:
        """All fields that hold a value. Raises Error for a file that is missing or no store."""
        return ClipInfo(_core.read_clip_info(self.path))

    def write(self, values: Mapping[str, Value | None] | None = None, **more: Value | None) -> None:
        """Changes these fields and no other, and removes those that are None; the file is made where it is missing.

        Raises Error where the store refuses; a user file is then what it was.
        """
        changes = {**(values or {}), **more}
        ClipInfo({name: value for name, value in changes.items() if value is not None})
        _core.write_clip_info(self.path, changes)
