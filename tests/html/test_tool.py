"""The option --html on the command line."""
import json
import os
import signal
import subprocess
import time

import pytest

from conftest import QLNMEDIA


def call(*arguments):
    return subprocess.run([QLNMEDIA, *(str(argument) for argument in arguments)], capture_output=True, text=True, check=False,
                          stdin=subprocess.DEVNULL)


def test_check_prints_what_its_page_holds(clips, tmp_path):
    clip = clips("late").path
    page = tmp_path / "page.html"
    plain = call("check", "--json", clip)
    drawn = call("check", "--json", "--html", page, clip)
    assert (drawn.returncode, drawn.stdout) == (plain.returncode, plain.stdout)
    text = page.read_text(encoding="utf-8")
    data = json.loads(text.split('id="data">')[1].split("</script>")[0])
    findings = json.loads(plain.stdout)["findings"]
    assert sorted(finding["text"] for finding in data["findings"]) == sorted(finding["text"] for finding in findings)
    weights = ["error", "warning", "note"]
    assert [finding["severity"] for finding in data["findings"]] == sorted((finding["severity"] for finding in findings),
                                                                           key=weights.index)


def test_a_page_is_the_same_each_time(clips, tmp_path):
    clip = clips("hevc").path
    for name in ("a.html", "b.html"):
        assert call("inspect", "--html", tmp_path / name, clip).returncode == 0
    assert (tmp_path / "a.html").read_bytes() == (tmp_path / "b.html").read_bytes()


def stopped_while_writing(command, clip, page):
    """A run that stands still while its page is half written."""
    for _ in range(50):
        run = subprocess.Popen([QLNMEDIA, *command, "--html", page, clip], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
        while run.poll() is None:
            if any(name.endswith(".part") for name in os.listdir(page.parent)):
                run.send_signal(signal.SIGSTOP)
                time.sleep(0.01)
                if any(name.endswith(".part") for name in os.listdir(page.parent)):
                    return run
                run.send_signal(signal.SIGCONT)
                break
        run.communicate()
        page.unlink(missing_ok=True)
    pytest.fail("no run was met while it wrote")


def ended_while_writing(command, clip, page, end):
    """Has `end` end a run that stands still, and gives its status and last words. Nothing may be left."""
    for _ in range(20):
        run = stopped_while_writing(command, clip, page)
        end(run)
        run.send_signal(signal.SIGCONT)
        told = run.communicate()[1]
        left = os.listdir(page.parent)
        if left == []:
            return run.returncode, told
        assert left == ["page.html"]
        page.unlink()  # it was whole before its end came
    pytest.fail("no run was ended while it wrote")


@pytest.mark.parametrize("command", ["inspect", "check"])
def test_a_signal_takes_a_page_away_that_is_not_whole(command, clips, tmp_path):
    status, _ = ended_while_writing([command], clips("hevc").path, tmp_path / "page.html",
                                    lambda run: run.send_signal(signal.SIGTERM))
    assert status == -signal.SIGTERM


@pytest.mark.parametrize("command", ["inspect", "check"])
def test_the_end_of_the_time_takes_a_page_away_that_is_not_whole(command, clips, tmp_path):
    status, told = ended_while_writing(["--max-seconds", "1", command], clips("hevc").path, tmp_path / "page.html",
                                       lambda run: time.sleep(1.1))
    assert status == 1 and b"stopped after 1 seconds" in told


def test_what_is_there_stays(clips, tmp_path):
    clip = clips("hevc").path
    page = tmp_path / "page.html"
    page.write_text("mine", encoding="utf-8")
    assert call("inspect", "--html", page, clip).returncode == 1
    assert page.read_text(encoding="utf-8") == "mine"
    before = clip.read_bytes()
    refused = call("inspect", "--force", "--html", clip, clip)
    assert refused.returncode == 1 and "is the file that the page would be about" in refused.stderr
    assert clip.read_bytes() == before


def test_a_page_is_about_one_file(clips, tmp_path):
    clip = clips("hevc").path
    page = tmp_path / "page.html"
    assert call("inspect", "--html", page, clip, clip).returncode == 2
    assert call("check", "--html", page, "--journal", tmp_path / "journal", clip).returncode == 2
    with open(clip, "rb") as file:
        piped = subprocess.run(f"cat '{clip}' | {QLNMEDIA} inspect --html '{page}' -", shell=True, capture_output=True, text=True,
                               stdin=file, check=False)
    assert piped.returncode == 1 and "is a pipe, and a page needs a file" in piped.stderr
    assert call("inspect", "--html", page, tmp_path / "missing.mp4").returncode == 1
    assert not page.exists()
