"""Compiles each public header alone: as C++20, and as C11 where it holds plain functions and records."""
import concurrent.futures
import glob
import os
import subprocess
import sys
import tempfile

support, c_compiler, cxx_compiler = sys.argv[1:4]
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Wsign-conversion", "-Werror"]
# Headers of classes: C++ only.
CXX_ONLY = {"kxdiskcache.h", "kxprojecttoxml.h", "qlnutil.h", "helpers.h"}
# The umbrella itself, what every header includes, and what a host asks for by its name.
NOT_IN_THE_UMBRELLA = {"qlnutil/qlnutil.h", "qlnutil/qlnapi.h", "qlnutil/helpers.h"}
# Parts of the header of their family, which brings them.
NOT_IN_THE_UMBRELLA |= {f"qlnutil/{part}.h" for part in ("qlnh264_records", "qlnhevc_records", "qlntransport_position")}
# Not part of the surface.
INTERNAL = {"qlnvidutil.h"}

headers = [os.path.relpath(path, support) for path in glob.glob(f"{support}/qlnutil/*.h")]
headers = [h for h in headers if os.path.basename(h) not in INTERNAL] + ["kxutil/kxutil.h", "timecode/kxtimecode.h"]


def compile_alone(header, compiler, flags, suffix):
    with tempfile.TemporaryDirectory() as folder:
        source = os.path.join(folder, "alone" + suffix)
        with open(source, "w", encoding="utf-8") as file:
            file.write(f'#include "{header}"\n#include "{header}"\n')
        command = [compiler, *flags, *WARNINGS, "-fsyntax-only", "-I", support, source]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        return [] if done.returncode == 0 else [f"{header} does not compile alone with {flags[0]}:\n{done.stderr}"]


jobs = [(h, cxx_compiler, ["-std=c++20"], ".cpp") for h in headers]
jobs += [("qlnutil/helpers.h", cxx_compiler, ["-std=c++17"], ".cpp")]
jobs += [(h, c_compiler, ["-std=c11"], ".c") for h in headers if os.path.basename(h) not in CXX_ONLY]
with concurrent.futures.ThreadPoolExecutor(2) as pool:
    problems = [p for found in pool.map(lambda job: compile_alone(*job), jobs) for p in found]

# The umbrella header includes every other one.
with open(f"{support}/qlnutil/qlnutil.h", encoding="utf-8") as file:
    umbrella = file.read()
for header in headers:
    if header.startswith("qlnutil/") and header not in NOT_IN_THE_UMBRELLA:
        if f'"{header}"' not in umbrella:
            problems.append(f"qlnutil.h does not include {header}")

print("\n".join(problems) or f"{len(headers)} headers compile alone, {len(jobs)} ways")
sys.exit(1 if problems else 0)
