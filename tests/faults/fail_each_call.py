"""Runs qlnmedia once for each call that can fail, with that call failing.

A run either comes to what it comes to without a fault, or says on one line what was wrong, with a status that says so,
and leaves the files as they were: the fault layer (tests/support/fault_layer.h) counts the calls and fails one.
"""

import argparse
import collections
import ctypes
import os
import re
import resource
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import runs  # noqa: E402

# Faults, by the group of calls.
FAULTS = [
    ("allocate", "ENOMEM"), ("allocate", "ENOMEM+"),
    ("open", "EIO"), ("open", "EMFILE"), ("open", "ENOSPC+"), ("open", "EINTR"),
    ("read", "EIO"), ("read", "EINTR"), ("read", "short"), ("read", "short+"),
    ("write", "EIO"), ("write", "ENOSPC+"), ("write", "EDQUOT"), ("write", "EINTR"), ("write", "short"),
    ("write", "short+"),
    ("sync", "EIO"), ("sync", "EDQUOT"), ("rename", "EIO"), ("rename", "ENOSPC"),
    ("truncate", "EIO"), ("truncate", "ENOSPC"), ("copy", "EIO"), ("copy", "ENOSPC"), ("copy", "short+"),
    ("map", "ENOMEM"), ("map", "ENOMEM+"), ("unlink", "EIO"), ("status", "EIO"), ("other", "EIO"), ("other", "ENOMEM"),
    ("clock", "EINVAL"), ("clock", "EINVAL+"), ("thread", "EAGAIN"),
    ("write", "kill"), ("rename", "kill"), ("sync", "kill"), ("unlink", "kill"),
]
SECONDS = 20
MOST_MARKS = 1 << 20
WHERE_BYTES = 4096
# What a line may say of a fault; %s stands for the name of the call's error.
SAYS = {
    "ENOMEM": r"out of memory|[Cc]annot allocate memory|temporarily unavailable|cannot|could not", "EIO": r"Input/output error|I/O error|cannot|could not|disk",
    "EMFILE": r"Too many open files|cannot|could not|unable", "ENOSPC": r"No space left|cannot|could not|full|unable",
    "EDQUOT": r"quota|cannot|could not", "EINTR": r"Interrupted|cannot|could not|unable", "EAGAIN": r"unavailable|thread|process",
}


class Outcome:
    def __init__(self, status, out, err, files):
        self.status, self.out, self.err, self.files = status, out, err, files


def snapshot(folder):
    files = {}
    for root, folders, names in os.walk(folder):
        for name in folders:
            files[os.path.relpath(os.path.join(root, name), folder) + "/"] = b""
        for name in names:
            path = os.path.join(root, name)
            with open(path, "rb") as file:
                files[os.path.relpath(path, folder)] = file.read()
    return files


def restore(folder, files):
    """Makes a folder hold just these files."""
    # The folder itself stays: it is somebody's working folder.
    os.makedirs(folder, exist_ok=True)
    for entry in os.scandir(folder):
        shutil.rmtree(entry.path) if entry.is_dir(follow_symlinks=False) else os.remove(entry.path)
    for name, data in sorted(files.items()):
        path = os.path.join(folder, name)
        if name.endswith("/"):
            os.makedirs(path, exist_ok=True)
            continue
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)


def same_addresses():
    """Loads what comes to the same places each time, so that marks of one server are those of another."""
    no_random_addresses = 0x0040000
    ctypes.CDLL(None).personality(no_random_addresses)


class Server:
    """qlnmedia with the layer in front of it, ready to be run."""

    def __init__(self, setup, run, place):
        self.setup, self.run = setup, run
        self.folder = os.path.join(place, "run")
        self.streams = os.path.join(place, "stream-")
        self.share = os.path.join(place, "share")
        self.process = None
        os.makedirs(place, exist_ok=True)
        media = {}
        for name in run.files:
            path = os.path.join(setup.media, name)
            if os.path.isdir(path):
                media.update({os.path.join(name, key): value for key, value in snapshot(path).items()})
                media[name + "/"] = b""
            else:
                with open(path, "rb") as file:
                    media[name] = file.read()
        self.before = media
        restore(self.folder, self.before)
        if os.path.exists(self.streams + "in"):
            os.remove(self.streams + "in")
        if run.stdin is not None:
            os.mkfifo(self.streams + "in")
        if run.prepare == "cut off":
            self.cut_off()
        self.start(run.arguments)

    def start(self, arguments):
        self.stop()
        requests_in, requests_out = os.pipe()
        answers_in, answers_out = os.pipe()
        environment = dict(self.setup.environment, XDG_CONFIG_HOME=os.path.join(self.folder, "config"),
                           QLN_FAULT_CONTROL=f"{requests_in},{answers_out}", QLN_FAULT_SHARE=self.share,
                           QLN_FAULT_STREAMS=self.streams, LD_PRELOAD=self.setup.layer)
        self.process = subprocess.Popen([self.setup.qlnmedia, *arguments], cwd=self.folder, env=environment,
                                        pass_fds=(requests_in, answers_out), stdin=subprocess.DEVNULL,
                                        preexec_fn=same_addresses)
        os.close(requests_in)
        os.close(answers_out)
        self.requests = os.fdopen(requests_out, "w")
        self.answers = os.fdopen(answers_in)

    def stop(self):
        if self.process is not None:
            self.requests.close()
            self.process.wait()
            self.answers.close()
            self.process = None

    def cut_off(self):
        """Leaves the journal of a change in place that was killed."""
        self.start(["patch", "a.mp4", "--in-place", "--colour", "bt709"])
        counted = self.once("sync", "none", 0)[1]
        for at in range(1, counted + 1):
            restore(self.folder, self.before)
            self.once("sync", "kill", at)
            after = snapshot(self.folder)
            if len(after) > len(self.before) and after["a.mp4"] != self.before["a.mp4"]:
                self.before = after
                return
        raise RuntimeError("no kill left a journal")

    def once(self, group, effect, at):
        """Raw wait status, calls, and whether the fault came about. The folder is as it was left before."""
        feeder = None
        if self.run.stdin is not None:
            with open(os.path.join(self.setup.media, self.run.stdin), "rb") as file:
                data = file.read()
            def feed():
                try:
                    with open(self.streams + "in", "wb", buffering=0) as pipe:
                        pipe.write(data)
                except OSError:
                    pass
            feeder = threading.Thread(target=feed)
            feeder.start()
        print(group, effect, at, SECONDS * 1000, file=self.requests, flush=True)
        status, count, fired = self.answers.readline().split()
        if feeder is not None:
            feeder.join()
        return int(status), int(count), int(fired)

    def outcome(self, group="allocate", effect="none", at=0):
        restore(self.folder, self.before)
        status, count, fired = self.once(group, effect, at)
        with open(self.streams + "out", "rb") as file:
            out = file.read()
        with open(self.streams + "err", "rb") as file:
            err = file.read()
        return Outcome(status, out, err, snapshot(self.folder)), count, fired

    def marks(self, count):
        with open(self.share, "rb") as file:
            file.seek(16 + WHERE_BYTES)
            data = file.read(8 * min(count, MOST_MARKS))
        return struct.unpack(f"<{len(data) // 8}Q", data)

    def where(self):
        with open(self.share, "rb") as file:
            file.seek(16)
            return file.read(WHERE_BYTES).split(b"\0")[0].decode()


def steady(text, folder):
    """A text without what differs from run to run."""
    text = text.replace(folder.encode(), b"FOLDER")
    return re.sub(rb"\.\d+(-\d+)?\.part", b".N.part", text)


def judge(server, run, plain, got, group, effect, fired):
    """What is wrong with the outcome of a run in which a call failed; empty where nothing is."""
    name = effect.rstrip("+")
    if got.status == -1:
        return "hangs"
    if name == "kill":
        return judge_killed(server, run, plain, got)
    if got.status & 0x7F:
        return f"ends by signal {got.status & 0x7F}"
    status = got.status >> 8
    same = (got.status == plain.status and got.out == plain.out and got.files == plain.files and
            steady(got.err, server.folder) == steady(plain.err, server.folder))
    if same:
        return ""
    # Where standard error refuses the line, nobody can read it.
    if status == plain.status >> 8 and status != 0 and group == "write" and got.files == plain.files:
        return ""
    if status == plain.status >> 8:
        if got.files != plain.files:
            return "succeeds with other files: " + ", ".join(changed(plain.files, got.files))
        if got.out != plain.out:
            return "succeeds with another output"
        return "succeeds, and says: " + got.err.decode(errors="replace").strip()
    if name == "short":
        return "does not go on behind a short read or write: " + got.err.decode(errors="replace").strip()
    if name == "EINTR" and group in ("read", "write", "copy") and not run.several:
        return "does not take up an interrupted call again: " + got.err.decode(errors="replace").strip()
    if status != 1:
        return f"ends with {status}: " + got.err.decode(errors="replace").strip()
    lines = got.err.decode(errors="replace").splitlines()
    known = plain.err.decode(errors="replace").splitlines()
    # The C library's own last line, in front of the program's.
    said = [line for line in lines if line not in known and not line.startswith("Fatal glibc error: failed to register")]
    # Where standard error refuses the line, nobody can read it.
    silent = group in ("write", "allocate") and not said and name != "ENOMEM"
    if (len(said) != 1 and not (run.several and said)) and not silent:
        return f"says {len(said)} lines: " + " | ".join(said)
    if said and not said[0].startswith("qlnmedia: "):
        return "says what is not its own: " + said[0]
    if said and group == "allocate" and "out of memory" not in said[-1]:
        return "does not say that memory ran out: " + said[0]
    if said and name in SAYS and not re.search(SAYS[name], said[-1]):
        return "does not say what failed: " + said[0]
    if not run.several and not plain.out.startswith(got.out):
        return "prints what it does not print otherwise"
    return judge_files(server, run, plain, got)


def changed(before, after):
    return [name for name in sorted(before.keys() | after.keys()) if before.get(name) != after.get(name)]


def judge_files(server, run, plain, got):
    if got.files in (server.before, plain.files):
        return ""
    if run.several and all(got.files[name] in (server.before.get(name), plain.files.get(name)) for name in got.files) and \
            set(got.files) >= set(server.before):
        return ""
    left = [name for name in changed(server.before, got.files) if got.files.get(name) != plain.files.get(name)]
    # A store without anything in it, and the folders on the way to one.
    left = [name for name in left if not (name == "config/tarnwick/settings.db" and got.files.get(name) == b"")]
    if not left and server.run.prepare is None:
        return ""
    # A change in place that could not be put back has its journal.
    if any("journal" in name for name in got.files if "config" not in name):
        return judge_recovery(server, plain, got)
    return "leaves " + ", ".join(left)


def judge_recovery(server, plain, got):
    result = subprocess.run([server.setup.qlnmedia, "recover", "a.mp4" if "a.mp4" in got.files else "captioned.mp4"],
                            cwd=server.folder, env=server.setup.environment, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, timeout=60)
    after = snapshot(server.folder)
    original = {name: data for name, data in server.before.items() if "journal" not in name}
    if result.returncode != 0:
        return "cannot be recovered: " + result.stdout.decode(errors="replace").strip()
    if after not in (original, plain.files):
        return "is not recovered: " + ", ".join(changed(original, after))
    return ""


def judge_killed(server, run, plain, got):
    """Nothing that was there is lost or half changed; what is left has a name that nobody takes for an output."""
    if any("journal" in name and "config" not in name for name in got.files):
        return judge_recovery(server, plain, got)
    for name, data in server.before.items():
        if got.files.get(name) not in (data, plain.files.get(name)):
            return f"a kill loses or changes {name}"
    for name in changed(server.before, got.files):
        hidden = name.startswith((".", "config/")) or ".part" in name or name.startswith("UserMetadata.xml.")
        if got.files.get(name) != plain.files.get(name) and not hidden:
            return f"a kill leaves {name}"
    return ""


def places(count, marks, every, seen):
    """The calls to fail: all of them, or the first and the last of each place that calls and was not seen before."""
    if every or not marks:
        return list(range(1, count + 1))
    first, last = {}, {}
    for n, mark in enumerate(marks, 1):
        first.setdefault(mark, n)
        last[mark] = n
    new = [mark for mark in first if mark not in seen]
    return sorted({first[mark] for mark in new} | {last[mark] for mark in new})


def spread(list_of_places, most):
    if most and len(list_of_places) > most:
        step = len(list_of_places) / most
        return [list_of_places[int(i * step)] for i in range(most)]
    return list_of_places


class Setup:
    def __init__(self, options):
        self.qlnmedia, self.layer = os.path.abspath(options.qlnmedia), os.path.abspath(options.layer)
        self.media = os.path.abspath(options.media)
        self.environment = {key: value for key, value in os.environ.items()
                            if not key.startswith("QLN_") and key not in ("LD_PRELOAD", "HOME")}
        self.environment.update(LC_ALL="C", HOME="/nonexistent", TERM="dumb")
        runs.make_media(self.media, self.qlnmedia)
        self.environment["QLN_FAULT_WARM"] = ":".join(self.libraries())

    def libraries(self):
        """What libavformat brings along, but for libav itself, which the program shall load itself."""
        listed = subprocess.run(["ldd", self.qlnmedia], stdout=subprocess.PIPE, text=True).stdout
        own = set(re.findall(r"=> (\S+)", listed))
        try:
            cache = subprocess.run(["/sbin/ldconfig", "-p"], stdout=subprocess.PIPE, text=True).stdout
            formats = re.search(r"=> (\S*/libavformat\.so\.\d+)$", cache, re.M).group(1)
        except (OSError, AttributeError):
            return []
        listed = subprocess.run(["ldd", formats], stdout=subprocess.PIPE, text=True).stdout
        found = [path for path in re.findall(r"=> (\S+)", listed) if path not in own]
        libav = re.compile(r"lib(av|sw|postproc)")
        needy = subprocess.run(["ldd", *found], stdout=subprocess.PIPE, text=True).stdout if found else ""
        drags, current = set(), ""
        for line in needy.splitlines():
            if not line.startswith("\t"):
                current = line.rstrip(":")
            elif libav.search(line.strip()):
                drags.add(current)
        return [path for path in found if path not in drags and not libav.match(os.path.basename(path))]


class Report:
    def __init__(self, options):
        self.options = options
        self.lock = threading.Lock()
        self.runs = 0
        self.fired = 0
        self.findings = []
        self.kinds = collections.Counter()
        self.seen = {}

    def add(self, run, group, effect, at, count, fired, finding, where):
        with self.lock:
            self.runs += 1
            self.fired += fired
            self.kinds[group] += 1
            if finding:
                self.findings.append((run.name, group, effect, at))
                text = f"{run.name}: {group} {effect} {at}/{count}: {finding}"
                print(text, flush=True)
                if self.options.where:
                    print("    " + where.replace("\n", "\n    "), flush=True)


def work(setup, options, report, todo, place):
    while True:
        with report.lock:
            if not todo or time.monotonic() > options.until:
                return
            run = todo.pop(0)
        server = Server(setup, run, place)
        try:
            work_on(server, run, options, report)
        except Exception as error:  # noqa: BLE001: a run that breaks the server is a finding
            report.add(run, "any", "any", 0, 0, 0, f"breaks the server: {error!r}", "")
        finally:
            server.stop()


def work_on(server, run, options, report):
    plain = server.outcome()[0]
    again = server.outcome()[0]
    if plain.status & 0x7F or plain.status >> 8 not in run.expected:
        report.add(run, "none", "none", 0, 0, 0, f"ends with {plain.status} without a fault: "
                   + plain.err.decode(errors="replace"), "")
        return
    if (plain.out, plain.files) != (again.out, again.files):
        report.add(run, "none", "none", 0, 0, 0, "differs without a fault", "")
        return
    counts = {}
    for group, effect in FAULTS:
        if options.group and group not in options.group:
            continue
        if options.effect and effect not in options.effect:
            continue
        if group not in counts:
            count = server.outcome(group)[1]
            counts[group] = (count, server.marks(count))
        count, marks = counts[group]
        # What allocates while options are read does so in every command.
        seen = report.seen.setdefault((group, effect), set()) if group == "allocate" else set()
        todo = spread(places(count, marks, options.every, seen), options.sample) if not options.at else [options.at]
        seen.update(marks)
        for at in todo:
            if time.monotonic() > options.until:
                return
            got, _, fired = server.outcome(group, effect, at)
            finding = judge(server, run, plain, got, group, effect, fired) if fired else ""
            report.add(run, group, effect, at, count, fired, finding, server.where() if finding else "")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--qlnmedia", required=True)
    parser.add_argument("--layer", required=True, help="the fault layer's shared object")
    parser.add_argument("--media", required=True, help="the folder of the small files; they are made where they are not there")
    parser.add_argument("--every", action="store_true", help="fail every call, not the first and the last of each place that calls")
    parser.add_argument("--sample", type=int, default=0, help="at most so many calls of each kind")
    parser.add_argument("--runs", default="", help="only command lines whose names match this")
    parser.add_argument("--group", action="append", help="only faults of this group")
    parser.add_argument("--effect", action="append", help="only this effect")
    parser.add_argument("--at", type=int, default=0, help="only this call")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--seconds", type=float, default=1e9, help="begin nothing behind that time")
    parser.add_argument("--where", action="store_true", help="show who called")
    parser.add_argument("--stride", type=int, default=1, help="only every so many of the command lines")
    options = parser.parse_args()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    options.until = time.monotonic() + options.seconds
    setup = Setup(options)
    report = Report(options)
    todo = [run for run in runs.all_runs() if re.search(options.runs, run.name)][::options.stride]
    command_lines = len(todo)
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # each run flushes what it writes
    with tempfile.TemporaryDirectory(prefix="qln-faults-", dir=memory) as place:
        threads = [threading.Thread(target=work, args=(setup, options, report, todo, os.path.join(place, str(i))))
                   for i in range(options.jobs)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    print(f"{command_lines} command lines, {report.runs} runs, {report.fired} faults that came about, "
          f"{len(report.findings)} findings")
    print(", ".join(f"{group} {count}" for group, count in sorted(report.kinds.items())))
    return 1 if report.findings or report.fired == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
