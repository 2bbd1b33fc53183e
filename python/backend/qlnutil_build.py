"""What `pip install .` calls (PEP 517): CMake builds the package, and a wheel is put together from what it installs.

Nothing is downloaded. The wheel holds the libraries as well, so that nothing of the tree is needed behind it. The setting
build-dir (`pip install . --config-settings build-dir=DIR`) names a build folder that is kept; build/wheel by default.
"""
import base64
import hashlib
import os
import pathlib
import re
import subprocess
import sys
import sysconfig
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[2]


def get_requires_for_build_wheel(config_settings=None):
    return []


def _version():
    found = re.search(r"^project\(qlnutil VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)
    return found[1]


def _installed(folder, build):
    """Builds the package and installs it into a folder, as a wheel holds it."""
    # The build folder's own kind stays what it is.
    fresh = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo"] if not (build / "CMakeCache.txt").exists() else []
    subprocess.run(["cmake", "-S", ROOT, "-B", build, *fresh, "-DQLN_TESTS=OFF", "-DQLN_PYTHON=ON",
                    f"-DQLN_PYTHON_EXECUTABLE={sys.executable}", "-DQLN_PYTHON_DIR=.",
                    "-DQLN_PYTHON_LIBRARY_DIR=qlnutil/lib"], check=True)
    subprocess.run(["cmake", "--build", build, "--target", "python_package", "--parallel", str(os.cpu_count())], check=True)
    subprocess.run(["cmake", "--install", build, "--component", "python", "--prefix", folder, "--strip"], check=True)


def _members(folder):
    """Every file with its name in the wheel. Of a library's names the one that is looked for stays: wheels have no links."""
    links = {path: path.resolve() for path in folder.rglob("*") if path.is_symlink()}
    for path in sorted(folder.rglob("*")):
        if path.is_file() and path not in links.values():
            yield path.relative_to(folder).as_posix(), path.read_bytes()


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    version = _version()
    tag = f"cp{sys.version_info[0]}{sys.version_info[1]}"
    platform = sysconfig.get_platform().replace("-", "_").replace(".", "_")
    name = f"qlnutil-{version}-{tag}-{tag}-{platform}.whl"
    info = f"qlnutil-{version}.dist-info"
    build = pathlib.Path((config_settings or {}).get("build-dir", ROOT / "build/wheel")).resolve()
    with tempfile.TemporaryDirectory() as folder:
        _installed(pathlib.Path(folder), build)
        members = dict(_members(pathlib.Path(folder)))
    members[f"{info}/METADATA"] = (
        f"Metadata-Version: 2.1\nName: qlnutil\nVersion: {version}\nRequires-Python: >=3.11\n"
        "Summary: H.264 and HEVC streams, transport values and media files: the library and its engine\n").encode()
    members[f"{info}/WHEEL"] = f"Wheel-Version: 1.0\nGenerator: qlnutil\nRoot-Is-Purelib: false\nTag: {tag}-{tag}-{platform}\n".encode()
    record = ""
    for member, data in members.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record += f"{member},sha256={digest},{len(data)}\n"
    members[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:
        for member, data in members.items():
            wheel.writestr(member, data)
    return name


def build_sdist(sdist_directory, config_settings=None):
    raise NotImplementedError("the package is built from its checkout")
