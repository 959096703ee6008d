"""One scene on many machines: fusions by rows, on a Dask scheduler.

    >>> from rsfusion import dask
    >>> dask.fuse("pan.tif", "ms.tif", "fused.vrt", method="brovey")                  # the processors of this machine
    >>> dask.fuse(pan, ms, out, client=distributed.Client("tcp://scheduler:8786"))    # those of a cluster

The rows of the result are shared out. What all of them need of the whole images is surveyed first, in as many rounds as the
method needs, by rows, too; then every task fuses its own. The result has the bytes of the whole run. Images and the result's
folder must be what all workers reach under the same names: shared disks, or, for images, anything that GDAL reads
(/vsis3/, /vsicurl/).

Joining the parts takes gdalbuildvrt, and for a single file gdal_translate (Debian: gdal-bin), where `fuse` is called.
"""
from __future__ import annotations

import concurrent.futures
import contextlib
import dataclasses
import importlib
import os
import pathlib
import secrets
import shutil
import subprocess
from typing import Any, Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Union

from . import _core
from ._options import pairs_of
from ._progress import Watcher

# It tells nothing of its types.
distributed: Any = importlib.import_module("distributed")

_Path = Union[str, "os.PathLike[str]"]
_Options = Dict[str, Any]

# Tasks of fewer rows read much of the images twice.
_LEAST_ROWS = 512


@dataclasses.dataclass
class Fused:
    """What `fuse` has made.

    Attributes:
        output: path of the result
        parts: paths of the files that a VRT consists of; none of a single file
        height: rows
        rounds: how often the images were surveyed
    """

    output: str
    parts: List[str]
    height: int
    rounds: int


@dataclasses.dataclass
class Outcome:
    """What has become of one of the scenes of `fuse_many`: state is fused, skipped or failed, and why in words."""

    output: str
    state: str
    why: str = ""


class Summary(List[Outcome]):
    """What has become of all of them; as text a table."""

    @property
    def failed(self) -> List[Outcome]:
        return [outcome for outcome in self if outcome.state == "failed"]

    def __str__(self) -> str:
        width = max((len(outcome.output) for outcome in self), default=0)
        lines = [f"{outcome.output:{width}}  {outcome.state:7}  {outcome.why}".rstrip() for outcome in self]
        count = len(self) - len(self.failed)
        return "\n".join([*lines, f"{count} of {len(self)} there"])


class _EndsWithFolder:
    """Progress that ends a task when its run's folder goes: tasks cannot be ended from elsewhere."""

    def __init__(self, folder: str) -> None:
        self.folder = folder

    def __call__(self, *_: Any) -> bool:
        return os.path.isdir(self.folder)


def _watcher(folder: str) -> Any:
    return Watcher(_EndsWithFolder(folder))


def _survey(options: _Options, folder: str) -> Dict[str, Any]:
    """Runs on a worker: surveys some rows, merges surveys, or tells what is missing."""
    return _core.survey(pairs_of(options), _watcher(folder))


def _whole(work: Callable[[_Options, str], Any], options: _Options, folder: str, name: str) -> str:
    """Makes a file, which appears under its name when it is whole."""
    path = os.path.join(folder, name)
    unfinished = os.path.join(folder, f".{secrets.token_hex(4)}.{name}")
    try:
        work({**options, "out": unfinished}, folder)
        os.replace(unfinished, path)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.remove(unfinished)
    return path


def _fuse(options: _Options, folder: str) -> None:
    _core.fuse(pairs_of(options), _watcher(folder))


def _fuse_rows(options: _Options, folder: str, name: str) -> str:
    """Runs on a worker: makes a part."""
    return _whole(_fuse, options, folder, name)


def _survey_rows(options: _Options, folder: str, name: str) -> str:
    """Runs on a worker: surveys the rows of a part."""
    return _whole(_survey, options, folder, name)


def _ranges(height: int, rows: int) -> List[Tuple[int, int]]:
    return [(first, min(first + rows, height)) for first in range(0, height, rows)]


class _Scene:
    """A run on a scheduler."""

    def __init__(self, client: Any, options: _Options, folder: str, submit: Dict[str, Any]) -> None:
        self.client = client
        self.options = options
        self.folder = folder
        self.submit = submit
        self.futures: List[Any] = []

    def run(self, work: Callable[..., Any], tasks: Sequence[Tuple[Any, ...]], priority: int = 0) -> List[Any]:
        """Answers what all tasks have answered, in their order. The first failure ends it."""
        self.futures = [
            self.client.submit(work, *task, pure=False, priority=priority, **self.submit) for task in tasks
        ]
        for _ in distributed.as_completed(self.futures, raise_errors=False):
            failed = [future for future in self.futures if future.status in ("error", "cancelled")]
            if failed:
                failed[0].result()
        results: List[Any] = self.client.gather(self.futures)
        self.futures = []
        return results

    def end(self) -> None:
        self.client.cancel(self.futures, force=True)
        self.futures = []

    def plan(self, survey: Optional[str]) -> Dict[str, Any]:
        options = {**self.options, "survey": survey, "dry_run": True}
        told: Dict[str, Any] = self.run(_survey, [(options, self.folder)], priority=1)[0]
        return told

    def gather(self, rows_of: Callable[[int], int]) -> Tuple[int, Optional[str], int]:
        """Surveys until nothing is missing. Answers the height of the result, the survey and the rounds."""
        survey: Optional[str] = None
        rounds = 0
        while True:
            plan = self.plan(survey)
            height = int(plan["height"])
            if plan["complete"]:
                return height, survey, rounds
            tasks = []
            for first, end in _ranges(height, rows_of(height)):
                options = {**self.options, "survey": survey, "rows": (first, end), "overwrite": True}
                tasks.append((options, self.folder, f"{rounds}_{first}.survey"))
            parts = self.run(_survey_rows, tasks)
            merged = os.path.join(self.folder, f"{rounds}.survey")
            merge = "\n".join(parts + ([survey] if survey else []))
            self.run(_survey, [({"merge": merge, "out": merged, "overwrite": True}, self.folder)], priority=1)
            for part in parts:
                os.remove(part)
            survey = merged
            rounds += 1


@contextlib.contextmanager
def _client(client: Any) -> Iterator[Any]:
    if client is not None:
        yield client
        return
    with distributed.LocalCluster(threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        with distributed.Client(cluster) as own:
            yield own


def _run_tool(*arguments: str) -> None:
    try:
        done = subprocess.run(arguments, capture_output=True, text=True)
    except FileNotFoundError:
        raise RuntimeError(f"{arguments[0]} is not installed (Debian: gdal-bin), which joins the parts") from None
    if done.returncode != 0:
        raise RuntimeError(f"{arguments[0]} has failed: {done.stderr.strip()}")


def _join(parts: Sequence[str], out: str) -> None:
    """A VRT over parts, which it names relatively to itself."""
    unfinished = f"{out}.{secrets.token_hex(4)}.vrt"
    names = unfinished + ".txt"
    try:
        pathlib.Path(names).write_text("".join(f"{part}\n" for part in parts))
        _run_tool("gdalbuildvrt", "-q", "-input_file_list", names, unfinished)
        os.replace(unfinished, out)
    finally:
        for file in (unfinished, names):
            with contextlib.suppress(FileNotFoundError):
                os.remove(file)


def _translate(vrt: str, out: str, format: Optional[str], compress: Optional[str], co: Iterable[str]) -> None:
    driver = (format or "GTiff").replace("GeoTIFF", "GTiff")
    unfinished = f"{out}.{secrets.token_hex(4)}.tif"
    options: List[str] = [f"COMPRESS={compress}"] if compress else []
    arguments = [part for option in [*options, *co] for part in ("-co", option)]
    try:
        _run_tool("gdal_translate", "-q", "-of", driver, *arguments, vrt, unfinished)
        os.replace(unfinished, out)
    finally:
        for file in (unfinished, unfinished + ".aux.xml"):
            with contextlib.suppress(FileNotFoundError):
                os.remove(file)


def _folders(out: str) -> List[pathlib.Path]:
    """The folders of parts of runs into an output, those that have failed and the one of the present output."""
    path = pathlib.Path(out)
    return [folder for folder in path.parent.glob("*.parts") if folder.name.startswith(path.name + ".")]


def _sweep(out: str, keep: Optional[str] = None) -> None:
    present = pathlib.Path(out).read_text(errors="replace") if out.endswith(".vrt") and os.path.exists(out) else ""
    for folder in _folders(out):
        if str(folder) != keep and (keep or folder.name not in present):
            shutil.rmtree(folder, ignore_errors=True)


def _keep_only(parts: Sequence[str], folder: str) -> None:
    """Leaves out surveys, and what workers that died have left."""
    for file in pathlib.Path(folder).iterdir():
        if str(file) in parts:
            continue
        if file.is_dir():
            shutil.rmtree(file, ignore_errors=True)
        else:
            file.unlink(missing_ok=True)


def fuse(
    pan: _Path,
    ms: Union[_Path, Sequence[_Path]],
    out: _Path,
    *,
    method: str = "bayesian",
    client: Any = None,
    rows_per_task: Optional[int] = None,
    single: bool = False,
    overwrite: bool = False,
    retries: int = 2,
    resources: Optional[Dict[str, float]] = None,
    threads: Any = 1,
    format: Optional[str] = None,
    compress: Optional[str] = None,
    co: Sequence[str] = (),
    **options: Any,
) -> Fused:
    """Fuse two images by rows, on a Dask scheduler.

    Args:
        pan, ms: paths that all workers reach; ms may be a list of files of one band each
        out: path of the result: a VRT over parts, which lie in a folder beside it, or with single one file. It appears
            when all is done
        method: as of `rsfusion.fuse`, but not best
        client: of the scheduler; None starts a LocalCluster of this machine's processors for the run
        rows_per_task: of the result; by default four tasks a worker, of at least 512 rows
        single: write one file, a GeoTIFF or (format="COG") a cloud-optimized one
        overwrite: replace an existing out
        retries: how often a task that has failed is tried again; those of workers that die Dask tries again itself
        resources: that a task takes of a worker, for Dask
        threads: of each task
        format, compress, co: of a single file, as NAME=VALUE; of parts compress and co alone
        options: those of `rsfusion.fuse`

    Raises:
        FileExistsError: out exists
        FusionError: a task has failed. Nothing is left but what the next run into out sweeps away
    """
    name = os.path.abspath(os.fspath(out))
    if not single and not name.endswith(".vrt"):
        raise ValueError("out: a VRT (.vrt) over parts; single=True writes one file of another kind")
    if os.path.exists(name) and not overwrite:
        raise FileExistsError(f"{name} exists; overwrite=True replaces it")
    for argument in ("rows", "survey", "quicklook", "dry_run", "progress"):
        if argument in options:
            raise TypeError(f"{argument} is no argument of a run by rows")
    files = [ms] if isinstance(ms, (str, os.PathLike)) else list(ms)
    given: _Options = {"pan": os.fspath(pan), "ms": os.fspath(files[0]), "method": method, "threads": threads, **options}
    if len(files) > 1:
        given["more_ms"] = "\n".join(os.fspath(file) for file in files[1:])

    _sweep(name)
    folder = f"{name}.{secrets.token_hex(4)}.parts"
    os.makedirs(folder)
    with contextlib.ExitStack() as undo, _client(client) as scheduler:
        undo.callback(shutil.rmtree, folder, ignore_errors=True)
        scene = _Scene(scheduler, given, folder, {"retries": retries, "resources": resources})
        undo.callback(scene.end)

        def rows_of(height: int) -> int:
            if rows_per_task is not None:
                return max(1, int(rows_per_task))
            workers = max(1, len(scheduler.scheduler_info()["workers"]))
            return max(_LEAST_ROWS, -(-height // (4 * workers)))

        height, survey, rounds = scene.gather(rows_of)
        tasks = []
        for first, end in _ranges(height, rows_of(height)):
            part: _Options = {**given, "rows": (first, end), "survey": survey, "no_overviews": True}
            if not single:
                part.update(compress=compress, co=list(co) or None)
            tasks.append((part, folder, f"{first:08d}.tif"))
        parts = scene.run(_fuse_rows, tasks)
        if single:
            joined = os.path.join(folder, "all.vrt")
            _join(parts, joined)
            _translate(joined, name, format, compress, co)
            return Fused(name, [], height, rounds)
        _join(parts, name)
        undo.pop_all()
    _sweep(name, keep=folder)
    _keep_only(parts, folder)
    return Fused(name, parts, height, rounds)


def fuse_many(
    pairs: Iterable[Tuple[Any, Any, _Path]],
    *,
    client: Any = None,
    resume: bool = False,
    at_a_time: int = 2,
    **options: Any,
) -> Summary:
    """Fuse several scenes; one that fails does not keep the others from it.

    Args:
        pairs: (pan, ms, out) of each, as of `fuse`
        client: as of `fuse`, for all of them
        resume: leave out those whose out exists
        at_a_time: how many scenes have tasks on the scheduler at the same time
        options: those of `fuse`

    Returns:
        A list of what has become of each, which prints as a table.
    """
    scenes = [(pan, ms, os.path.abspath(os.fspath(out))) for pan, ms, out in pairs]
    with _client(client) as scheduler:

        def one(scene: Tuple[Any, Any, str]) -> Outcome:
            pan, ms, out = scene
            if resume and os.path.exists(out):
                return Outcome(out, "skipped", "it exists")
            try:
                fuse(pan, ms, out, client=scheduler, **options)
                return Outcome(out, "fused")
            except Exception as failure:  # whatever it is, the others go on
                return Outcome(out, "failed", str(failure) or type(failure).__name__)

        with concurrent.futures.ThreadPoolExecutor(max(1, at_a_time)) as threads:
            return Summary(threads.map(one, scenes))
