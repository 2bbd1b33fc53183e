"""Holds the manual pages of the libraries against their export lists and headers, and Doxygen's warnings against none."""
import pathlib
import re
import sys

from pages import expect_foot, expect_readable, expect_same_again, fail, text_of

made, source, version, date = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), *sys.argv[3:5]
folder = made / "man/man3"

warnings = (made / "reference/warnings.txt").read_text(encoding="utf-8")
if warnings.strip():
    fail(f"the reference has warnings:\n{warnings[:3000]}")

# Exported by libkxutil as another header declares them.
ELSEWHERE = {"jsmn_init", "jsmn_parse"}
functions = 0
for exports in ("qlnutil", "kxutil", "timecode"):
    for name in (source / "support" / exports / "exports.txt").read_text(encoding="utf-8").split("\n"):
        name = name.partition("#")[0].strip()
        if not name or name in ELSEWHERE:
            continue
        functions += 1
        member = re.match(r"(?:vtable for )?(\w+)(?:::([^(]+)\(.*)?$", name.replace("(anonymous)", ""))
        page = folder / f"{member[1]}.3"
        if not page.is_file():
            fail(f"no page for {name}")
        word = member[2] or ""
        if word and word.strip() not in text_of(page):
            fail(f"{page.name} does not describe {name}")

headers = [path for path in [*(source / "support/qlnutil").glob("*.h"), source / "support/kxutil/kxutil.h",
                             source / "support/timecode/kxtimecode.h"] if path.name not in ("qlnvidutil.h", "qlnutil.h")]
engine = list((source / "media/qlnmedia").glob("*.h"))
for header in headers + engine:
    name = f"qlnmedia-{header.name}" if header in engine else header.name.replace("helpers", "qlnutil-helpers")
    if not (folder / f"{name}.3").is_file():
        fail(f"no page for {header.name}")
    if f"{name}(3)" not in text_of(folder / "qlnutil.3"):
        fail(f"qlnutil(3) does not name {name}")
for header in engine:
    text = header.read_text(encoding="utf-8")
    for name in re.findall(r"^QLNMEDIA_API [^;(]*?(\w+)\(|^class QLNMEDIA_API (\w+)", text, re.M):
        # Some stand in a namespace within that of the engine.
        if not list(folder.glob(f"qlnmedia::*{name[0] or name[1]}.3")):
            fail(f"no page for {name}")

pages = sorted(folder.glob("*.3"))
expect_readable(pages)
expect_foot(pages, date, f"qlnutil {version}")
expect_same_again(made / "man", source / "docs/reference/library_manuals.py", made / "reference/xml", version, date)
print(f"{len(pages)} pages for {functions} exported names")
