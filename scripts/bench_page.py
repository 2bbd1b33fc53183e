#!/usr/bin/env python3
"""Times the page of a long stream: bench_page.py [QLNMEDIA] [PICTURES].

Makes a stream of so many pictures (216,000: an hour at 60 a second), writes its page, opens it in headless Chromium, and
prints how long that takes until everything is drawn, and for each step of zooming and moving."""
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

program = sys.argv[1] if len(sys.argv) > 1 else "build/release/tools/qlnmedia/qlnmedia"
pictures = int(sys.argv[2]) if len(sys.argv) > 2 else 216000

# Moves a window by keys, and waits for two frames after each: the second one begins when the first is drawn.
STEPS = """
const [key, times, done] = arguments;
const plots = document.querySelector('.plots');
const took = [];
const step = () => {
  if (took.length === times) return done(took);
  const begin = performance.now();
  plots.dispatchEvent(new KeyboardEvent('keydown', { key }));
  requestAnimationFrame(() => requestAnimationFrame(() => { took.push(performance.now() - begin); step(); }));
};
step();
"""

with tempfile.TemporaryDirectory() as folder:
    once, clip, page = (Path(folder) / name for name in ("once.mp4", "long.mp4", "long.html"))
    seconds = 10
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=size=64x64:rate=60:duration={seconds}", "-c:v",
                    "libx264", "-preset", "ultrafast", "-x264-params",
                    "nal-hrd=vbr:vbv-maxrate=2000:vbv-bufsize=1000:bitrate=500:keyint=60:bframes=2", "-pix_fmt", "yuv420p",
                    once], check=True)
    subprocess.run(["ffmpeg", "-v", "error", "-stream_loop", str(pictures // (60 * seconds) - 1), "-i", once, "-c", "copy",
                    clip], check=True)
    begin = time.monotonic()
    writer = subprocess.Popen([program, "inspect", "--html", page, clip], stdout=subprocess.DEVNULL)
    _, status, used = os.wait4(writer.pid, 0)
    if status != 0:
        sys.exit("the page was not written")
    print(f"{pictures} pictures, {clip.stat().st_size / 1e6:.1f} MB: page of {page.stat().st_size / 1e6:.1f} MB written in "
          f"{time.monotonic() - begin:.1f} s with {used.ru_maxrss / 1e3:.0f} MB of memory")
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1280,1400"):
        options.add_argument(argument)
    options.binary_location = os.environ.get("CHROMIUM", "/usr/bin/chromium")
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        browser.set_script_timeout(120)
        browser.get(page.as_uri())
        print(f"drawn after {int(browser.execute_script('return document.documentElement.dataset.ready'))} ms")
        for key, name in (("+", "zoom in"), ("PageDown", "move"), ("-", "zoom out")):
            took = sorted(browser.execute_async_script(STEPS, key, 10))
            print(f"{name}: {took[len(took) // 2]:.0f} ms a step, {took[-1]:.0f} ms at most")
    finally:
        browser.quit()
