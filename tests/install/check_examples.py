"""Builds the examples as a stranger would, against what was installed, and holds what they make to independent readers."""
import json
import os
import shutil
import subprocess
import sys

source, build, work, cmake = sys.argv[1:5]


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}\n{done.stdout}{done.stderr}")
    return done.stdout


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"{what}: {found!r}, wanted {wanted!r}")


def probe(path, *what):
    return json.loads(run("ffprobe", "-v", "error", "-of", "json", *what, path))


shutil.rmtree(work, ignore_errors=True)
os.environ.pop("LD_LIBRARY_PATH", None)
run(cmake, "--install", build, "--prefix", f"{work}/installed")
run(cmake, "-S", f"{source}/examples", "-B", f"{work}/examples", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={work}/installed",
    "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror", "-DCMAKE_C_FLAGS=-Wall -Wextra -Werror")
run(cmake, "--build", f"{work}/examples")

streams = []
for number, size in enumerate(("128x96", "200x120", "96x96")):
    streams.append(f"{work}/{number}.h264")
    run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=s={size}:r=25:d=1", "-pix_fmt", "yuv420p", "-c:v",
        "libx264", "-x264-params", "aud=1:keyint=10", streams[-1])
    expect("frame_size", run(f"{work}/examples/frame_size", streams[-1]), size + "\n")

expect("own_services", run(f"{work}/examples/own_services"),
       "diagnostic 00000001: the host is listening\nread: clip\n")

captioned = f"{work}/captioned.h264"
expect("encoder_captions", run(f"{work}/examples/encoder_captions", streams[0], captioned), "25 pictures\n")
frames = probe(captioned, "-show_frames")["frames"]
captions = [data for frame in frames for data in frame.get("side_data_list", [])
            if data["side_data_type"] == "ATSC A53 Part 4 Closed Captions"]
expect("pictures with captions", (len(frames), len(captions)), (25, 25))

told = run(f"{work}/examples/sets_on_threads", f"{work}/store.db", *streams)
wanted = ""
for stream in streams:
    level = probe(stream, "-show_streams")["streams"][0]["level"]
    wanted += f"{stream}: profile 100, level {level}\n"
expect("sets_on_threads", told, wanted)

patched = f"{work}/patched.h264"
expect("patch_in_memory", run(f"{work}/examples/patch_in_memory", streams[0], patched),
       "3 sequence parameter sets, 25 timecodes\n")
stream = probe(patched, "-show_streams")["streams"][0]
expect("colour", (stream["color_primaries"], stream["color_transfer"], stream["color_space"]), ("bt709",) * 3)
timecodes = [code["value"] for frame in probe(patched, "-show_frames")["frames"]
             for data in frame.get("side_data_list", []) for code in data.get("timecodes", [])]
expect("timecodes", timecodes, [f"10:00:00:{number:02}" for number in range(25)])
print("the examples build, run and make what they say")
