"""Clips, their pages, and one browser that shows them."""
import json
import os
import subprocess
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

QLNMEDIA = os.environ["QLNMEDIA"]
CLIPS = Path(os.environ["QLN_HTML_CLIPS"])
MARKUP = '</script><script>document.title="owned"</script><img src=x onerror="document.title=\'owned\'">'
X264 = "nal-hrd=cbr:vbv-maxrate=300:vbv-bufsize=150:bitrate=300:keyint=12:bframes=2"


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False)
    assert done.returncode in (0, 3), done.stderr
    return done.stdout


def encode(path, *options, source="testsrc2=size=160x120:rate=25:duration=1.2"):
    if not path.exists():
        run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source, *options, "-pix_fmt", "yuv420p", path)
    return path


def make_avc():
    """H.264 with a signalled buffer, timecodes and captions; every text that can be is markup, and so is its name."""
    made = CLIPS / "a 'b' \"c\" <i>&amp;.mp4"
    base = CLIPS / "base.mp4"
    if made.exists():
        return made
    run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=2", "-f", "lavfi",
        "-i", "sine=duration=2", "-metadata", f"title={MARKUP}", "-metadata:s:a:0", f"handler_name={MARKUP}",
        "-c:v", "libx264", "-preset", "ultrafast", "-x264-params", X264, "-pix_fmt", "yuv420p", "-c:a", "aac", base)
    cues = CLIPS / "cues.srt"
    cues.write_text("1\n00:00:00,900 --> 00:00:01,300\n<img src=x onerror=1>\n\n2\n00:00:01,700 --> 00:00:01,950\n"
                    "\"X\" </script>\n", encoding="utf-8")
    run(QLNMEDIA, "patch", "--force", "--timecode", "09:59:59:10", "--captions", cues, base, made)
    return made


def make_interlaced():
    """Fields in the stream, top field first, in a transport stream: two sets that follow each other."""
    return encode(CLIPS / "fields.ts", "-c:v", "libx264", "-preset", "ultrafast", "-flags", "+ildct+ilme", "-x264-params",
                  "tff=1:keyint=10:bframes=0")


def make_hevc():
    return encode(CLIPS / "hevc.mkv", "-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
                  "log-level=none:keyint=10:open-gop=1:bframes=2:slices=2")


def make_mpeg2():
    return encode(CLIPS / "mpeg2.ts", "-c:v", "mpeg2video", "-g", "8", "-bf", "2")


def make_late():
    """The same encode with 20,000 bytes more at each IDR picture, which its buffer cannot take in time."""
    make_avc()
    made = CLIPS / "late.mp4"
    text = "086f3693-b7b3-4f2c-9653-21492feee5b8+" + "x" * 20000
    run("ffmpeg", "-v", "error", "-y", "-i", CLIPS / "base.mp4", "-map", "0:v", "-c", "copy", "-bsf:v",
        f"h264_metadata=sei_user_data={text}", made)
    return made


def make_jump():
    """Two raw streams behind each other, each with timecodes of its own."""
    made = CLIPS / "jump.h264"
    parts = []
    for hour in ("01", "02"):
        base = encode(CLIPS / "plain.h264", "-c:v", "libx264", "-preset", "ultrafast", "-x264-params", "keyint=10:bframes=2")
        parts.append(CLIPS / f"hour{hour}.h264")
        run(QLNMEDIA, "patch", "--force", "--timecode", f"{hour}:00:00:00", base, parts[-1])
    made.write_bytes(b"".join(part.read_bytes() for part in parts))
    return made


CLIP_KINDS = {"jump": make_jump, "late": make_late, "avc": make_avc, "fields": make_interlaced, "hevc": make_hevc, "mpeg2": make_mpeg2}


class Clip:
    """A file with what is said of it by its page, by inspect's JSON, and by ffprobe."""

    def __init__(self, path):
        self.path = path
        self.page = path.with_name(path.name + ".html")
        run(QLNMEDIA, "inspect", "--force", "--html", self.page, path)
        probed = json.loads(run("ffprobe", "-v", "error", "-select_streams", "v:0", "-show_packets", "-show_frames", "-of",
                                "json", path))["packets_and_frames"]
        self.packets = [entry for entry in probed if entry["type"] == "packet"]
        self.frames = [entry for entry in probed if entry["type"] == "frame"]
        self._inspected = None

    @property
    def inspected(self):
        if self._inspected is None:
            report = json.loads(run(QLNMEDIA, "inspect", "--json", "--units", "--frames", len(self.packets), self.path))
            self._inspected = next(stream for stream in report["streams"] if stream["type"] == "video")
        return self._inspected


@pytest.fixture(scope="session")
def clips():
    CLIPS.mkdir(parents=True, exist_ok=True)
    made = {}

    def clip(kind):
        if kind not in made:
            made[kind] = Clip(CLIP_KINDS[kind]())
        return made[kind]

    return clip


@pytest.fixture(scope="session")
def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1200,1400",
                     "--force-prefers-reduced-motion"):
        options.add_argument(argument)
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    yield driver
    driver.quit()


@pytest.fixture
def shown(browser, clips):
    """Opens the page of a clip from disk and sees that it says nothing on the console."""
    opened = []

    def show(kind):
        clip = clips(kind)
        browser.get(clip.page.as_uri())
        opened.append(clip)
        return clip

    yield show
    assert browser.get_log("browser") == []
    assert not opened or browser.title == f"{opened[-1].path.name}: media report"
