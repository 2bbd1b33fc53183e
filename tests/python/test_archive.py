"""Many files: results of all of them whatever happens to workers, journals, and the tool's own."""
from __future__ import annotations

import concurrent.futures
import json
import os
import pathlib
import shutil
import signal
import subprocess

import pytest
import workers
from conftest import TOOL, Tool

import qlnutil
from qlnutil import archive, media


@pytest.fixture
def folder(tmp_path: pathlib.Path, h264_mp4: pathlib.Path) -> pathlib.Path:
    """Four sound clips, one of them below, one that breaks off, one that is none, and what is passed over."""
    root = tmp_path / "media"
    (root / "below").mkdir(parents=True)
    for name in ("a.mp4", "b.mp4", "c.MP4", "below/d.mp4", ".hidden.mp4", "notes.txt"):
        shutil.copy(h264_mp4, root / name)
    (root / "e.mp4").write_bytes(h264_mp4.read_bytes()[:3000])
    (root / "f.mp4").write_bytes(b"")
    return root


def test_files_of_folders(folder: pathlib.Path) -> None:
    found = [os.path.relpath(path, folder) for path in archive.files(folder)]
    assert found == ["a.mp4", "b.mp4", "c.MP4", "e.mp4", "f.mp4", "below/d.mp4"]
    with pytest.raises(qlnutil.Error):
        list(archive.files(folder / "missing"))


def test_check_and_inspect_all(folder: pathlib.Path) -> None:
    paths = list(archive.files(folder))
    results = {result.path: result for result in archive.check_all(paths, jobs=2)}
    assert sorted(results) == sorted(paths)
    assert [results[path].ok for path in paths] == [True, True, True, False, False, True]
    assert isinstance(results[paths[4]].error, qlnutil.NotApplicable)
    assert results[paths[0]].value == media.check(paths[0]) and paths[0] in str(results[paths[0]])
    with concurrent.futures.ThreadPoolExecutor(2) as threads:
        reports = {result.path: result for result in archive.inspect_all(paths[:2], threads, units=True)}
    assert reports[paths[0]].value == media.inspect(paths[0], units=True)
    assert "a.mp4" in reports[paths[0]]._repr_html_()


def test_patch_all(folder: pathlib.Path, tmp_path: pathlib.Path) -> None:
    pairs = [(path, tmp_path / f"out-{at}.mp4") for at, path in enumerate(archive.files(folder))]
    journal = tmp_path / "journal"
    results = list(archive.patch_all(pairs, jobs=2, journal=journal, colour="bt709"))
    assert sum(result.ok for result in results) == 4 == len(list(tmp_path.glob("out-*.mp4")))
    pairs[0][1].unlink()
    again = list(archive.patch_all(pairs, jobs=2, journal=journal, colour="bt709"))
    assert sum(result.resumed for result in again) == 5 and pairs[0][1].exists()
    other = list(archive.patch_all(pairs[:1], jobs=1, journal=journal, colour="p3-pq"))
    assert not other[0].resumed and other[0].dst == str(pairs[0][1]) and "0" in str(other[0].value)


def test_a_worker_that_dies_is_one_failed_result(folder: pathlib.Path, h264_mp4: pathlib.Path) -> None:
    for name in ("killer.mp4", "once.mp4", "raiser.mp4"):
        shutil.copy(h264_mp4, folder / name)
    paths = list(archive.files(folder))
    results = {os.path.basename(result.path): result for result in workers.check_all(paths, jobs=2)}
    assert len(results) == len(paths) == 9
    assert isinstance(results["killer.mp4"].error, qlnutil.WorkerDied)
    assert results["once.mp4"].ok and "out of ideas" in str(results["raiser.mp4"].error)
    assert sum(result.ok for result in results.values()) == 5
    shutil.copy(h264_mp4, folder / "twice.mp4")
    assert [result.ok for result in workers.check_all([folder / "twice.mp4"], jobs=1)] == [True]
    # An executor that somebody hands in may break as well.
    (folder / "once.mp4.killed").unlink()
    with concurrent.futures.ProcessPoolExecutor(2) as pool:
        results = {os.path.basename(result.path): result for result in workers.check_all(paths, pool)}
    assert len(results) == 9 and sum(result.ok for result in results.values()) == 5


def test_a_run_goes_on_where_it_was(folder: pathlib.Path, tmp_path: pathlib.Path, h264_mp4: pathlib.Path) -> None:
    journal = tmp_path / "check.jsonl"
    paths = list(archive.files(folder))
    run = archive.check_all(paths, jobs=1, journal=journal)
    first = [next(run), next(run)]
    run.close()  # type: ignore[attr-defined]
    done = len(journal.read_text().splitlines())
    assert 2 <= done < len(paths) and not any(result.resumed for result in first)
    with open(journal, "ab") as file:
        file.write(b'{"work": "check", "fi')  # the machine stopped here
    results = list(archive.check_all(paths, jobs=1, journal=journal))
    assert sum(result.resumed for result in results) == done and len(results) == len(paths)
    assert {result.path for result in results} == set(paths)
    shutil.copy(h264_mp4, folder / "e.mp4")  # mended
    again = {os.path.basename(result.path): result for result in archive.check_all(paths, jobs=1, journal=journal)}
    assert again["e.mp4"].ok and not again["e.mp4"].resumed and again["a.mp4"].resumed
    assert isinstance(again["f.mp4"].error, qlnutil.NotApplicable) and again["f.mp4"].resumed
    assert again["a.mp4"].value == media.check(folder / "a.mp4")


def test_a_journal_belongs_to_one_run(folder: pathlib.Path, tmp_path: pathlib.Path) -> None:
    run = archive.check_all([folder / "a.mp4"], jobs=1, journal=tmp_path / "journal")
    with pytest.raises(qlnutil.Error, match="another run"):
        archive.check_all([folder / "a.mp4"], journal=tmp_path / "journal")
    assert len(list(run)) == 1
    with pytest.raises(qlnutil.Error, match="line 1"):
        archive.check_all([], journal=folder / "a.mp4")
    with pytest.raises(qlnutil.Error):
        archive.check_all([], journal=tmp_path / "no" / "journal")
    with pytest.raises(ValueError):
        archive.check_all([], jobs=-1)


def test_the_tool_has_the_same_journal(folder: pathlib.Path, tmp_path: pathlib.Path, tool: Tool) -> None:
    journal = tmp_path / "check.jsonl"
    paths = list(archive.files(folder))
    list(archive.check_all(paths[:3], jobs=2, journal=journal))
    tool("check", "--recursive", folder, "--jobs", "2", "--journal", journal, status=1)
    entries = [json.loads(line) for line in journal.read_text().splitlines()]
    assert sorted(entry["file"] for entry in entries) == sorted(paths)
    assert {entry["file"]: entry["status"] for entry in entries}[paths[4]] == 4
    results = list(archive.check_all(paths, jobs=1, journal=journal))
    assert all(result.resumed for result in results)
    assert [result.ok for result in sorted(results, key=lambda one: paths.index(one.path))] == [
        True, True, True, False, False, True]


def test_the_tool_goes_on_when_a_check_is_killed(tmp_path: pathlib.Path, h264_mp4: pathlib.Path) -> None:
    os.mkfifo(tmp_path / "waits.mp4")  # whose check waits for somebody who writes
    shutil.copy(h264_mp4, tmp_path / "sound.mp4")
    journal = tmp_path / "journal"
    with subprocess.Popen([TOOL, "check", tmp_path / "waits.mp4", tmp_path / "sound.mp4", "--journal", journal],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as run:
        child = None
        while child is None:
            for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
                try:
                    fields = stat.read_text().rpartition(")")[2].split()
                except OSError:
                    continue
                if int(fields[1]) == run.pid:
                    child = int(stat.parent.name)
        os.kill(child, signal.SIGKILL)
        out, error = run.communicate()
    assert run.returncode == 1 and "ended by signal 9" in error and "nothing found" in out
    entries = [json.loads(line) for line in journal.read_text().splitlines()]
    assert entries[0]["failure"][0] == "WorkerDied" and entries[1]["status"] == 0
