"""Installs the library into a folder and builds and runs consumers of it: find_package, pkg-config, sub-project."""
import glob
import os
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
prefix = f"{work}/prefix"
run(cmake, "--install", build, "--prefix", prefix)
library_dir = os.path.dirname(glob.glob(f"{prefix}/lib*/**/libqlnutil.so", recursive=True)[0])
run_path = {"LD_LIBRARY_PATH": library_dir}

# find_package
run(cmake, "-S", f"{here}/package", "-B", f"{work}/package", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
    f"-DCMAKE_C_COMPILER={c_compiler}", f"-DCMAKE_CXX_COMPILER={cxx_compiler}")
run(cmake, "--build", f"{work}/package")
for program in ("consumer_c", "consumer_cxx"):
    run(f"{work}/package/{program}", **run_path)

# pkg-config, naming nothing but qlnutil
package_path = {"PKG_CONFIG_PATH": f"{library_dir}/pkgconfig"}
flags = run("pkg-config", f"--define-variable=prefix={prefix}", "--cflags", "--libs", "qlnutil", **package_path).split()
strict = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
run(c_compiler, "-std=c11", *strict, f"{here}/consumer.c", "-o", f"{work}/with_pkgconfig_c", *flags)
run(cxx_compiler, "-std=c++20", *strict, f"{here}/consumer.cpp", "-o", f"{work}/with_pkgconfig_cxx", *flags)
for program in ("with_pkgconfig_c", "with_pkgconfig_cxx"):
    run(f"{work}/{program}", **run_path)

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
