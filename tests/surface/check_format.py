"""Checks that all C and C++ sources are as clang-format would write them."""
import os
import shutil
import subprocess
import sys

root = sys.argv[1]
formatter = shutil.which("clang-format-14") or shutil.which("clang-format")
if formatter is None:
    sys.exit("clang-format is not installed")
sources = []
for folder in ("support", "media", "tools", "python", "gst", "tests", "fuzz", "bench"):
    for directory, _, files in os.walk(os.path.join(root, folder)):
        sources += [os.path.join(directory, f) for f in files if f.endswith((".h", ".c", ".cpp"))]
done = subprocess.run([formatter, "--dry-run", "--Werror", *sorted(sources)], capture_output=True, text=True, check=False)
bad = sorted({line.split(":")[0] for line in done.stderr.splitlines() if ": error:" in line})
print("\n".join(os.path.relpath(path, root) for path in bad) or f"{len(sources)} files are in form")
sys.exit(1 if done.returncode else 0)
