"""Progress, cancelling, interrupts, threads."""
import _thread
import logging
import os
import signal
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest

import rsfusion


def test_a_callable_follows_the_stages(arrays):
    seen = []
    rsfusion.fuse(*arrays, progress=lambda stage, percent: seen.append((stage, percent)))
    stages = list(dict.fromkeys(stage for stage, _ in seen))
    assert stages == ["model estimation", "bayesian"]
    for stage in stages:
        percents = [percent for other, percent in seen if other == stage]
        assert percents == sorted(percents) and percents[0] == 0 and percents[-1] == 100


def test_a_bar_is_moved(arrays):
    class Bar:
        n, said = 0, []

        def reset(self, total):
            self.said.append(("reset", total))
            self.n = 0

        def set_description(self, text):
            self.said.append(text)

        def update(self, n):
            self.n += n

    bar = Bar()
    rsfusion.fuse(*arrays, method="brovey", progress=bar)
    assert bar.n == 100 and bar.said[0] == ("reset", 100) and "brovey" in bar.said


def test_tqdm_is_such_a_bar(arrays):
    tqdm = pytest.importorskip("tqdm")
    with open(os.devnull, "w") as nowhere, tqdm.tqdm(file=nowhere) as bar:
        rsfusion.fuse(*arrays, method="brovey", progress=bar)
        assert bar.n == 100 and bar.total == 100


def test_what_progress_raises_ends_the_run(scene, tmp_path):
    class Enough(Exception):
        pass

    def progress(stage, percent):
        raise Enough(stage)

    with pytest.raises(Enough):
        rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", tmp_path / "out.tif", progress=progress)
    assert os.listdir(tmp_path) == []
    # The next run is a run as any other.
    rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", tmp_path / "out.tif")


def test_false_cancels(scene, tmp_path):
    with pytest.raises(rsfusion.Cancelled) as raised:
        rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", tmp_path / "out.tif", progress=lambda *_: False)
    assert raised.value.type == 1
    assert os.listdir(tmp_path) == []


def test_no_run_begins_within_another(arrays):
    with pytest.raises(RuntimeError, match="cannot be started from the progress"):
        rsfusion.fuse(*arrays, progress=lambda *_: rsfusion.fuse(*arrays))
    rsfusion.fuse(*arrays, method="brovey")


def test_notices_go_to_the_log(arrays, caplog):
    ms = arrays[1].astype("float32")
    ms[:, 3, 4] = np.nan
    with caplog.at_level(logging.INFO, "rsfusion"):
        rsfusion.fuse(arrays[0], ms, method="brovey")
    assert "Pixels without data are left out" in caplog.text


def large():
    """Takes seconds to fuse, and is hardly in memory: rows that repeat cost nothing."""
    pan = np.random.default_rng(2).integers(1, 60000, (4000, 4000), dtype=np.uint16)
    return pan, pan[None, ::4, ::4].repeat(4, axis=0)


def test_other_threads_go_on_during_a_run():
    turns, calls, over = [], [], threading.Event()

    def count():
        while not over.is_set():
            turns.append(time.perf_counter())
            time.sleep(0.001)

    thread = threading.Thread(target=count)
    thread.start()
    rsfusion.fuse(*large(), threads=1, progress=lambda *_: calls.append(time.perf_counter()))
    over.set()
    thread.join()
    # Others have their turn during calls, too; so look at the longest time without one.
    start, end = max(zip(calls, calls[1:]), key=lambda pair: pair[1] - pair[0])
    assert end - start > 0.1
    assert sum(start < turn < end for turn in turns) > 10


def test_runs_of_several_threads_wait_for_each_other(arrays):
    expected = {method: rsfusion.fuse(*arrays, method=method) for method in ("brovey", "pca", "hpf")}
    faults = []

    def run(method):
        for _ in range(3):
            if not (rsfusion.fuse(*arrays, method=method) == expected[method]).all():
                faults.append(method)

    threads = [threading.Thread(target=run, args=(method,)) for method in expected]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not faults


INTERRUPTED = """
    import os, signal, sys, threading, time
    import numpy as np
    import rsfusion
    sys.path.insert(0, {tests!r})
    from test_progress import large
    # Who runs the tests in the background may have it ignored.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    pan, ms = large()
    folder = {folder!r}
    ends = []
    def interrupt():
        # A moment later: from a thread, while the run computes.
        time.sleep(0.01)
        ends.append(time.perf_counter())
        os.kill(os.getpid(), signal.SIGINT)
    thread = threading.Thread(target=interrupt)
    def progress(stage, percent):
        if stage == {stage!r} and percent >= {percent} and thread.ident is None:
            thread.start()
    try:
        rsfusion.fuse(pan, ms, os.path.join(folder, "out.tif"), progress=progress, threads=1)
    except KeyboardInterrupt:
        print("interrupted after", time.perf_counter() - ends[0])
    thread.join()
    print(os.listdir(folder))
    print(rsfusion.fuse(pan[:64, :64], ms[:, :16, :16]).shape)
"""


@pytest.mark.skipif(sys.platform == "win32", reason="signals of POSIX")
@pytest.mark.parametrize("stage, percent", [("model estimation", 0), ("bayesian", 10)])
def test_an_interrupt_from_the_keyboard_ends_a_run(tmp_path, stage, percent):
    program = textwrap.dedent(INTERRUPTED).format(
        tests=os.path.dirname(__file__), folder=str(tmp_path), stage=stage, percent=percent
    )
    done = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True, timeout=120)
    lines = done.stdout.splitlines()
    assert lines and lines[0].startswith("interrupted after"), done.stderr
    # Within a block, or the search for a shift; however busy the machine is.
    assert float(lines[0].split()[-1]) < 10.0
    # A run that had gone on would have left its output. And other runs go on.
    assert lines[1:] == ["[]", "(4, 64, 64)"]


@pytest.fixture
def interruptible():
    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    yield
    signal.signal(signal.SIGINT, before)


@pytest.mark.skipif(sys.platform == "win32", reason="signals of POSIX")
def test_who_waits_for_a_run_can_be_interrupted(interruptible):
    pan, ms = large()
    calls, begun = [], threading.Event()

    def progress(stage, percent):
        calls.append((stage, percent))
        begun.set()

    thread = threading.Thread(target=lambda: rsfusion.fuse(pan, ms, progress=progress))
    thread.start()
    assert begun.wait(60)
    threading.Timer(0.1, _thread.interrupt_main).start()
    with pytest.raises(KeyboardInterrupt):
        rsfusion.fuse(pan[:64, :64], ms[:, :16, :16])
    before = len(calls)
    thread.join()
    # The other run was under way, and went on.
    assert len(calls) > before and calls[-1] == ("bayesian", 100)
