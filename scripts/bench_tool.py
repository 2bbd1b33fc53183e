#!/usr/bin/env python3
"""The rows of scripts/bench_tool.sh, which makes the files and calls this: QLNMEDIA FOLDER ROUNDS ROWS."""

import os
import re
import statistics
import sys
import tempfile
import time

PROGRAM, FOLDER, ROUNDS, ROWS = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
CORES = os.cpu_count() or 1


class Run:
    """One whole process: seconds by the clock, seconds of the processors, and the most memory in MB."""

    def __init__(self, command):
        null = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
                (os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0),
                (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)]
        start = time.perf_counter()
        child = os.posix_spawnp(command[0], command, os.environ, file_actions=null)
        _, status, usage = os.wait4(child, 0)
        self.clock = time.perf_counter() - start
        self.processors = usage.ru_utime + usage.ru_stime
        self.memory = usage.ru_maxrss / 1024
        code = os.waitstatus_to_exitcode(status)
        if code not in (0, 3, 4):
            sys.exit(f"{' '.join(command)}: exit status {code}")


def file(name):
    return os.path.join(FOLDER, name)


def times(ratios):
    ratios = sorted(ratios)
    return f"{statistics.median(ratios):.2f} ({ratios[0]:.2f} to {ratios[-1]:.2f})"


def row(name, ours, theirs, goal, share=1):
    """Times both commands in turn; `share` is how many of their files ours reads."""
    if not re.search(ROWS, name):
        return
    runs = []
    for _ in range(ROUNDS):
        runs.append((Run(ours), Run(theirs)))
    processors = times([a.processors / b.processors / share for a, b in runs])
    clock = times([a.clock / b.clock / share for a, b in runs])
    seconds = statistics.median(a.processors for a, _ in runs) / share
    memory = max(a.memory for a, _ in runs), max(b.memory for _, b in runs)
    print(f"| {name} | {seconds * 1000:.3g} ms | {os.path.basename(theirs[0])} | {processors} | {clock} | {goal} |"
          f" {memory[0]:.0f} | {memory[1]:.0f} |", flush=True)


def start_row(name, *arguments):
    """Milliseconds of a run that reads no media, against a goal of 10."""
    if not re.search(ROWS, name):
        return
    runs = [Run([PROGRAM, *arguments]) for _ in range(4 * ROUNDS)]
    processors = [1000 * run.processors for run in runs]
    clock = [1000 * run.clock for run in runs]
    print(f"| {name} | {statistics.median(processors):.3g} ms | | | {min(clock):.3g} to {max(clock):.3g} ms | 10 ms |"
          f" {max(run.memory for run in runs):.0f} | |", flush=True)


def growth_row(name, command):
    """Processor time and memory for each picture, of 100,000 and of 1,000,000 pictures; what the start takes is left
    out by the difference to 1,000 pictures."""
    if not re.search(ROWS, name):
        return
    with tempfile.TemporaryDirectory(dir=FOLDER) as folder:
        sizes = {"thousand": 1e3, "hundred_thousand": 1e5, "million": 1e6}
        ratios = []
        for _ in range(max(1, ROUNDS // 2)):
            least, some, most = (Run(command(size, folder)) for size in sizes)
            ratios.append((most.processors - least.processors) / (some.processors - least.processors) * (1e5 / 1e6))
        bytes_each = (most.memory - some.memory) * 1048576 / (1e6 - 1e5)
    each = (most.processors - least.processors) / 1e6
    print(f"| {name} | {each * 1e6:.3g} us a picture | of 100,000 | {times(ratios)} | | 1.1 |"
          f" {most.memory:.0f} | {bytes_each:.1f} bytes a picture |", flush=True)


def patched(size, folder, *options):
    return [PROGRAM, "patch", "--force", file(f"{size}.h264"), os.path.join(folder, "out.h264"), *options]


def captions_row(kind):
    name = f"captions_{kind}"
    path = file(f"captions_30.{kind}")
    theirs = ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"movie={path}[out+subcc]", "-map", "0:1", "-f", "srt", "-"]
    row(name, [PROGRAM, "captions", path], theirs, 0.5)


def main():
    print("| row | processors | beside | ratio, processors | ratio, clock | goal | MB | theirs |")
    print("|---|---|---|---|---|---|---|---|")
    start_row("startup_version", "--version")
    start_row("startup_format", "format", "1920", "1080", "25")
    start_row("startup_transport", "transport", "--in", "0", "--out", "50", "--speed", "2", "--steps", "20")
    probe = ["ffprobe", "-v", "error", "-show_streams"]
    for kind in ("mp4", "mov", "mkv", "ts", "mxf", "h264", "hevc"):
        row(f"inspect_small_{kind}", [PROGRAM, "inspect", file(f"small.{kind}")], [*probe, file(f"small.{kind}")], 0.5)
    for name in ("large_120.mp4", "large_30.mp4", "large_30.ts", "large_30.mkv"):
        row(f"inspect_{name}", [PROGRAM, "inspect", file(name)], [*probe, file(name)], 0.5)
    for command in ("inspect", "check"):
        many = [PROGRAM, command, "--recursive", "--jobs", str(CORES), file("many")]
        row(f"batch_{command}", many, [*probe, file("small.mkv")], 0.5, share=1000)
    for name in ("large_120.mp4", "large_30.mp4", "large_30.ts", "large_30.mkv"):
        row(f"check_{name}", [PROGRAM, "check", file(name)], ["cat", file(name)], 2)
    both = [file("large_120.mp4"), file("large_30.mp4")]
    row("check_jobs", [PROGRAM, "check", "--jobs", str(CORES), *both], ["cat", *both], 2)
    for kind in ("ts", "mp4", "mkv"):
        captions_row(kind)
    growth_row("growth_check", lambda size, _: [PROGRAM, "check", file(f"{size}.h264")])
    growth_row("growth_timecode", lambda size, folder: patched(size, folder, "--timecode", "01:00:00:00"))
    growth_row("growth_captions",
               lambda size, folder: patched(size, folder, "--captions", file("cues_million.srt")))


if __name__ == "__main__":
    main()
