"""Kills jobs at random moments, and looks at what they leave: what they had told to be kept is there, nothing is half
there, and the next run goes on."""

import argparse
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import endings  # noqa: E402
from fail_each_call import restore  # noqa: E402


def ran(setup, job, folder, seconds):
    """What the job said up to its end by a kill after so many seconds, and whether it ended before that."""
    run = subprocess.Popen(job.command, cwd=folder, env=setup.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.DEVNULL)
    time.sleep(seconds)
    run.send_signal(signal.SIGKILL)
    return run.communicate()[0], run.returncode == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--qlnmedia", required=True)
    parser.add_argument("--host", required=True, help="settings_host")
    parser.add_argument("--media", required=True, help="where the small files are made")
    parser.add_argument("--jobs", default="", help="only jobs whose names match this")
    parser.add_argument("--kills", type=int, default=2000, help="of all jobs together")
    parser.add_argument("--place", default=None, help="a folder on the disk that is to be written to")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    setup = endings.Setup(options.qlnmedia, options.host, options.media)
    draw = random.Random(options.seed)
    failed = False
    with tempfile.TemporaryDirectory(prefix="qln-kills-", dir=options.place and os.path.abspath(options.place)) as place:
        folder = os.path.join(place, "run")
        jobs = [*setup.kept_jobs(folder, endings.MOST_NUMBERS), *setup.patch_jobs(folder)]
        jobs = [job for job in jobs if re.search(options.jobs, job.name)]
        for job in jobs:
            began = time.monotonic()
            endless = job.command[-1] == str(endings.MOST_NUMBERS)
            longest = 0.15
            if not endless:
                restore(folder, job.before)
                start = time.monotonic()
                setup.run(job.command, folder)
                longest = 1.1 * (time.monotonic() - start)
            ended = within = 0
            findings = []
            for _ in range(options.kills // len(jobs)):
                restore(folder, job.before)
                # The beginning of a run, before it writes anything, is most of it.
                said, finished = ran(setup, job, folder, longest * (draw.random() if endless else draw.uniform(0.3, 1)))
                left = len(os.listdir(folder)) != len({name.split("/")[0] for name in job.before})
                # The machine has other things to do, now more and now less.
                if not endless:
                    longest *= 0.94 if finished else 1.03
                within += not finished and (bool(said) or left)
                ended += finished
                finding = job.judge(folder, said, finished)
                if finding:
                    findings.append(f"{job.name}: {finding}")
            for finding in findings[:5]:
                print(finding)
            print(f"kills: {job.name}: {options.kills // len(jobs)} kills, {within} of them with work begun, {ended} too late, "
                  f"{len(findings)} findings, {time.monotonic() - began:.0f} s", flush=True)
            failed = failed or bool(findings)
    setup.close()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
