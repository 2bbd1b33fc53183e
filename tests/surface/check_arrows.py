"""Checks that includes go one way only, downwards, between the folders of the house, and which rooms know libav."""
import os
import re
import sys

root = sys.argv[1]

# Folder of the library -> folders that it may include from, beside itself.
LOW = {"kxutil", "timecode"}
LIBRARY = {
    "support/kxutil": set(),
    "support/timecode": set(),
    "support/nalstream": set(),
    "support/qlnutil/bits": LOW | {"nalstream"},
    "support/qlnutil/format": LOW | {"bits"},
    "support/qlnutil/transport": LOW | {"bits", "format"},
    "support/qlnutil/mediacmd": LOW | {"bits", "format"},
    "support/qlnutil/clipinfo": LOW | {"bits", "format"},
    "support/qlnutil/files": LOW | {"bits", "format"},
    "support/qlnutil/aac": LOW | {"bits"},
    "support/qlnutil/h264": LOW | {"nalstream", "bits"},
    "support/qlnutil/hevc": LOW | {"nalstream", "bits", "h264"},
    "support/qlnutil/inband": LOW | {"nalstream", "bits", "h264", "hevc"},
}
# The exported header of a family belongs to one folder and may be included wherever that folder may.
HEADER_HOME = {
    "qlnapi.h": "any", "qlnvidutil.h": "any", "qlnbits.h": "bits", "qlnframe.h": "bits", "qlnformat.h": "format",
    "qlntransport.h": "transport", "mediacmd.h": "mediacmd", "qlninfo.h": "clipinfo", "kxdiskcache.h": "files",
    "kxprojecttoxml.h": "files", "qlnh264.h": "h264", "qlnh264_records.h": "h264", "qlnhevc.h": "hevc", "qlnhevc_records.h": "hevc",
    "qlntransport_position.h": "transport", "qlninband.h": "inband",
    "qlnaac.h": "aac", "qlnutil.h": "umbrella", "helpers.h": "hosts",
}
# Room of the engine -> rooms that it may include from, beside itself, the library, and the engine's installed headers.
BELOW_PICTURES = {"base", "units", "sets"}
SAID = BELOW_PICTURES | {"pictures", "timing", "hdr", "captions"}
ENGINE = {
    "base": set(),
    "command": {"base"},
    "clipinfo": {"base"},
    "units": {"base"},
    "sets": {"base", "units"},
    "pictures": BELOW_PICTURES,
    "timing": BELOW_PICTURES | {"pictures"},
    "hdr": BELOW_PICTURES | {"pictures"},
    "captions": BELOW_PICTURES | {"pictures", "timing"},
    "edit": SAID,
    "container": SAID,
    "check": SAID | {"edit", "container"},
    "inspect": SAID | {"edit", "container", "check"},
    "html": SAID | {"container", "check", "inspect"},
    "patch": SAID | {"edit", "container"},
}
# The rooms that know libav: files are read there, and, as long as a muxer writes some of them, written.
LIBAV_ROOMS = {"container", "patch"}
LIBAV = re.compile(r"<libav|libav_handles\.h|\bAV(Stream|Packet|FormatContext|CodecParameters|Rational|Frame)\b")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)

problems = []


def sources(folder):
    for directory, _, files in os.walk(os.path.join(root, folder)):
        for name in sorted(files):
            if name.endswith((".h", ".cpp", ".c")):
                path = os.path.join(directory, name)
                with open(path, encoding="utf-8") as file:
                    yield os.path.relpath(path, root), file.read()


def home_of(include):
    parts = include.split("/")
    if parts[0] == "qlnutil":
        return HEADER_HOME.get(parts[1], "unknown") if len(parts) == 2 else parts[1]
    return parts[0]


for folder, allowed in LIBRARY.items():
    own = folder.split("/")[-1]
    for path, text in sources(folder):
        for include in INCLUDE.findall(text):
            if "/" not in include:
                problems.append(f"{path}: include {include} by its folder")
            elif home_of(include) not in allowed | {own, "any"}:
                problems.append(f"{path} must not include {include}")

for name in os.listdir(os.path.join(root, "support/qlnutil")):
    if name.endswith(".h") and name not in HEADER_HOME:
        problems.append(f"support/qlnutil/{name} belongs to no folder")
    if name.endswith(".h") and HEADER_HOME.get(name) in {"bits", "format", "h264", "hevc"}:
        with open(os.path.join(root, "support/qlnutil", name), encoding="utf-8") as file:
            for include in INCLUDE.findall(file.read()):
                allowed = LIBRARY[f"support/qlnutil/{HEADER_HOME[name]}"] | {HEADER_HOME[name], "any"}
                if home_of(include) not in allowed:
                    problems.append(f"{name} must not include {include}")

rooms = {name for name in os.listdir(os.path.join(root, "media")) if os.path.isdir(os.path.join(root, "media", name))}
for name in sorted(rooms ^ (set(ENGINE) | {"qlnmedia"})):
    problems.append(f"media/{name} is not in the table of rooms, or the table names it in vain")
LOWER_LIBRARIES = {"kxutil", "timecode", "nalstream", "qlnutil", "qlnmedia"}
for room, allowed in ENGINE.items():
    for path, text in sources(f"media/{room}"):
        for include in INCLUDE.findall(text):
            if "/" not in include:
                problems.append(f"{path}: include {include} by its room")
            elif include.split("/")[0] not in allowed | {room} | LOWER_LIBRARIES:
                problems.append(f"{path} must not include {include}")
        if room not in LIBAV_ROOMS and LIBAV.search(text):
            problems.append(f"{path} must not know libav")
# Installed headers know nothing but each other.
for path, text in sources("media/qlnmedia"):
    for include in INCLUDE.findall(text):
        if not include.startswith("qlnmedia/"):
            problems.append(f"{path} must not include {include}: it is installed")
# The command line stands on what any host has: installed headers, and its own.
INSTALLED = {"kxutil/kxutil.h", "timecode/kxtimecode.h"}
INSTALLED |= {f"qlnutil/{name}" for name in HEADER_HOME if name != "qlnvidutil.h"}
INSTALLED |= {f"qlnmedia/{name}" for name in os.listdir(os.path.join(root, "media/qlnmedia"))}
# So do the Python extension and the GStreamer plug-in.
for folder in ("tools", "python", "gst"):
    for path, text in sources(folder):
        for include in INCLUDE.findall(text):
            if "/" in include and include not in INSTALLED:
                problems.append(f"{path} must not include {include}: it is not installed")
            if "/" not in include and not os.path.exists(os.path.join(root, os.path.dirname(path), include)):
                problems.append(f"{path}: {include} is none of its own")
        if LIBAV.search(text):
            problems.append(f"{path} must not know libav")

print("\n".join(problems) or "all includes go downwards")
sys.exit(1 if problems else 0)
