"""Transport commands: fields, XML and JSON."""
from __future__ import annotations

import json
from dataclasses import dataclass, replace
from typing import Any

from . import _core, _show
from ._buffer import Buffer
from .formats import TimecodeType

#: The words of commands by their number, "Stop" for 0.
COMMANDS: tuple[str, ...] = tuple(_core.command_words())
#: The bits of `Flags` by their words; some have two.
FLAGS: dict[str, int] = _core.command_flag_words()
#: The size of a record; what texts say of it is not kept.
_SIZE = 4188


@dataclass(kw_only=True)
class MediaCommand:
    """One transport command; fields have the names of the record.

    >>> play = MediaCommand(Cmd=COMMANDS.index("Play"), Flags=FLAGS["usespeed"], Speed=65520)
    >>> MediaCommand.from_text(play.to_xml()).Speed
    65520
    """

    CmdID: int = 0xFA250200
    #: Channel number; -1 when none is set.
    Channel: int = -1
    #: Index into COMMANDS.
    Cmd: int = 0
    #: Bits of FLAGS.
    Flags: int = 0
    #: 65520 is plain forward play, 0x7FFFFFFF no speed.
    Speed: int = 0x7FFFFFFF
    #: Preset masks, -1 for all.
    VideoChannels: int = -1
    AudioChannels: int = -1
    InfoChannels: int = -1
    #: Second operand: state value, time or alternate value; -1 when none is set.
    CmdAlt: int = -1
    #: In frames, or fields with the flag "fields"; -1 when none is set.
    Position: int = -1
    Start: int = -1
    End: int = -1
    #: The data area from ClipID on, without the zeros at its end.
    data: bytes = b""

    @property
    def word(self) -> str:
        """The word of the command; "Unknown" for a number that is none."""
        return COMMANDS[self.Cmd] if self.Cmd < len(COMMANDS) else "Unknown"

    @property
    def clip_id(self) -> bytes:
        """At most 8 characters."""
        return self.data[:9].split(b"\0")[0]

    @property
    def file_name(self) -> bytes:
        return self.data[9:].split(b"\0")[0]

    def with_clip(self, clip_id: bytes, file_name: bytes = b"") -> MediaCommand:
        """The same command with these texts in its data area."""
        if len(clip_id) > 8 or len(file_name) > 4102 or 0 in clip_id or 0 in file_name:
            raise ValueError("a clip has at most 8 characters, a file name 4102, and neither a zero")
        return replace(self, data=(clip_id.ljust(9, b"\0") + file_name).rstrip(b"\0"))

    def to_dict(self) -> dict[str, Any]:
        return dict(vars(self))

    def to_xml(self, type: TimecodeType = TimecodeType.DROP_FRAME) -> bytes:
        """The text of an XML document; type is how points in time are written."""
        return _core.command_to_text(vars(self), "xml", type)

    def to_json(self, type: TimecodeType = TimecodeType.DROP_FRAME) -> dict[str, Any]:
        """The members of the JSON form as objects."""
        members: dict[str, Any] = json.loads(_core.command_to_text(vars(self), "json", type))
        return members

    def to_json_text(self, type: TimecodeType = TimecodeType.DROP_FRAME) -> bytes:
        """The text of the JSON form as hosts write and read it: commas stand behind all members."""
        return _core.command_to_text(vars(self), "host json", type)

    @classmethod
    def from_text(cls, text: Buffer | str, type: TimecodeType = TimecodeType.DROP_FRAME) -> MediaCommand:
        """Reads XML, or JSON where the text begins with "{". Raises Error for a text that holds no command."""
        members = _core.command_from_text(text.encode() if isinstance(text, str) else text, type)
        del members["StructSize"]
        return cls(**members)

    def _repr_html_(self) -> str:
        return _show.table(("field", "value"), self.to_dict().items(), self.word)
