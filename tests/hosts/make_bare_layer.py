"""Writes a stand-in for the utility layer: it has the names of the real one, so that a program loads, but for those
that a layer need not have; and none of them does anything. A host that brings its own layer defines what it uses."""
import re
import subprocess
import sys

library, source_path, *left_out = sys.argv[1:]
symbols = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
names = sorted(set(re.findall(r"^[0-9a-f]+ T ([A-Za-z][A-Za-z0-9_]*)(?:@.*)?$", symbols, re.M)))
missing = [name for name in left_out if name not in names]
if missing:
    sys.exit(f"{library} does not have {missing}")
with open(source_path, "w", encoding="utf-8") as source:
    source.write("// Generated: every name of the utility layer, and nothing behind it.\n#include <stdlib.h>\n")
    for name in names:
        if name not in left_out:
            source.write(f"void {name}(void);\nvoid {name}(void) {{ abort(); }}\n")
