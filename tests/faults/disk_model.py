"""What a disk may show after a cut of the power, from what a program did: the records of tests/support/power_layer.cpp.

The model promises what POSIX does and no more. Bytes and sizes of a file last when the file is flushed, names when their
folder is. What was not flushed is there, or is not, or is there in part: of bytes each sector for itself, in any order, of
names each change for itself, unless it builds on another one. A renaming within a folder is one change.
"""

import collections
import os
import struct

SECTOR = 512
MADE, WRITTEN, SIZED, FLUSHED, RENAMED, LINKED, UNLINKED, FOLDER, NO_FOLDER, SAID = range(1, 11)
# kind, bytes of two texts, reserved, the file's number, offset or size; then the texts
HEAD = struct.Struct("<IIIIQQ")
Record = collections.namedtuple("Record", "kind file place first second")


def read_records(path):
    with open(path, "rb") as file:
        data = file.read()
    at = 0
    while at < len(data):
        kind, first, second, _, file, place = HEAD.unpack_from(data, at)
        at += HEAD.size
        yield Record(kind, file, place, data[at:at + first], data[at + first:at + first + second])
        at += first + second


class File:
    def __init__(self, data=b""):
        self.lasting = data  # what a cut leaves at the least
        self.pending = []  # (offset, bytes) and (size, None), in order

    def flush(self):
        self.lasting = self.content(None)
        self.pending = []

    def content(self, keeps):
        """The bytes, with those sectors of what is pending for which `keeps` says so; all of them where it is None."""
        data = bytearray(self.lasting)
        for place, written in self.pending:
            if written is None:
                if keeps is None or keeps():
                    del data[place:]
                    data.extend(bytes(place - len(data)))
                continue
            for begin, end in sectors(place, place + len(written)):
                kept = keeps is None or keeps()
                if kept or (end > len(data) and keeps()):  # the size may last before the bytes do
                    data.extend(bytes(max(0, end - len(data))))
                if kept:
                    data[begin:end] = written[begin - place:end - place]
        return bytes(data)


def sectors(begin, end):
    while begin < end:
        stop = min(end, (begin // SECTOR + 1) * SECTOR)
        yield begin, stop
        begin = stop


class Folder:
    def __init__(self):
        self.lasting = {}  # name: File or Folder
        self.live = {}


class Change:
    """A change of names that is there as a whole or not at all: (folder, name, what it stands for)."""

    def __init__(self, *parts):
        self.parts = parts


class Disk:
    """The files below a folder, and what was done to them and not flushed."""

    def __init__(self, root):
        self.root = os.path.normpath(root)
        self.top = Folder()
        self.pending = []  # changes of names
        self.files = {}  # by their numbers
        self.said = b""
        self.load(self.root, self.top)

    def load(self, path, folder):
        """What is there in the beginning lasts."""
        for entry in os.scandir(path):
            if entry.is_dir():
                made = Folder()
                self.load(entry.path, made)
            else:
                with open(entry.path, "rb") as file:
                    made = File(file.read())
                self.files[entry.inode()] = made
            folder.lasting[entry.name] = folder.live[entry.name] = made

    def find(self, path):
        """The folder of a path below the root, and the name in it; None for any other."""
        path = os.path.normpath(os.fsdecode(path))
        if not path.startswith(self.root + "/"):
            return None
        *above, name = path[len(self.root) + 1:].split("/")
        folder = self.top
        for part in above:
            folder = folder.live[part]
        return folder, name

    def change(self, *parts):
        self.pending.append(Change(*parts))
        for folder, name, stands_for in parts:
            if stands_for is None:
                folder.live.pop(name, None)
            else:
                folder.live[name] = stands_for

    def take(self, record):
        kind = record.kind
        if kind == SAID:
            self.said += record.first
        elif kind in (WRITTEN, SIZED):
            if record.file in self.files:
                self.files[record.file].pending.append((record.place, record.first if kind == WRITTEN else None))
        elif kind == FLUSHED:
            self.flush(record)
        elif kind in (RENAMED, LINKED):
            source, target = self.find(record.first), self.find(record.second)
            if source and target:
                gone = [(*source, None)] if kind == RENAMED else []
                self.change(*gone, (*target, source[0].live[source[1]]))
        else:
            place = self.find(record.first)
            if place is None:
                return
            made = {MADE: File, FOLDER: Folder}.get(kind, lambda: None)()
            if kind == MADE:
                self.files[record.file] = made
            self.change((*place, made))

    def flush(self, record):
        if record.file in self.files and not record.first:
            self.files[record.file].flush()
        if not record.first:
            return
        path = os.path.normpath(os.fsdecode(record.first))
        place = self.find(path)
        folder = place[0].live.get(place[1]) if place else self.top if path == self.root else None
        left = []
        for change in self.pending:
            if any(one is folder for one, _, _ in change.parts):
                self.apply(change, "lasting")
            else:
                left.append(change)
        self.pending = left

    @staticmethod
    def apply(change, what):
        for folder, name, stands_for in change.parts:
            entries = what.setdefault(id(folder), dict(folder.lasting)) if isinstance(what, dict) else folder.lasting
            if stands_for is None:
                entries.pop(name, None)
            else:
                entries[name] = stands_for

    def state(self, keeps_names, keeps_bytes):
        """Path: bytes, of folders None. The two say, called for each change and each sector, whether it is there; None for
        all."""
        names = {}  # of folders whose entries differ from the lasting ones
        lost = set()  # places whose pending changes cannot be there, since one that they build on is not
        for change in self.pending:
            places = {(id(folder), name) for folder, name, _ in change.parts}
            if places & lost or not (keeps_names is None or keeps_names()):
                lost |= places
            else:
                self.apply(change, names)
        shown = {}

        def show(folder, path):
            for name, entry in sorted(names.get(id(folder), folder.lasting).items()):
                if isinstance(entry, Folder):
                    shown[path + name] = None
                    show(entry, path + name + "/")
                else:
                    shown[path + name] = entry.content(keeps_bytes)
        show(self.top, "")
        return shown

    def states(self, random, more):
        """What the disk may show now: the corners, and `more` drawn by chance."""
        def never():
            return False
        yield self.state(never, never)
        yield self.state(None, None)
        yield self.state(None, never)
        yield self.state(never, None)
        for _ in range(more):
            kept_names, kept_bytes = random.choice([0.3, 0.6, 0.9]), random.choice([0.2, 0.5, 0.9])
            yield self.state(random.choice([None, lambda: random.random() < kept_names]), self.some(random, kept_bytes))

    @staticmethod
    def some(random, share):
        """Either up to a moment, or each for itself."""
        if random.random() < 0.5:
            return lambda: random.random() < share
        left = [random.choice([1, 2, 3, 5, 8, 13, 21, 34])]

        def first_ones():
            left[0] -= 1
            return left[0] >= 0
        return first_ones
