"""The executor of a cluster: a scheduler and two workers on the loopback, of which one is killed in mid-run."""
from __future__ import annotations

import os
import pathlib
import shutil
import signal
from typing import Any

import pytest
import workers
from distributed import Client, LocalCluster

import qlnutil
from qlnutil import archive

HERE = os.path.dirname(__file__)


def test_a_killed_worker_loses_no_result(tmp_path: pathlib.Path, h264_mp4: pathlib.Path) -> None:
    paths = []
    for at in range(12):
        paths.append(str(tmp_path / f"{at}.mp4"))
        shutil.copy(h264_mp4, paths[-1])
    (tmp_path / "damaged.mp4").write_bytes(b"no media")
    shutil.copy(h264_mp4, tmp_path / "killer.mp4")
    paths += [str(tmp_path / "damaged.mp4"), str(tmp_path / "killer.mp4")]
    os.environ["PYTHONPATH"] = os.pathsep.join([HERE, os.environ.get("PYTHONPATH", "")])  # of the workers
    make_cluster: Any = LocalCluster  # without types in Debian
    make_client: Any = Client
    with make_cluster(n_workers=2, threads_per_worker=1, host="127.0.0.1", dashboard_address=None) as cluster, \
            make_client(cluster) as client:
        processes = client.run(os.getpid)
        assert len(processes) == 2
        results: list[archive.Result] = []
        for result in workers.check_all(paths, client.get_executor(), pause=0.2):
            if not results:
                os.kill(next(iter(processes.values())), signal.SIGKILL)
            results.append(result)
    by_name = {os.path.basename(result.path): result for result in results}
    assert len(results) == len(by_name) == 14
    assert [str(result) for result in results if not result.ok and result.path[-5].isdigit()] == []
    assert isinstance(by_name["damaged.mp4"].error, qlnutil.Error)
    assert isinstance(by_name["killer.mp4"].error, qlnutil.WorkerDied)


@pytest.fixture(autouse=True)
def quick(monkeypatch: pytest.MonkeyPatch) -> None:
    """One worker that a file ends is enough to know it."""
    import dask
    dask.config.set({"distributed.scheduler.allowed-failures": 1})
