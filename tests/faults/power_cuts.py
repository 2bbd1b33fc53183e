"""Cuts the power at each moment of a job, and looks at what each disk that this may leave holds.

The job runs once, with tests/support/power_layer.cpp in front; disk_model.py works out the disks. What the job had told to
be kept must be there, nothing may be half there, and the next run goes on.
"""

import argparse
import os
import random
import re
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import disk_model  # noqa: E402
import endings  # noqa: E402
from fail_each_call import restore, spread  # noqa: E402


def recorded(setup, layer, job, place):
    """The disk in front of the job, and what the job did."""
    folder = os.path.join(place, "run")
    restore(folder, job.before)
    disk = disk_model.Disk(folder)
    log = os.path.join(place, "log")
    if os.path.exists(log):
        os.remove(log)
    environment = dict(setup.environment, LD_PRELOAD=layer, QLN_POWER_LOG=log, QLN_POWER_FOLDER=folder)
    run = subprocess.run(job.command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, timeout=120, check=False)
    if run.returncode != 0:
        raise RuntimeError(f"{job.name}: {run.stderr.decode(errors='replace')}")
    return disk, list(disk_model.read_records(log))


def with_recovery(setup, layer, place, jobs):
    """The jobs, and the recovery of a change in place whose power went between journal and file."""
    for job in jobs:
        yield job
        if job.name != "patch in place":
            continue
        disk, records = recorded(setup, layer, job, place)
        for record in records:
            disk.take(record)
            shown = disk.state(None, None)
            if len(shown) > 1 and shown["a.mp4"] != job.before["a.mp4"]:
                break
        yield setup.patched("recover", ["recover", "a.mp4"], [], os.path.join(place, "run"), shown)


def cut_all(setup, layer, job, place, options):
    disk, records = recorded(setup, layer, job, place)
    state_folder = os.path.join(place, "state")
    seen = set()
    states = 0
    findings = []
    draw = random.Random(options.seed)
    moments = set(spread(list(range(len(records))), options.moments)) | {len(records) - 1}
    for number, record in enumerate(records):
        disk.take(record)
        if number not in moments:
            continue
        finished = number == len(records) - 1
        for shown in disk.states(draw, options.more):
            key = hash((tuple(sorted(shown.items(), key=lambda one: one[0])), disk.said, finished))
            if key in seen:
                continue
            seen.add(key)
            states += 1
            restore(state_folder, {name if data is not None else name + "/": data or b"" for name, data in shown.items()})
            finding = job.judge(state_folder, disk.said, finished)
            if finding:
                findings.append(f"{job.name}: cut behind call {number + 1} of {len(records)}: {finding}")
    return len(records), states, findings


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--qlnmedia", required=True)
    parser.add_argument("--host", required=True, help="settings_host")
    parser.add_argument("--layer", required=True, help="power_layer")
    parser.add_argument("--media", required=True, help="where the small files are made")
    parser.add_argument("--jobs", default="", help="only jobs whose names match this")
    parser.add_argument("--changes", type=int, default=12, help="of settings and projects")
    parser.add_argument("--moments", type=int, default=0, help="at most so many of each job")
    parser.add_argument("--more", type=int, default=8, help="disks drawn by chance at each moment")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    setup = endings.Setup(options.qlnmedia, options.host, options.media)
    layer = os.path.abspath(options.layer)
    failed = False
    with tempfile.TemporaryDirectory(prefix="qln-power-", dir=memory) as place:
        path = os.path.join(place, "run")
        jobs = [*setup.kept_jobs(path, options.changes), *setup.patch_jobs(path)]
        for job in with_recovery(setup, layer, place, jobs):
            if not re.search(options.jobs, job.name):
                continue
            began = time.monotonic()
            calls, states, findings = cut_all(setup, layer, job, place, options)
            for finding in findings[:5]:
                print(finding)
            print(f"power: {job.name}: {calls} calls, {states} disks, {len(findings)} findings, "
                  f"{time.monotonic() - began:.0f} s", flush=True)
            failed = failed or bool(findings) or states < 5
    setup.close()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
