"""What the tests share: clips that the installed encoders make once, the tool, and the seeds of the fuzzers."""
from __future__ import annotations

import json
import os
import pathlib
import subprocess
from collections.abc import Callable
from typing import Any

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = os.environ["QLNMEDIA"]
MADE = pathlib.Path(os.environ["QLN_PYTHON_CLIPS"])

Tool = Callable[..., Any]


def encode(name: str, *options: str, size: str = "160x120", rate: str = "25", pictures: int = 12) -> pathlib.Path:
    """A clip that ffmpeg makes, from a folder that all presets share."""
    path = MADE / name
    if not path.exists():
        MADE.mkdir(parents=True, exist_ok=True)
        beside = MADE / f"{os.getpid()}-{name}"
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc=s={size}:r={rate}", "-frames:v",
                        str(pictures), "-pix_fmt", "yuv420p", *options, str(beside)], check=True, env=plain_environment())
        os.replace(beside, path)
    return path


def plain_environment() -> dict[str, str]:
    """Without what preloads a sanitizer into this process."""
    return {key: value for key, value in os.environ.items() if key != "LD_PRELOAD"}


@pytest.fixture(scope="session")
def h264_mp4() -> pathlib.Path:
    return encode("h264.mp4", "-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-x264-params", "nal-hrd=vbr:vbv-maxrate=500:vbv-bufsize=500")


@pytest.fixture(scope="session")
def hevc_mp4() -> pathlib.Path:
    return encode("hevc.mp4", "-c:v", "libx265", "-preset", "ultrafast", "-tag:v", "hvc1", "-x265-params", "log-level=none")


@pytest.fixture(scope="session")
def h264_raw(h264_mp4: pathlib.Path) -> pathlib.Path:
    return encode("raw.h264", "-c:v", "libx264", "-preset", "ultrafast", "-bf", "0")


@pytest.fixture(scope="session")
def hevc_raw() -> pathlib.Path:
    return encode("raw.hevc", "-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none")


@pytest.fixture(scope="session")
def tool() -> Tool:
    """Runs qlnmedia; gives what it prints, as objects where it prints JSON."""
    def run(*arguments: object, status: int = 0) -> Any:
        done = subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, env=plain_environment())
        assert done.returncode == status, done.stderr
        return json.loads(done.stdout) if "--json" in arguments else done.stdout
    return run


def units_of(stream: bytes) -> list[bytes]:
    """The units of a stream with start codes, taken apart without the library."""
    parts = stream.replace(b"\0\0\0\1", b"\0\0\1").split(b"\0\0\1")[1:]
    return [part.rstrip(b"\0") for part in parts]


def box(path: pathlib.Path, kind: bytes) -> bytes:
    """The body of a configuration box, found by its name."""
    data = path.read_bytes()
    at = data.index(kind)
    return data[at + 4:at - 4 + int.from_bytes(data[at - 4:at], "big")]
