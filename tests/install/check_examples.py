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
expect("step_transport", run(f"{work}/examples/step_transport"),
       "".join(f"frame {frame} stands for 4 ticks\n" for frame in (100, 101, 102, 100, 101)))

clip, changed = f"{work}/clip.mp4", f"{work}/changed.mp4"
run("ffmpeg", "-v", "error", "-y", "-i", streams[0], "-c", "copy", clip)
told = run(f"{work}/examples/patch_file", clip, changed)
if "verified: " not in told:
    sys.exit(f"patch_file: {told!r}")
stream = probe(changed, "-show_streams")["streams"][0]
expect("colour of a file", (stream["color_primaries"], stream["color_transfer"], stream["color_space"]), ("bt709",) * 3)

hlg, hdr10 = f"{work}/hlg.hevc", f"{work}/hdr10.hevc"
run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=s=96x96:r=25:d=0.4", "-pix_fmt", "yuv420p10le", "-c:v",
    "libx265", "-preset", "ultrafast", "-x265-params", "log-level=error:aud=1:keyint=5:repeat-headers=1:colorprim=bt2020:"
    "transfer=arib-std-b67:colormatrix=bt2020nc:range=limited", hlg)
expect("hdr10_from_hlg", run(f"{work}/examples/hdr10_from_hlg", hlg, hdr10), "2 of 10 pictures\n")
stream = probe(hdr10, "-show_streams")["streams"][0]
expect("transfer", (stream["color_primaries"], stream["color_transfer"], stream["color_space"]),
       ("bt2020", "smpte2084", "bt2020nc"))
said = {data["side_data_type"]: data for data in probe(hdr10, "-show_frames")["frames"][0]["side_data_list"]}
display = said["Mastering display metadata"]
expect("display", (display["red_x"], display["red_y"], display["white_point_x"], display["max_luminance"]),
       ("35400/50000", "14600/50000", "15635/50000", "10000000/10000"))
expect("light", (said["Content light level metadata"]["max_content"], said["Content light level metadata"]["max_average"]),
       (1000, 400))
expect("samples", run("ffmpeg", "-v", "error", "-i", hdr10, "-f", "md5", "-"),
       run("ffmpeg", "-v", "error", "-i", hlg, "-f", "md5", "-"))
print("the examples build, run and make what they say")
