"""Compares the dynamic symbols of libqlnutil with the export list, and looks for start-up entries."""
import re
import subprocess
import sys

library, list_path, pending_path = sys.argv[1:4]


def lines_of(path):
    with open(path, encoding="utf-8") as file:
        return [line.strip() for line in file if line.strip() and not line.startswith("#")]


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


# Demangled, so that the variants of a constructor fold into one; type information is left aside.
built = set()
for line in output_of("nm", "-D", "--defined-only", "-C", library).splitlines():
    match = re.match(r"^[0-9a-f]* ?([A-Za-z]) (.+?)(@@?.*)?$", line.strip())
    if match and match[1] != "A" and not re.match(r"^typeinfo (name )?for ", match[2]):
        built.add(match[2])

listed = lines_of(list_path)
pending = set(lines_of(pending_path))
problems = []
if len(set(listed)) != len(listed):
    problems.append("the list names something twice")
problems += [f"exported but not listed: {name}" for name in sorted(built - set(listed))]
problems += [f"listed but not exported: {name}" for name in sorted(set(listed) - built - pending)]
problems += [f"exported but still listed as pending: {name}" for name in sorted(built & pending)]
if not pending and len(listed) != 201:
    problems.append(f"{len(listed)} names are listed, not 201")

# Nothing runs when the library is loaded or unloaded: beside the compiler's own frame_dummy and
# __do_global_dtors_aux there is no entry.
sections = output_of("readelf", "-SW", library)
for kind in ("init", "fini"):
    match = re.search(rf"\.{kind}_array\s+{kind.upper()}_ARRAY\s+[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)", sections)
    if match is None:
        problems.append(f".{kind}_array was not found")
    elif int(match[1], 16) // 8 > 1:
        problems.append(f".{kind}_array has {int(match[1], 16) // 8} entries")

print("\n".join(problems) or f"{len(built)} names exported, all listed; {len(pending)} pending")
sys.exit(1 if problems else 0)
