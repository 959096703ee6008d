"""Scenes fused by rows on a Dask scheduler have the bytes of the whole run, whatever happens to workers."""
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
from conftest import METHODS, read

import rsfusion

distributed = pytest.importorskip("distributed")
if not shutil.which("gdalbuildvrt") or not shutil.which("gdal_translate"):
    pytest.skip("gdal-bin is not installed", allow_module_level=True)

from rsfusion import dask  # noqa: E402


@pytest.fixture(scope="module")
def cluster():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        yield cluster


@pytest.fixture(scope="module")
def client(cluster):
    with distributed.Client(cluster) as client:
        yield client


@pytest.fixture
def paths(scene, tmp_path):
    return scene / "pan.tif", scene / "ms.tif", tmp_path / "fused.vrt"


def same(path, whole):
    """Whether a result has the samples of a whole one."""
    here, there = read(path), read(whole)
    return here.dtype == there.dtype and here.shape == there.shape and here.tobytes() == there.tobytes()


def left(folder):
    """What lies in a folder, hidden or not, beside images."""
    return [name for name in os.listdir(folder) if not name.endswith((".tif", ".vrt"))]


@pytest.mark.parametrize("method", METHODS)
def test_every_method_has_the_bytes_of_the_whole_run(method, paths, client, tmp_path):
    rsfusion.fuse(*paths[:2], tmp_path / "whole.tif", method=method)
    fused = dask.fuse(*paths, method=method, client=client, rows_per_task=50)
    assert same(paths[2], tmp_path / "whole.tif")
    assert len(fused.parts) == 4 and fused.height == 192
    assert sorted(os.listdir(os.path.dirname(fused.parts[0]))) == [os.path.basename(part) for part in fused.parts]


def test_one_file_is_left_alone(paths, client, tmp_path):
    rsfusion.fuse(*paths[:2], tmp_path / "whole.tif", method="brovey")
    fused = dask.fuse(*paths[:2], tmp_path / "one.tif", method="brovey", client=client, rows_per_task=70, single=True)
    assert same(tmp_path / "one.tif", tmp_path / "whole.tif") and fused.parts == []
    dask.fuse(*paths[:2], tmp_path / "cog.tif", method="brovey", client=client, single=True, format="COG")
    assert same(tmp_path / "cog.tif", tmp_path / "whole.tif")
    assert left(tmp_path) == []


def test_what_exists_is_replaced_on_request_and_swept_then(paths, client, tmp_path):
    first = dask.fuse(*paths, method="brovey", client=client)
    with pytest.raises(FileExistsError, match="overwrite"):
        dask.fuse(*paths, method="pca", client=client)
    # What a run that died has left.
    (tmp_path / "fused.vrt.0badc0de.parts").mkdir()
    second = dask.fuse(*paths, method="pca", client=client, overwrite=True)
    rsfusion.fuse(*paths[:2], tmp_path / "whole.tif", method="pca")
    assert same(paths[2], tmp_path / "whole.tif")
    assert not os.path.exists(first.parts[0])
    assert left(tmp_path) == [os.path.basename(os.path.dirname(second.parts[0]))]


def test_a_failure_leaves_nothing_and_what_there_was(paths, client, tmp_path):
    dask.fuse(*paths, method="brovey", client=client)
    before = read(paths[2])
    shutil.copy(paths[0], tmp_path / "pan.tif")
    with open(tmp_path / "pan.tif", "r+b") as file:
        file.truncate(9000)
    with pytest.raises(rsfusion.FusionError):
        dask.fuse(tmp_path / "pan.tif", paths[1], paths[2], method="brovey", client=client, overwrite=True, retries=0)
    with pytest.raises(rsfusion.FusionError, match="nix.tif"):
        dask.fuse(tmp_path / "nix.tif", paths[1], tmp_path / "other.vrt", client=client, retries=0)
    assert np.array_equal(read(paths[2]), before)
    assert len(left(tmp_path)) == 1
    assert not (tmp_path / "other.vrt").exists()


@pytest.mark.parametrize("work", ["_survey_rows", "_fuse_rows"])
def test_a_worker_may_be_killed(work, paths, cluster, client, tmp_path, monkeypatch):
    rsfusion.fuse(*paths[:2], tmp_path / "whole.tif", method="weighted")
    mark = tmp_path / "killed"
    plain = getattr(dask, work)

    def dies(options, folder, name):
        # The first task takes its worker along.
        try:
            os.close(os.open(mark, os.O_CREAT | os.O_EXCL))
        except FileExistsError:
            return plain(options, folder, name)
        os.kill(os.getpid(), signal.SIGKILL)

    monkeypatch.setattr(dask, work, dies)
    dask.fuse(*paths, method="weighted", client=client, rows_per_task=50)
    assert mark.exists()
    assert same(paths[2], tmp_path / "whole.tif")
    client.wait_for_workers(2, timeout=60)


@pytest.mark.parametrize("work", ["_survey_rows", "_fuse_rows"])
def test_an_input_that_vanishes_ends_the_run_and_leaves_the_older_result(work, paths, client, tmp_path, monkeypatch):
    dask.fuse(*paths, method="weighted", client=client)
    before = read(paths[2])
    here = left(tmp_path)
    pan = tmp_path / "pan.tif"
    shutil.copy(paths[0], pan)
    plain = getattr(dask, work)

    def takes_away(options, folder, name):
        try:
            return plain(options, folder, name)
        finally:
            pan.unlink(missing_ok=True)

    monkeypatch.setattr(dask, work, takes_away)
    with pytest.raises(rsfusion.FusionError, match="pan.tif"):
        dask.fuse(pan, *paths[1:], method="weighted", client=client, rows_per_task=50, overwrite=True)
    assert not pan.exists()
    assert np.array_equal(read(paths[2]), before)
    assert left(tmp_path) == here


@pytest.mark.parametrize("work", ["_survey_rows", "_fuse_rows"])
def test_a_full_disk_is_told_and_leaves_the_older_result(work, paths, client, tmp_path, monkeypatch):
    dask.fuse(*paths, method="brovey", client=client)
    before = read(paths[2])
    here = left(tmp_path)
    plain = getattr(dask, work)

    def short_of_disk(options, folder, name):
        # No file may be longer, as where a disk is full.
        soft, hard = resource.getrlimit(resource.RLIMIT_FSIZE)
        resource.setrlimit(resource.RLIMIT_FSIZE, (100, hard))
        try:
            return plain(options, folder, name)
        finally:
            resource.setrlimit(resource.RLIMIT_FSIZE, (soft, hard))

    monkeypatch.setattr(dask, work, short_of_disk)
    with pytest.raises(rsfusion.FusionError, match="(?i)written|write|disk|room"):
        dask.fuse(*paths, method="brovey", client=client, rows_per_task=50, overwrite=True)
    assert np.array_equal(read(paths[2]), before)
    assert left(tmp_path) == here


def test_a_run_that_is_ended_leaves_nothing(paths, client, tmp_path, monkeypatch):
    def waits(options, folder, name):
        while os.path.isdir(folder):
            time.sleep(0.05)

    monkeypatch.setattr(dask, "_fuse_rows", waits)
    ended = []

    def end():
        while not any(client.processing().values()):
            time.sleep(0.05)
        time.sleep(0.5)
        for scene in scenes:
            ended.append(scene.futures[0])
            client.cancel(scene.futures[:1], force=True)

    scenes = []
    make = dask._Scene

    def noted(*arguments):
        scenes.append(make(*arguments))
        return scenes[-1]

    monkeypatch.setattr(dask, "_Scene", noted)
    original = make.run

    def run(self, work, tasks, priority=0):
        if work is waits:
            threading.Thread(target=end, daemon=True).start()
        return original(self, work, tasks, priority)

    monkeypatch.setattr(make, "run", run)
    with pytest.raises(BaseException) as failure:
        dask.fuse(*paths, method="brovey", client=client, rows_per_task=100)
    assert "ancel" in type(failure.value).__name__ + str(failure.value)
    assert left(tmp_path) == [] and not paths[2].exists()


def test_many_scenes_do_not_keep_each_other(paths, client, tmp_path):
    pairs = [
        (paths[0], paths[1], tmp_path / "a.vrt"),
        (tmp_path / "nix.tif", paths[1], tmp_path / "b.vrt"),
        (paths[0], paths[1], tmp_path / "c.vrt"),
    ]
    summary = dask.fuse_many(pairs, client=client, method="brovey", retries=0)
    assert [outcome.state for outcome in summary] == ["fused", "failed", "fused"]
    assert "nix.tif" in summary[1].why
    assert str(summary).endswith("2 of 3 there")
    again = dask.fuse_many(pairs, client=client, method="brovey", retries=0, resume=True)
    assert [outcome.state for outcome in again] == ["skipped", "failed", "skipped"]


def test_workers_may_come_late_to_a_scheduler_of_its_own(paths, tmp_path):
    rsfusion.fuse(*paths[:2], tmp_path / "whole.tif", method="hpf")
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        address = f"tcp://127.0.0.1:{probe.getsockname()[1]}"
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(path for path in sys.path if path)}
    started = []

    def start(module, *arguments):
        command = [sys.executable, "-m", f"distributed.cli.{module}", *arguments, "--no-dashboard"]
        log = open(tmp_path / f"{len(started)}.log.tif", "w")
        started.append(subprocess.Popen(command, env=environment, stdout=log, stderr=log, cwd=tmp_path))

    start("dask_scheduler", "--host", "127.0.0.1", "--port", address.rsplit(":", 1)[1])

    def workers():
        time.sleep(10)
        for _ in range(2):
            start("dask_worker", address, "--nthreads", "1", "--no-nanny", "--local-directory", str(tmp_path))

    late = threading.Thread(target=workers)
    late.start()
    try:
        with distributed.Client(address, timeout=60) as client:
            dask.fuse(*paths, method="hpf", client=client, rows_per_task=60)
        assert same(paths[2], tmp_path / "whole.tif")
    finally:
        late.join()
        # Asked to end, a worker looks for a scheduler that has gone, for minutes.
        for process in started:
            process.kill()
            process.wait()


def test_what_makes_no_sense_is_refused(paths, client, tmp_path):
    with pytest.raises(ValueError, match="single=True"):
        dask.fuse(*paths[:2], tmp_path / "a.tif", client=client)
    with pytest.raises(TypeError, match="rows"):
        dask.fuse(*paths, client=client, rows=(0, 5))
    with pytest.raises(rsfusion.FusionError, match="best"):
        dask.fuse(*paths, client=client, method="best", retries=0)
    assert left(tmp_path) == []


def test_parts_are_named_by_the_result(paths, client):
    dask.fuse(*paths, method="brovey", client=client)
    # A result may move with its parts.
    text = pathlib.Path(paths[2]).read_text()
    assert 'relativeToVRT="1">fused.vrt.' in text
