#!/usr/bin/env python3
"""Sends an hour of 1080p25 through pipes and fails where memory grows with the stream.

    scripts/live_hour.py [--seconds N] [--size WxH] [--program QLNMEDIA] [--folder FOLDER] [KIND...]

KIND is mpegts, matroska or h264; all of them if none is named. Of each, ffmpeg repeats a short clip with times that go on,
and it goes through `patch - -` with captions and timecodes, and through `check - --follow`. The most memory that was resident
(VmHWM) is read at a tenth of the stream and at its end. What `check` keeps of the beginning of a pipe (64 MB) and of its end
(16 MB) is filled at a tenth of an hour; of a shorter stream it does not count as growth.
"""
import argparse
import os
import subprocess
import sys
import time

here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
parser = argparse.ArgumentParser()
parser.add_argument("--seconds", type=int, default=3600)
parser.add_argument("--size", default="1920x1080")
parser.add_argument("--program", default=f"{here}/build/release/tools/qlnmedia/qlnmedia")
parser.add_argument("--folder", default=f"{here}/build/live_hour")
parser.add_argument("kinds", nargs="*", metavar="KIND")
asked = parser.parse_args()

LOOP = 10  # seconds of the clip
KEPT = 80e6  # that check keeps of a pipe
ROOM = 4e6  # what allocators and the kernel's counting differ by
os.makedirs(asked.folder, exist_ok=True)


def made_clip():
    clip = f"{asked.folder}/clip_{asked.size}.mp4"
    if not os.path.exists(clip):
        part = clip + ".part"
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=s={asked.size}:r=25", "-f", "lavfi", "-i",
                        "sine", "-t", str(LOOP), "-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-b_strategy", "0", "-g", "50",
                        "-b:v", "4M", "-maxrate", "4M", "-bufsize", "4M", "-pix_fmt", "yuv420p", "-c:a", "aac", "-f", "mp4", part],
                       check=True)
        os.rename(part, clip)
    return clip


def made_captions():
    """Pairs that show "GOOD MORNING" every ten seconds, and take it down five seconds later."""
    path = f"{asked.folder}/captions_{asked.seconds}.scc"
    def label(second):
        return f"01:{second // 60:02}:{second % 60:02}:00" if second < 3600 else f"02:{second // 60 - 60:02}:{second % 60:02}:00"
    with open(path, "w", encoding="ascii") as file:
        file.write("Scenarist_SCC V1.0\n")
        for second in range(1, asked.seconds - 9, 10):
            file.write(f"\n{label(second)}\t94ae 94ae 9420 9420 9470 9470 c74f 4fc4 20cd 4f52 ce49 cec7 942f 942f\n"
                       f"\n{label(second + 5)}\t942c 942c\n")
    return path


def memory(process):
    """Most bytes that were resident so far."""
    with open(f"/proc/{process.pid}/status", encoding="ascii") as status:
        for line in status:
            if line.startswith("VmHWM:"):
                return int(line.split()[1]) * 1024
    return 0


def run(kind, words):
    """What is fed, and the memory at a tenth and at the end."""
    only = ["-map", "0:v"] if kind == "h264" else ["-map", "0"]
    source = subprocess.Popen(["ffmpeg", "-v", "error", "-stream_loop", "-1", "-i", clip, *only, "-t", str(asked.seconds), "-c", "copy",
                               "-f", kind, "-"], stdout=subprocess.PIPE)
    program = subprocess.Popen([asked.program, *words], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    expected = os.path.getsize(clip) * asked.seconds / LOOP
    fed, early, late = 0, None, 0
    while piece := source.stdout.read(1 << 16):
        program.stdin.write(piece)
        fed += len(piece)
        if early is None and fed >= expected / 10:
            early = (fed, memory(program))
        if fed % (1 << 22) < 1 << 16:
            late = memory(program)
    late = max(late, memory(program))
    program.stdin.close()
    said = program.stderr.read().decode()
    if program.wait() not in (0, 3) or source.wait() != 0:
        sys.exit(f"live_hour: {kind}: {words[0]}: status {program.returncode}\n{said}")
    return fed, early, late


clip = made_clip()
changes = ["--captions", made_captions(), "--timecode", "01:00:00:00", "--rate", "25"]
failed = 0
print(f"{asked.seconds} s of {asked.size} at 25 pictures a second", flush=True)
for kind in asked.kinds or ["mpegts", "matroska", "h264"]:
    for words in (["patch", "-", "-", *changes], ["check", "-", "--follow"]):
        begin = time.monotonic()
        fed, (at, early), late = run(kind, words)
        kept = 2 * (min(fed, KEPT) - min(at, KEPT)) if words[0] == "check" else 0
        grows = late > early + ROOM + kept
        failed += grows
        print(f"{kind:9} {words[0]:6} {fed / 1e6:6.0f} MB in {time.monotonic() - begin:4.0f} s, most memory {early / 1e6:6.1f} MB at a "
              f"tenth, {late / 1e6:6.1f} MB at the end{': grows' if grows else ''}", flush=True)
sys.exit(failed != 0)
