"""Installs everything into a folder, moves it, and builds and runs consumers: find_package, pkg-config, sub-project.

No consumer is helped to find its libraries: they start, or they do not."""
import glob
import json
import os
import shlex
import shutil
import subprocess
import sys

source, build, work, cmake, c_compiler, cxx_compiler = sys.argv[1:7]
here = os.path.dirname(os.path.abspath(__file__))


def run(*command, **environment):
    done = subprocess.run(command, capture_output=True, text=True, check=False, env={**os.environ, **environment})
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}\n{done.stdout}{done.stderr}")
    return done.stdout


shutil.rmtree(work, ignore_errors=True)
os.environ.pop("LD_LIBRARY_PATH", None)
prefix = f"{work}/moved here"
run(cmake, "--install", build, "--prefix", f"{work}/installed")
os.rename(f"{work}/installed", prefix)
library_dir = os.path.dirname(glob.glob(f"{prefix}/lib*/**/libqlnutil.so", recursive=True)[0])

# find_package, at the language levels that hosts use and with both compilers
compilers = [(c_compiler, cxx_compiler), ("clang-14", "clang++-14")]
for c, cxx in compilers:
    for standard in ("17", "20"):
        folder = f"{work}/package-{os.path.basename(cxx)}-{standard}"
        run(cmake, "-S", f"{here}/package", "-B", folder, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
            f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_CXX_COMPILER={cxx}", f"-DCMAKE_CXX_STANDARD={standard}")
        run(cmake, "--build", folder)
        for program in ("consumer_c", "consumer_cxx"):
            run(f"{folder}/{program}")

# pkg-config, naming nothing but qlnutil
package_path = {"PKG_CONFIG_PATH": f"{library_dir}/pkgconfig"}
flags = shlex.split(run("pkg-config", "--cflags", "--libs", "qlnutil", **package_path))
flags.append(f"-Wl,-rpath,{library_dir}")
strict = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
run(c_compiler, "-std=c11", *strict, f"{here}/consumer.c", "-o", f"{work}/with_pkgconfig_c", *flags)
run(cxx_compiler, "-std=c++17", *strict, f"{here}/consumer.cpp", "-o", f"{work}/with_pkgconfig_cxx", *flags)
for program in ("with_pkgconfig_c", "with_pkgconfig_cxx"):
    run(f"{work}/{program}")

# the engine: a host that patches a file, and one that edits units in memory and names no other library
clip, raw = f"{work}/clip.mp4", f"{work}/clip.h264"
pictures = ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=s=128x96:r=25:d=0.4", "-pix_fmt", "yuv420p",
            "-c:v", "libx264"]
run(*pictures, clip)
run(*pictures, "-x264-params", "aud=1:keyint=5", raw)


def run_engine_consumers(folder):
    run(f"{folder}/engine_consumer", clip, f"{work}/patched.mp4")
    run(f"{folder}/editor_consumer", raw)


run(cmake, "-S", f"{here}/engine", "-B", f"{work}/engine", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
    f"-DCMAKE_CXX_COMPILER={cxx_compiler}")
run(cmake, "--build", f"{work}/engine")
run_engine_consumers(f"{work}/engine")
flags = shlex.split(run("pkg-config", "--cflags", "--libs", "qlnmedia", **package_path))
if any("av" in flag for flag in flags if flag.startswith("-l")):
    sys.exit(f"a host of the engine is told to link {flags}")
os.makedirs(f"{work}/engine_pkgconfig")
for consumer in ("engine_consumer", "editor_consumer"):
    run(cxx_compiler, "-std=c++20", *strict, f"{here}/{consumer}.cpp", "-o", f"{work}/engine_pkgconfig/{consumer}",
        *flags, f"-Wl,-rpath,{library_dir}")
run_engine_consumers(f"{work}/engine_pkgconfig")

# the tool, from where it lies; its debug information stands beside it, where debuggers look, and not in it
tool = f"{prefix}/bin/qlnmedia"
run(tool, "--version")
run(tool, "inspect", clip)
with open(f"{prefix}/share/qlnmedia/inspect.schema.json", encoding="utf-8") as schema:
    json.load(schema)
for binary in (tool, *glob.glob(f"{library_dir}/lib*.so.*.*")):
    debug = f"{os.path.dirname(binary)}/.debug/{os.path.basename(binary)}.debug"
    if ".debug_info" in run("readelf", "-SW", binary) or ".gnu_debuglink" not in run("readelf", "-SW", binary):
        sys.exit(f"{binary} holds its debug information, or does not say where it is")
    if ".debug_info" not in run("readelf", "-SW", debug):
        sys.exit(f"{debug} holds no debug information")

# without libav, or with a damaged one, the tool starts and says what is missing
version = run("pkg-config", "--modversion", "libavformat").split(".")[0]
os.makedirs(f"{work}/damaged")
open(f"{work}/damaged/libavformat.so.{version}", "w", encoding="utf-8").close()
damaged = {**os.environ, "LD_LIBRARY_PATH": f"{work}/damaged"}
run(tool, "--help", LD_LIBRARY_PATH=f"{work}/damaged")
told = subprocess.run([tool, "inspect", clip], capture_output=True, text=True, check=False, env=damaged)
if told.returncode != 1 or f"libavformat.so.{version}: cannot be loaded" not in told.stderr or \
        told.stderr.count("\n") != 1:
    sys.exit(f"a missing libav is told as {told.returncode}: {told.stderr}")

# sub-project: tests, tools and benchmarks are off by themselves
run(cmake, "-S", f"{here}/subproject", "-B", f"{work}/subproject", "-G", "Ninja", f"-DQLNUTIL_SOURCE={source}",
    f"-DCMAKE_C_COMPILER={c_compiler}", f"-DCMAKE_CXX_COMPILER={cxx_compiler}", "-DCMAKE_BUILD_TYPE=Debug")
targets = run(cmake, "--build", f"{work}/subproject", "--target", "help")
for unwanted in ("qlnmedia", "test_bits"):
    if any(line.startswith(unwanted + ":") for line in targets.splitlines()):
        sys.exit(f"the sub-project builds {unwanted}")
run(cmake, "--build", f"{work}/subproject", "--target", "consumer_c", "consumer_cxx")
for program in ("consumer_c", "consumer_cxx"):
    run(f"{work}/subproject/{program}")
print("consumers build and run through find_package, pkg-config and as a sub-project")
