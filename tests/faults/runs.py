"""The command lines that are run with faults: of each command, over small files of each container."""

import os
import shutil
import subprocess

PICTURES = "testsrc2=s=64x64:r=25:d=0.24"
X264 = "-c:v libx264 -preset ultrafast -threads 1 -pix_fmt yuv420p -g 3 -bf 0"
X265 = "-c:v libx265 -preset ultrafast -pix_fmt yuv420p -x265-params keyint=3:bframes=0:pools=1:frame-threads=1:log-level=none"
SOUND = "-f lavfi -i sine=d=0.24 -c:a aac -b:a 32k"
# Text that lasts longer than the pictures would be late.
CUES = "1\n00:00:00,900 --> 00:00:01,600\nFaults\n\n2\n00:00:02,000 --> 00:00:02,500\nare found\n"
SETTINGS = '{"Title": "A clip", "FileSize": 12, "Copyright": "of faults"}\n'

# name: ffmpeg's options behind the pictures
MADE = {
    "a.mp4": f"{SOUND} {X264} -metadata title=Clip",
    "f.mp4": f"{SOUND} {X264} -movflags frag_keyframe+empty_moov+default_base_moof",
    "a.mov": f"{X265} -tag:v hvc1 -color_primaries bt709",
    "a.ts": f"{SOUND} {X264}",
    "h.ts": X265,
    "m.ts": "-c:v mpeg2video -g 3",
    "a.mkv": f"{SOUND} {X264} -metadata title=Clip",
    "a.mxf": f"{X264} -f mxf",
    "a.h264": X264,
    "a.hevc": X265,
}


class Run:
    """A command line, the files that it finds, and what it may write."""

    def __init__(self, name, arguments, files=(), stdin=None, several=False, prepare=None, expected=(0,)):
        self.name = name
        self.arguments = arguments
        self.files = list(files)
        self.stdin = stdin
        self.several = several  # outputs of their own, each of which is whole or not there
        self.prepare = prepare  # what is done to the folder in front of each run
        self.expected = expected


def make_media(folder, qlnmedia):
    """Makes the files in `folder`, once."""
    os.makedirs(folder, exist_ok=True)
    done = os.path.join(folder, "done-3")
    if os.path.exists(done):
        return
    def ffmpeg(out, options, source=PICTURES):
        subprocess.run(
            f"ffmpeg -v error -y -f lavfi -i {source} {options} -fflags +bitexact {out}".split(),
            cwd=folder, check=True, stdin=subprocess.DEVNULL, timeout=120)
    for name, options in MADE.items():
        ffmpeg(name, options)
    ffmpeg("long.mp4", X264.replace("-g 3", "-g 250"), "testsrc2=s=32x32:r=25:d=3")
    shutil.rmtree(os.path.join(folder, "hls"), ignore_errors=True)
    os.makedirs(os.path.join(folder, "hls"))
    subprocess.run(
        "ffmpeg -v error -y -i a.mp4 -map 0:v -c copy -f hls -hls_playlist_type vod -hls_segment_type fmp4 -hls_time 0.1 "
        "-hls_fmp4_init_filename init.mp4 -hls_segment_filename hls/part%02d.m4s hls/list.m3u8".split(),
        cwd=folder, check=True, stdin=subprocess.DEVNULL, timeout=120)
    for name, text in {"cues.srt": CUES, "settings.json": SETTINGS}.items():
        with open(os.path.join(folder, name), "w") as file:
            file.write(text)
    def tool(*arguments):
        return subprocess.run([qlnmedia, *arguments], cwd=folder, check=True, stdout=subprocess.PIPE, timeout=60).stdout
    tool("patch", "--force", "long.mp4", "captioned.mp4", "--captions", "cues.srt", "--fit")
    tool("captions", "--force", "captioned.mp4", "-o", "captions.mcc")
    tool("captions", "--force", "captioned.mp4", "-o", "captions.scc")
    for name, more in {"command.xml": [], "command.json": ["--json"]}.items():
        with open(os.path.join(folder, name), "wb") as file:
            file.write(tool("command", "play", "--start", "10", "--end", "20", "--clip", "Clip", *more))
    if os.path.exists(os.path.join(folder, "UserMetadata.xml")):
        os.remove(os.path.join(folder, "UserMetadata.xml"))
    tool("metadata", "import", "--file", "UserMetadata.xml", "settings.json")
    shutil.rmtree(os.path.join(folder, "config"), ignore_errors=True)
    environment = dict(os.environ, XDG_CONFIG_HOME=os.path.join(folder, "config"))
    subprocess.run([qlnmedia, "metadata", "import", "settings.json"], cwd=folder, check=True, env=environment, timeout=60)
    open(done, "w").close()


def _inspections():
    for name in ["a.mp4", "f.mp4", "a.mov", "a.ts", "h.ts", "m.ts", "a.mkv", "a.mxf", "a.h264", "a.hevc"]:
        yield Run(f"inspect {name}", ["inspect", name], [name])
        yield Run(f"check {name}", ["check", name], [name], expected=(0, 3))
    for name in ["a.mp4", "a.hevc"]:
        yield Run(f"inspect --json {name}", ["inspect", "--json", "--units", "--elements", "--library", name], [name])
    yield Run("inspect --csv", ["inspect", "--csv", "a.ts"], ["a.ts"])
    yield Run("inspect --details", ["inspect", "--details", "captioned.mp4"], ["captioned.mp4"])
    yield Run("inspect pipe", ["inspect", "-"], stdin="a.ts")
    yield Run("check --json folder", ["check", "--json", "-r", "--jobs", "2", "."], ["a.mp4", "a.h264"],
              several=True, expected=(0, 3))


def _captions():
    yield Run("captions", ["captions", "captioned.mp4"], ["captioned.mp4"])
    yield Run("captions --json", ["captions", "--json", "captioned.mp4"], ["captioned.mp4"])
    for form in ["srt", "vtt", "ttml", "txt", "scc", "mcc"]:
        yield Run(f"captions -o {form}", ["captions", "captioned.mp4", "-o", f"out.{form}"], ["captioned.mp4"])
    yield Run("captions -o -", ["captions", "captioned.mp4", "-o", "-"], ["captioned.mp4"])
    yield Run("captions of text", ["captions", "--force", "cues.srt", "-o", "captions.scc"], ["cues.srt", "captions.scc"])
    yield Run("captions -o folder", ["captions", "captioned.mp4", "captions.mcc", "-o", "."],
              ["captioned.mp4", "captions.mcc"], several=True)


def _patches():
    for name in ["a.mp4", "f.mp4", "a.mov", "a.ts", "h.ts", "a.mkv", "a.mxf", "a.h264", "a.hevc"]:
        out = "out" + os.path.splitext(name)[1]
        yield Run(f"patch {name} --colour", ["patch", name, out, "--colour", "bt709", "--full-range"], [name])
        yield Run(f"patch {name} --timecode",
                  ["patch", name, out, "--timecode", "10:00:00:00", "--delimiters", "--rate", "25"], [name])
        yield Run(f"patch {name} --hdr --verify",
                  ["patch", name, out, "--hdr", "p3", "--light-level", "1000,400", "--verify"], [name])
    yield Run("patch sets", ["patch", "a.mp4", "out.mp4", "--sar", "4:3", "--level", "4", "--vui-timing", "25",
                             "--chroma-location", "1", "--crop", "0,2,0,2"], ["a.mp4"])
    yield Run("patch units", ["patch", "a.h264", "out.h264", "--remove", "delimiters,sei:5",
                              "--recovery-points"], ["a.h264"])
    yield Run("patch --timecode-track", ["patch", "a.mov", "out.mov", "--timecode", "10:00:00:00",
                                         "--timecode-track", "--verify"], ["a.mov"])
    yield Run("patch --captions", ["patch", "long.mp4", "out.mp4", "--captions", "captions.mcc"],
              ["long.mp4", "captions.mcc"])
    yield Run("patch --captions file", ["patch", "--force", "long.mp4", "out.mp4", "--captions", "captioned.mp4"],
              ["long.mp4", "captioned.mp4"])
    yield Run("patch --captions text", ["patch", "captioned.mp4", "out.mp4", "--captions", "cues.srt",
                                        "--replace-captions", "--fit"], ["captioned.mp4", "cues.srt"])
    yield Run("patch --captions m.ts", ["patch", "m.ts", "out.ts", "--captions", "captions.scc"], ["m.ts", "captions.scc"])
    yield Run("patch --dry-run", ["patch", "a.mp4", "--colour", "bt709", "--dry-run"], ["a.mp4"])
    yield Run("patch --in-place", ["patch", "a.mp4", "--in-place", "--colour", "bt709"], ["a.mp4"])
    yield Run("patch --in-place equal", ["patch", "captioned.mp4", "--in-place", "--level", "4"], ["captioned.mp4"])
    yield Run("patch --segments", ["patch", "--segments", "hls", "out", "--colour", "bt709", "--verify"], ["hls"])
    yield Run("patch --init", ["patch", "hls/part00.m4s", "out.m4s", "--init", "hls/init.mp4", "--timecode", "10:00:00:00"],
              ["hls"])
    yield Run("recover", ["recover", "a.mp4"], ["a.mp4"], prepare="cut off")


def _settings():
    config = ["config"]
    file = ["UserMetadata.xml"]
    for where, files, option in [("store", config, []), ("file", file, ["--file", "UserMetadata.xml"])]:
        yield Run(f"metadata list {where}", ["metadata", "list", *option], files)
        yield Run(f"metadata list --json {where}", ["metadata", "list", "--json", *option], files)
        yield Run(f"metadata get {where}", ["metadata", "get", "Title", *option], files)
        yield Run(f"metadata set {where}", ["metadata", "set", "Scene", "12", *option], files)
        yield Run(f"metadata unset {where}", ["metadata", "unset", "Title", *option], files)
        yield Run(f"metadata export {where}", ["metadata", "export", "out.json", *option], files)
        yield Run(f"metadata import {where}", ["metadata", "import", "settings.json", *option], [*files, "settings.json"])
        yield Run(f"metadata import new {where}", ["metadata", "import", "settings.json", *option], ["settings.json"])
    yield Run("metadata where", ["metadata", "where"])


def _words():
    yield Run("command", ["command", "play", "--start", "01:00:00:00", "--end", "01:00:10:00", "--clip", "Clip"])
    yield Run("command --strict-json", ["command", "eject", "--channel", "2", "--strict-json"])
    yield Run("command convert xml", ["command", "convert", "command.xml"], ["command.xml"])
    yield Run("command convert json", ["command", "convert", "command.json"], ["command.json"])
    yield Run("transport", ["transport", "--in", "0", "--out", "10", "--speed", "100", "--steps", "20"])
    yield Run("format", ["format", "1920", "1080", "25"])
    yield Run("--help", ["--help"])
    yield Run("patch --help", ["patch", "--help"])
    yield Run("--version", ["--version"])
    yield Run("wrong usage", ["inspect", "--frames", "-1", "x"], expected=(2,))


def all_runs():
    """Every command line, in an order in which neighbours differ in little."""
    for group in (_words, _settings, _inspections, _captions, _patches):
        yield from group()
