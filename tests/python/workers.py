"""What the tests of archives have workers do; a module, since workers import it."""
from __future__ import annotations

import os
import signal
import time
from typing import Any

from qlnutil import archive, media


def work(item: Any, options: dict[str, Any]) -> Any:
    """Checks a file, but for those whose names ask for something else."""
    name = os.path.basename(item.path)
    if name.startswith("killer"):
        os.kill(os.getpid(), signal.SIGKILL)
    for times, word in enumerate(("once", "twice"), 1):
        if name.startswith(word):
            with open(item.path + ".killed", "a+") as marker:
                marker.seek(0)
                seen = len(marker.read())
                marker.write("x")
            if seen < times:
                os.kill(os.getpid(), signal.SIGKILL)
    if name.startswith("raiser"):
        raise RuntimeError("out of ideas")
    time.sleep(options.get("pause", 0))
    return media.check(item.path)


def check_all(paths: Any, executor: Any = None, **more: Any) -> Any:
    """check_all with that work."""
    journal, jobs = more.pop("journal", None), more.pop("jobs", None)
    return archive._all("check", work, (archive._Item(str(path)) for path in paths), more, executor, journal, jobs)
