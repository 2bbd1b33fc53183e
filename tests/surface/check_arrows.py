"""Checks that includes go one way only, downwards, between the folders of the house."""
import os
import re
import sys

root = sys.argv[1]

# Folder -> folders that it may include from, beside itself.
LOW = {"kxutil", "timecode"}
ALLOWED = {
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
# The rooms of the engine, lowest first, by what they may include beside themselves and the libraries below. LIBRARY
# stands for libav and its kin: only rooms that have it may include media/container/libav_handles.h or <libav...>.
BASE = {"base"}
STREAM = BASE | {"units", "sets", "pictures"}
SAID = STREAM | {"timing", "hdr", "captions"}
FILES = SAID | {"edit", "container"}
ROOMS = {
    "base": set(),
    "units": BASE,
    "sets": BASE | {"units"},
    "pictures": BASE | {"units", "sets"},
    "timing": STREAM,
    "hdr": STREAM,
    "captions": STREAM | {"timing"},
    "edit": SAID,
    "container": BASE | {"units"},
    "check": FILES,
    "inspect": FILES,
    "patch": FILES,
}
# The exported header of a family belongs to one folder and may be included wherever that folder may.
HEADER_HOME = {
    "qlnapi.h": "any", "qlnvidutil.h": "any", "qlnbits.h": "bits", "qlnframe.h": "bits", "qlnformat.h": "format",
    "qlntransport.h": "transport", "mediacmd.h": "mediacmd", "qlninfo.h": "clipinfo", "kxdiskcache.h": "files",
    "kxprojecttoxml.h": "files", "qlnh264.h": "h264", "qlnhevc.h": "hevc", "qlninband.h": "inband",
    "qlnaac.h": "aac", "qlnutil.h": "umbrella",
}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)


def home_of(include):
    parts = include.split("/")
    if parts[0] == "qlnutil":
        return HEADER_HOME.get(parts[1], "unknown") if len(parts) == 2 else parts[1]
    return parts[0]


problems = []
for folder, allowed in ALLOWED.items():
    own = folder.split("/")[-1]
    for directory, _, files in os.walk(os.path.join(root, folder)):
        for name in files:
            if not name.endswith((".h", ".cpp", ".c")):
                continue
            path = os.path.join(directory, name)
            with open(path, encoding="utf-8") as file:
                for include in INCLUDE.findall(file.read()):
                    if "/" not in include:
                        problems.append(f"{os.path.relpath(path, root)}: include {include} by its folder")
                    elif home_of(include) not in allowed | {own, "any"}:
                        problems.append(f"{os.path.relpath(path, root)} must not include {include}")
for name in os.listdir(os.path.join(root, "support/qlnutil")):
    if name.endswith(".h") and name not in HEADER_HOME:
        problems.append(f"support/qlnutil/{name} belongs to no folder")
    if name.endswith(".h") and HEADER_HOME.get(name) in {"bits", "format", "h264", "hevc"}:
        with open(os.path.join(root, "support/qlnutil", name), encoding="utf-8") as file:
            for include in INCLUDE.findall(file.read()):
                allowed = ALLOWED[f"support/qlnutil/{HEADER_HOME[name]}"] | {HEADER_HOME[name], "any"}
                if home_of(include) not in allowed:
                    problems.append(f"{name} must not include {include}")

print("\n".join(problems) or "all includes go downwards")
sys.exit(1 if problems else 0)
