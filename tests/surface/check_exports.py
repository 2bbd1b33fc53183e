"""Compares the dynamic symbols of a library with its export list, and looks for start-up entries."""
import os
import re
import subprocess
import sys

library, list_path = sys.argv[1:3]
# The surface that hosts of libqlnutil were promised has this many names.
PROMISED = {"libqlnutil": 201}
instrumented = "--instrumented" in sys.argv[3:]  # start-up entries are the instrumentation's then


def lines_of(path):
    with open(path, encoding="utf-8") as file:
        return [line.strip() for line in file if line.strip() and not line.startswith("#")]


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


listed = lines_of(list_path)
# Hosts that derive from an exported class need its type information, which is no entry point of its own.
type_information = {f"{kind} for {name[len('vtable for '):]}" for name in listed if name.startswith("vtable for ")
                    for kind in ("typeinfo", "typeinfo name")}
# Demangled, so that the variants of a constructor fold into one.
built = set()
for line in output_of("nm", "-D", "--defined-only", "-C", library).splitlines():
    match = re.match(r"^[0-9a-f]* ?([A-Za-z]) (.+?)(@@?.*)?$", line.strip())
    if match and match[1] != "A":
        built.add(match[2])
built -= type_information

problems = []
if len(set(listed)) != len(listed):
    problems.append("the list names something twice")
problems += [f"exported but not listed: {name}" for name in sorted(built - set(listed))]
problems += [f"listed but not exported: {name}" for name in sorted(set(listed) - built)]
promised = PROMISED.get(os.path.basename(library).split(".")[0], len(listed))
if len(listed) != promised:
    problems.append(f"{len(listed)} names are listed, not {promised}")

# Nothing runs when the library is loaded or unloaded: beside the compiler's own frame_dummy and
# __do_global_dtors_aux there is no entry.
sections = output_of("readelf", "-SW", library)
for kind in ("init", "fini"):
    match = re.search(rf"\.{kind}_array\s+{kind.upper()}_ARRAY\s+[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)", sections)
    if instrumented:
        continue
    if match is None:
        problems.append(f".{kind}_array was not found")
    elif int(match[1], 16) // 8 > 1:
        problems.append(f".{kind}_array has {int(match[1], 16) // 8} entries")

print("\n".join(problems) or f"{len(built)} names exported, all listed")
sys.exit(1 if problems else 0)
