"""What programs that keep something are judged by when they were ended, by a kill or with the power: the jobs, and for each
what may stand in its folder afterwards."""

import contextlib
import os
import shutil
import sqlite3
import subprocess

import runs
from fail_each_call import restore, snapshot

MOST_NUMBERS = 1000000


class Job:
    """A command, the files that it finds, and `judge(folder, said, finished)`: what is wrong, "" where nothing is."""

    def __init__(self, name, command, before, judge):
        self.name, self.command, self.before, self.judge = name, command, before, judge


class Setup:
    def __init__(self, qlnmedia, host, media):
        self.qlnmedia, self.host, self.media = (os.path.abspath(path) for path in (qlnmedia, host, media))
        self.environment = {key: value for key, value in os.environ.items()
                            if not key.startswith("QLN_") and key != "LD_PRELOAD"}
        self.environment.update(LC_ALL="C", TERM="dumb")
        runs.make_media(self.media, self.qlnmedia)
        self.checker = subprocess.Popen([self.host, "check"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                        env=self.environment)

    def close(self):
        self.checker.stdin.close()
        self.checker.wait()

    def ask(self, kind, path):
        print(kind, path, file=self.checker.stdin, flush=True)
        return self.checker.stdout.readline().rstrip("\n")

    def run(self, command, folder, **more):
        return subprocess.run(command, cwd=folder, env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=60, check=False, **more)

    # Settings and projects: numbers that are kept one after the other.

    def kept(self, name, kind, path, before, first, count):
        def judge(folder, said, finished):
            lines = said.decode().split("\n")
            last = int(lines[-2]) if len(lines) > 1 else first - 1
            answer = self.ask(kind, os.path.join(folder, path))
            number, _, messages = answer.partition(" ")
            may_be = [str(last)] + ([] if finished else [str(last + 1)]) + (["absent"] if last == 0 else [])
            if number not in may_be or messages:
                return f"holds {answer!r} where {last} was kept"
            left = [name for name in snapshot(folder) if not name.endswith("/") and name != path]
            return f"leaves {left} behind the next change" if left else ""
        command = [self.host, "write", kind, path, str(first), str(count)]
        return Job(name, command, before, judge)

    def store_with_log(self, folder):
        """A store to which another program writes through a log of its own, as it stands when that one dies."""
        restore(folder, {})
        path = os.path.join(folder, "settings.db")
        self.run([self.host, "write", "store", path, "1", "3"], folder)
        with contextlib.closing(sqlite3.connect(path)) as database:
            database.execute("PRAGMA journal_mode=WAL")
            database.execute("PRAGMA wal_autocheckpoint=0")
            database.execute("UPDATE settings SET value = value")
            database.commit()
            files = snapshot(folder)
        return {name: data for name, data in files.items() if not name.endswith("-shm")}

    def kept_jobs(self, folder, count):
        yield self.kept("a store", "store", "config/tarnwick/settings.db", {}, 1, count)
        yield self.kept("a store with a log", "store", "settings.db", self.store_with_log(folder), 4, count)
        yield self.kept("a settings file", "file", "Settings.xml", {}, 1, count)
        yield self.kept("a project", "project", "project.xml", {}, 1, count)

    # Patches: the file as it was, or as it becomes.

    def patched(self, name, arguments, files, folder, before=None):
        if before is None:
            before = {}
            for file in files:
                with open(os.path.join(self.media, file), "rb") as source:
                    before[os.path.basename(file)] = source.read()
        restore(folder, before)
        result = self.run([self.qlnmedia, *arguments], folder)
        if result.returncode != 0:
            raise RuntimeError(f"{name}: {result.stdout.decode()}")
        after = snapshot(folder)
        original = {key: data for key, data in before.items() if not key.endswith("journal")}

        def judge(place, said, finished):
            got = snapshot(place)
            journals = [key for key in got if key.endswith("-journal")]
            if journals and finished and got[journals[0]] != b"":
                return "keeps its journal"
            for journal in journals:
                told = self.run([self.qlnmedia, "recover", journal.removesuffix(".qlnmedia-journal")], place)
                if told.returncode != 0:
                    return "cannot be recovered: " + told.stdout.decode(errors="replace").strip()
                got = snapshot(place)
            shown = {key: data for key, data in got.items() if ".part" not in key}
            if finished and shown != after:
                return "is not what was told: " + ", ".join(sorted(shown.keys() ^ after.keys()) or ["other bytes"])
            if arguments[0] == "recover":
                return "" if shown == after else "is not put back"
            made = after.keys() - original.keys()
            if made & shown.keys() not in (set(), made):
                return "has made a part: " + ", ".join(sorted(made & shown.keys()))
            for key in shown.keys() | original.keys():
                if shown.get(key) not in (original.get(key), after.get(key)):
                    return f"has half of {key}" if key in shown else f"loses {key}"
            return ""
        return Job(name, [self.qlnmedia, *arguments], before, judge)

    def patch_jobs(self, folder):
        colour = ["--colour", "bt709", "--full-range"]
        yield self.patched("patch to a new file", ["patch", "a.mp4", "out.mp4", *colour], ["a.mp4"], folder)
        with open(os.path.join(self.media, "a.ts"), "rb") as old, open(os.path.join(self.media, "a.mkv"), "rb") as new:
            before = {"a.mkv": new.read(), "out.mkv": old.read()}
        yield self.patched("patch over a file", ["patch", "--force", "a.mkv", "out.mkv", *colour], [], folder, before)
        yield self.patched("patch in place", ["patch", "a.mp4", "--in-place", *colour], ["a.mp4"], folder)
        yield self.patched("patch in place, same size", ["patch", "captioned.mp4", "--in-place", "--level", "4"],
                           ["captioned.mp4"], folder)
        hls = {os.path.join("hls", key): data for key, data in snapshot(os.path.join(self.media, "hls")).items()}
        yield self.patched("patch to a folder", ["patch", "--segments", "hls", "out", *colour], [], folder, {"hls/": b"", **hls})
        yield self.patched("captions to a file", ["captions", "captioned.mp4", "-o", "out.srt"], ["captioned.mp4"], folder)


@contextlib.contextmanager
def scratch_folder(path):
    shutil.rmtree(path, ignore_errors=True)
    os.makedirs(path)
    yield path
    shutil.rmtree(path, ignore_errors=True)
