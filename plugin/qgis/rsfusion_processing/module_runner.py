"""Runs jobs by the Python module rsfusion, within QGIS."""
import math
import threading

from .runner import RunCancelled, RunFailed

# There is one run at a time in a process; who waits for its turn may want out.
TURN = threading.Lock()


class ModuleRunner:
    pause = 0.1

    def __init__(self, module):
        self.module = module

    def told(self, job):
        """The call, for a reader."""
        files, options = _arguments(job)
        words = [repr(file) for file in files] + [f"{name}={value!r}" for name, value in options.items()]
        return f"rsfusion.{job.command}({', '.join(words)})"

    def run(self, job, watcher):
        files, options = _arguments(job)
        while not TURN.acquire(timeout=self.pause):
            if watcher.cancelled():
                raise RunCancelled()
        try:
            report = getattr(self.module, job.command)(*files, **options, progress=_Progress(watcher))
        except self.module.Cancelled as end:
            raise RunCancelled() from end
        except (self.module.FusionError, TypeError, ValueError) as failure:
            raise RunFailed(str(failure)) from failure
        finally:
            TURN.release()
        outcome = _plain(report.as_dict())
        for notice in outcome.get("notices", ()):
            watcher.notice(notice)
        return outcome


class _Progress:
    """What the module calls; False ends the run."""

    def __init__(self, watcher):
        self._watcher, self._last = watcher, None

    def __call__(self, stage, percent):
        if self._last is None or self._last[0] != stage or percent < self._last[1]:
            self._watcher.stage(stage)
        self._last = stage, percent
        self._watcher.progress(percent)
        return not self._watcher.cancelled()


def _arguments(job):
    files = [job.pan, job.ms] if job.command != "sample" else []
    if job.command == "evaluate":
        files += job.fused
    elif job.fused:
        files.append(job.fused)
    if job.out:
        files.append(job.out)
    options = job.without_defaults()
    named = {
        name.replace("-", "_"): list(value) if isinstance(value, tuple) else value for name, value in options.items()
    }
    return files, named


def _plain(value):
    """Figures as the command's JSON has them."""
    if isinstance(value, dict):
        return {name: _plain(part) for name, part in value.items()}
    if isinstance(value, (list, tuple)):
        return [_plain(part) for part in value]
    if isinstance(value, float) and not math.isfinite(value):
        return None if math.isnan(value) else "inf" if value > 0 else "-inf"
    return value
