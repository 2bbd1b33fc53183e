"""The option --html on the command line."""
import json
import subprocess

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
