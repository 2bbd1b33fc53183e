"""The examples, run as their users run them, and those in docstrings."""
from __future__ import annotations

import doctest
import importlib
import os
import pathlib
import shutil
import subprocess
import sys

import pytest
from conftest import ROOT

from qlnutil import h264, media

EXAMPLES = ROOT / "python/examples"


def run(name: str, *arguments: object, status: int = 0) -> str:
    done = subprocess.run([sys.executable, EXAMPLES / f"{name}.py", *map(str, arguments)], capture_output=True, text=True)
    assert done.returncode == status, done.stderr
    return done.stdout


@pytest.fixture
def folder(tmp_path: pathlib.Path, h264_mp4: pathlib.Path, hevc_mp4: pathlib.Path) -> pathlib.Path:
    (tmp_path / "in").mkdir()
    shutil.copy(h264_mp4, tmp_path / "in")
    shutil.copy(hevc_mp4, tmp_path / "in")
    return tmp_path / "in"


def test_sps_table(folder: pathlib.Path) -> None:
    lines = run("sps_table", folder).splitlines()
    assert len(lines) == 3 and "160x120" in lines[1] and "160x120" in lines[2] and "Main" in lines[1]


def test_hdr10_and_colour(folder: pathlib.Path, tmp_path: pathlib.Path) -> None:
    assert "parameter set" in run("hdr10_folder", folder, tmp_path / "out", "p3", 1000, 400)
    out = tmp_path / "out/hevc.mp4"
    assert "1000" in str(media.inspect(out)["summary"])
    assert run("colour_disagreements", tmp_path / "out") == ""
    data = bytearray(out.read_bytes())
    at = data.index(b"colrnclx") + 8
    data[at:at + 2] = b"\0\1"
    out.write_bytes(data)
    assert "hevc.mp4" in run("colour_disagreements", tmp_path / "out", tmp_path / "journal", status=3)
    assert "hevc.mp4" in run("colour_disagreements", tmp_path / "out", tmp_path / "journal", status=3)


def test_captions_across_a_transcode(folder: pathlib.Path, tmp_path: pathlib.Path) -> None:
    (tmp_path / "in.scc").write_bytes(b"Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420 94ad c8e5 ecec ef80 942f 942f\n")
    original = tmp_path / "original.mp4"
    media.patch(folder / "h264.mp4", original, captions=tmp_path / "in.scc", captions_offset="00:00:00:00")
    text = run("captions_across_transcode", original, folder / "hevc.mp4", tmp_path / "out.mp4")
    assert "12 of 12 pictures have captions; before 12 of 12" in text


def test_walk_through(folder: pathlib.Path) -> None:
    for name in ("h264.mp4", "hevc.mp4"):
        assert "160 x 120" in run("walk_through", folder / name)


@pytest.mark.parametrize("name", ["h264", "aac", "captions", "formats", "timecode", "transport", "command", "_editor"])
def test_docstrings(name: str) -> None:
    found = doctest.testmod(importlib.import_module(f"qlnutil.{name}"))
    assert found.failed == 0 and found.attempted > 0
