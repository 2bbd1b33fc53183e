#!/usr/bin/env python3
"""Times the elements of the GStreamer plug-in on 1080p60 at 50 Mbit/s, beside the h264_metadata filter of libavcodec.

    scripts/bench_live.py [PLUGIN_FOLDER] [SECONDS] [ROUNDS]

Each row is the processor's time of a whole run less that of the same run without the element, as a part of one core that
plays the clip at its pace; the median of the rounds, which take turns. GStreamer 1.22 has no element that puts captions into
coded pictures; cccombiner, which only attaches them to buffers, is the nearest. The clip stays in build/bench_live.
"""
import os
import resource
import statistics
import subprocess
import sys

here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
plugin = sys.argv[1] if len(sys.argv) > 1 else f"{here}/build/release/gst"
seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 20
rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 7
GOAL = 2.0

folder = f"{here}/build/bench_live"
os.makedirs(folder, exist_ok=True)
clip = f"{folder}/clip_{seconds}.h264"
if not os.path.exists(clip):
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=s=1920x1080:r=60", "-vf", "noise=alls=40:allf=t",
                    "-t", str(seconds), "-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "ultrafast", "-b:v", "50M",
                    "-minrate", "50M", "-maxrate", "50M", "-bufsize", "5M", "-g", "60", "-f", "h264", clip + ".part"], check=True)
    os.rename(clip + ".part", clip)

environment = {**os.environ, "GST_PLUGIN_PATH": plugin, "GST_REGISTRY": f"{folder}/registry.bin"}
PARSED = f"gst-launch-1.0 -q filesrc location={clip} blocksize=1048576 ! h264parse ! video/x-h264,alignment=au ! "
TIMED = PARSED + "qlnedit timecode-source=running-time ! "
COPY = f"ffmpeg -v error -r 60 -i {clip} -c copy "
ROWS = {  # name: (run, the same without the element)
    "qlnedit, nothing to change": (PARSED + "qlnedit ! fakesink", PARSED + "identity ! fakesink"),
    "qlnedit, colour and delimiters": (PARSED + "qlnedit colour=bt709 delimiters=true ! fakesink", PARSED + "identity ! fakesink"),
    "qlnedit, a timecode for each picture": (TIMED + "fakesink", PARSED + "identity ! fakesink"),
    "qlnedit, timecodes in presentation order": (PARSED + "qlnedit timecode-source=start ! fakesink",
                                                 PARSED + "identity ! fakesink"),
    "qlncheck": (PARSED + "qlncheck ! fakesink", PARSED + "identity ! fakesink"),
    "cccombiner": (PARSED + "cccombiner ! fakesink", PARSED + "identity ! fakesink"),
    "h264_metadata of libavcodec": (COPY + "-bsf:v h264_metadata=aud=insert:colour_primaries=1 -f null -", COPY + "-f null -"),
}


def processor_time(command):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command.split(), env=environment, check=True, stdout=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


processor_time("gst-inspect-1.0 qlnedit")
size = os.path.getsize(clip) * 8 / seconds / 1e6
print(f"1080p60 at {size:.0f} Mbit/s, {seconds} s, {rounds} rounds")
parts = {name: [] for name in ROWS}
for _ in range(rounds):
    plain = {}
    for name, (run, without) in ROWS.items():
        if without not in plain:
            plain[without] = processor_time(without)
        parts[name].append(100 * (processor_time(run) - plain[without]) / seconds)
missed = 0
for name, each in parts.items():
    part = statistics.median(each)
    ours = name.startswith("qln")
    missed += ours and part > GOAL
    print(f"{name:45} {part:6.2f} % of a core" + (f"  goal {GOAL:g} %" if ours else ""))
sys.exit(1 if missed else 0)
