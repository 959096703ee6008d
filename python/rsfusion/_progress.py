"""Who watches a run."""
from __future__ import annotations

import logging
from typing import Any

log = logging.getLogger("rsfusion")


class Watcher:
    """Hands a run's progress to what the caller gave: a callable or a bar."""

    def __init__(self, progress: Any = None) -> None:
        self._progress = progress
        self._is_bar = hasattr(progress, "update") and not isinstance(progress, dict)
        if progress is not None and not self._is_bar and not callable(progress):
            raise TypeError(
                f"progress: a callable (stage, percent) or an object like tqdm's with update(n), not {type(progress).__name__}"
            )
        self._stage = ""
        self._done = 0

    def stage(self, title: str) -> Any:
        self._stage = title
        self._done = 0
        if self._is_bar:
            if hasattr(self._progress, "reset"):
                self._progress.reset(total=100)
            if hasattr(self._progress, "set_description"):
                self._progress.set_description(title)
            return None
        return self._call(0)

    def progress(self, percent: int) -> Any:
        if self._is_bar:
            more = percent - self._done
            self._done = percent
            self._progress.update(more)
            return None
        return self._call(percent)

    def notice(self, text: str) -> None:
        log.info("%s", text)

    def _call(self, percent: int) -> Any:
        return None if self._progress is None else self._progress(self._stage, percent)
