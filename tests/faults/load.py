"""What many at once, too little memory and inputs that change under the hand come to: a result, or one clear line."""

import argparse
import contextlib
import os
import random
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import runs  # noqa: E402

CHANGE = ["--colour", "bt709", "--full-range"]


def store_load(options, place):
    """Writers and readers of one store, each a process."""
    path = os.path.join(place, "settings.db")
    def start(what, number):
        return subprocess.Popen([options.host, "spin", what, path, str(options.seconds), str(number), str(options.writers)],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    processes = {what: [start(what, number) for number in range(options.writers)] for what in ("write", "read")}
    findings, figures = [], {}
    for what, started in processes.items():
        calls = longest = 0
        for process in started:
            out, err = process.communicate(timeout=options.seconds + 120)
            if process.returncode != 0 or err:
                findings.append(f"a process that {what}s ends with {process.returncode}: {out.strip()} {err.strip()}")
                continue
            count, milliseconds = (int(number) for number in out.split())
            calls += count
            longest = max(longest, milliseconds)
        figures[what] = (calls, longest)
    left = [name for name in os.listdir(place) if name != "settings.db"]
    if left:
        findings.append(f"left behind: {left}")
    (changes, longest_change), (reads, longest_read) = figures["write"], figures["read"]
    return findings, (f"{options.writers} writers and {options.writers} readers for {options.seconds} s: {changes} changes, the "
                      f"longest {longest_change} ms; {reads} reads, the longest {longest_read} ms")


# Memory for all processes together.

@contextlib.contextmanager
def memory_group(size):
    """A control group of so many bytes, the old kind or the new; None where there is none to be had."""
    for base, limit, peak in [("/sys/fs/cgroup/memory", "memory.limit_in_bytes", "memory.max_usage_in_bytes"),
                              ("/sys/fs/cgroup", "memory.max", "memory.peak")]:
        group = os.path.join(base, f"qln-load-{os.getpid()}")
        try:
            os.mkdir(group)
        except OSError:
            continue
        try:
            with open(os.path.join(group, limit), "w") as file:
                file.write(str(size))
        except OSError:
            os.rmdir(group)
            continue
        try:
            yield group, os.path.join(group, peak)
        finally:
            for _ in range(100):
                with contextlib.suppress(OSError):
                    os.rmdir(group)
                    break
                time.sleep(0.05)
        return
    yield None


def many_patches(options, place):
    """Patches at once, in memory that is short."""
    kinds = ["a.mp4", "f.mp4", "a.mov", "a.ts", "a.mkv", "a.mxf", "a.h264"]
    files = [kinds[number % len(kinds)] for number in range(options.patches)]
    expected = {}
    for name in kinds:
        out = os.path.join(place, "plain" + os.path.splitext(name)[1])
        subprocess.run([options.qlnmedia, "patch", os.path.join(options.media, name), out, *CHANGE], check=True,
                       stdout=subprocess.DEVNULL)
        with open(out, "rb") as file:
            expected[name] = file.read()
        os.remove(out)
    with memory_group(options.memory << 20) as group:
        share = (options.memory << 20) // options.patches
        def confine():
            if group is None:
                resource.setrlimit(resource.RLIMIT_DATA, (share, share))
                return
            with open(os.path.join(group[0], "cgroup.procs"), "w") as file:
                file.write(str(os.getpid()))
        began = time.monotonic()
        processes = []
        for number, name in enumerate(files):
            out = os.path.join(place, f"{number}{os.path.splitext(name)[1]}")
            processes.append((name, out, subprocess.Popen(
                [options.qlnmedia, "patch", os.path.join(options.media, name), out, *CHANGE], stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, preexec_fn=confine)))
        findings, done = [], 0
        for name, out, process in processes:
            told = process.communicate(timeout=600)[1]
            whole = os.path.exists(out) and open(out, "rb").read() == expected[name]
            if process.returncode == 0 and whole:
                done += 1
            elif process.returncode != 1 or told.count("\n") != 1 or os.path.exists(out):
                findings.append(f"patch of {name} ends with {process.returncode}: {told.strip()}")
        seconds = time.monotonic() - began
        peak = ""
        if group is not None and os.path.exists(group[1]):
            with open(group[1]) as file:
                peak = f", {int(file.read()) >> 20} MB at the most"
    where = f"{options.memory} MB for all" if group is not None else f"{share >> 20} MB of data for each, since no control group can be made"
    if done != options.patches and group is not None:
        findings.append(f"{options.patches - done} had no memory")
    left = [name for name in os.listdir(place) if ".part" in name]
    if left:
        findings.append(f"left behind: {left}")
    return findings, f"{options.patches} patches at once in {where}: {done} done in {seconds:.0f} s{peak}"


# Inputs that stall, end early or grow.

def make_long(options, place):
    """Files that take a while to read."""
    made = {}
    for name in ["a.mp4", "a.ts", "a.mkv", "a.h264"]:
        made[name] = os.path.join(place, name)
        if name.endswith(".h264"):  # pictures that begin anew again and again
            with open(os.path.join(options.media, name), "rb") as file, open(made[name], "wb") as out:
                out.write(file.read() * 3000)
            continue
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-stream_loop", "3000", "-i", os.path.join(options.media, name), "-c", "copy",
                        "-fflags", "+bitexact", made[name]], check=True, stdin=subprocess.DEVNULL, timeout=120)
    return made


def told(run, out, err, allowed=(0, 3)):
    """What is wrong with how a command ended; "" where it told a result, or what was wrong in one line."""
    if run.returncode in allowed:
        return ""
    # 4: what was asked for is not there, as captions.
    if run.returncode in (1, 4) and len(re.findall(r"(?m)^qlnmedia: ", err)) == 1:
        return ""
    return f"ends with {run.returncode}: {err.strip()[-300:]}"


def stalled(options, files):
    """Pipes that stall: for a moment, and for good."""
    findings, count = [], 0
    for name in ["a.ts", "a.mkv", "a.h264"]:
        with open(os.path.join(options.media, name), "rb") as file:
            data = file.read()
        for command in (["inspect", "-"], ["check", "-"], ["captions", "-"]):
            def feed(run, pause):
                try:
                    run.stdin.write(data[:len(data) // 2])
                    run.stdin.flush()
                    if pause is None:
                        run.wait(timeout=30)
                    time.sleep(pause or 0)
                    run.stdin.write(data[len(data) // 2:])
                    run.stdin.close()
                except (BrokenPipeError, subprocess.TimeoutExpired):
                    pass
            results = []
            for pause, more in ((0, []), (0.7, []), (None, ["--max-seconds", "1"])):
                run = subprocess.Popen([options.qlnmedia, *more, *command], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE)
                feeder = threading.Thread(target=feed, args=(run, pause))
                feeder.start()
                out, err = run.stdout.read(), run.stderr.read().decode(errors="replace")
                run.wait(timeout=60)
                feeder.join()
                count += 1
                results.append((run.returncode, out, err))
                finding = told(run, out, err)
                if finding:
                    findings.append(f"{' '.join(command)} of {name} in a pipe that stalls: {finding}")
            if results[0] != results[1]:
                findings.append(f"{' '.join(command)} of {name}: a pipe that stalls for a moment changes the result")
            if results[2][0] != 1 or "stopped after 1 seconds" not in results[2][2]:
                findings.append(f"{' '.join(command)} of {name}: a pipe that stalls for good is waited for: {results[2]}")
    return findings, count


def changed_while_read(options, files, place):
    """Files that are cut or grow in the middle of a run."""
    findings, count, refused = [], 0, 0
    draw = random.Random(options.seed)
    for name, path in files.items():
        with open(path, "rb") as file:
            data = file.read()
        out = os.path.join(place, "out" + os.path.splitext(name)[1])
        forms = {"cut": data[:len(data) // 2], "grown": data + data[-len(data) // 4:]}
        for command in (["inspect", path], ["check", path], ["captions", path], ["patch", path, out, *CHANGE]):
            begun = time.monotonic()
            subprocess.run([options.qlnmedia, *command], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
            length = time.monotonic() - begun
            outputs = set()
            if command[0] == "patch":
                for form in (data, *forms.values()):
                    with open(path, "wb") as file:
                        file.write(form)
                    with contextlib.suppress(FileNotFoundError):
                        os.remove(out)
                    subprocess.run([options.qlnmedia, *command], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
                    if os.path.exists(out):
                        with open(out, "rb") as file:
                            outputs.add(file.read())
            for what in list(forms) * options.changes:
                with open(path, "wb") as file:
                    file.write(data)
                with contextlib.suppress(FileNotFoundError):
                    os.remove(out)
                run = subprocess.Popen([options.qlnmedia, *command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE)
                time.sleep(length * draw.uniform(0.1, 0.9))
                if what == "cut":
                    os.truncate(path, len(data) // 2)
                else:
                    with open(path, "ab") as file:
                        file.write(forms[what][len(data):])
                printed, err = run.communicate(timeout=60)
                count += 1
                refused += run.returncode == 1
                finding = told(run, printed, err.decode(errors="replace"))
                if not finding and command[0] == "patch":
                    there = os.path.exists(out)
                    if there != (run.returncode == 0):
                        finding = f"ends with {run.returncode}, and its output is {'' if there else 'not '}there"
                    elif there and open(out, "rb").read() not in outputs:
                        finding = "writes what is neither of the file before nor of the one after"
                if finding:
                    findings.append(f"{command[0]} of {name}, which is {what} meanwhile: {finding}")
        with open(path, "wb") as file:
            file.write(data)
    left = [name for name in os.listdir(place) if ".part" in name]
    if left:
        findings.append(f"left behind: {left}")
    return findings, f"{count} runs over files that were cut or grew, {refused} refused"


def odd_inputs(options, place):
    files = make_long(options, place)
    findings, pipes = stalled(options, files)
    more, text = changed_while_read(options, files, place)
    return findings + more, f"{pipes} pipes that stalled; {text}"


STAGES = {"store": store_load, "patches": many_patches, "inputs": odd_inputs}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("stages", nargs="*", default=list(STAGES), help=", ".join(STAGES))
    parser.add_argument("--qlnmedia", required=True)
    parser.add_argument("--host", required=True, help="settings_host")
    parser.add_argument("--media", required=True, help="where the small files are made")
    parser.add_argument("--place", default=None, help="a folder on the disk that is to be written to")
    parser.add_argument("--seconds", type=int, default=600, help="of the load on one store")
    parser.add_argument("--writers", type=int, default=8)
    parser.add_argument("--patches", type=int, default=200)
    parser.add_argument("--memory", type=int, default=2048, help="megabytes for all patches together")
    parser.add_argument("--changes", type=int, default=20, help="of each file in each command, in each way")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    for name in ("qlnmedia", "host", "media"):
        setattr(options, name, os.path.abspath(getattr(options, name)))
    runs.make_media(options.media, options.qlnmedia)
    failed = False
    for stage in options.stages:
        place = tempfile.mkdtemp(prefix="qln-load-", dir=options.place and os.path.abspath(options.place))
        try:
            findings, figures = STAGES[stage](options, place)
        finally:
            shutil.rmtree(place, ignore_errors=True)
        for finding in findings[:8]:
            print(finding)
        print(f"load: {figures}, {len(findings)} findings", flush=True)
        failed = failed or bool(findings)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
