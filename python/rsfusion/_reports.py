"""What runs report."""
from __future__ import annotations

from typing import Any, Dict, Iterator


class Report:
    """A report, or a part of one: what the command prints with --json, as attributes.

    Undefined figures are NaN. `as_dict()` gives plain dictionaries and lists.
    """

    def __init__(self, values: Dict[str, Any]) -> None:
        self._values = values
        for name, value in values.items():
            setattr(self, name, _wrapped(value))

    def as_dict(self) -> Dict[str, Any]:
        """The report as dictionaries, lists, texts and numbers."""
        return self._values

    def __getitem__(self, name: str) -> Any:
        if name not in self._values:
            raise KeyError(name)
        return getattr(self, name)

    def __contains__(self, name: object) -> bool:
        return name in self._values

    def __iter__(self) -> Iterator[str]:
        return iter(self._values)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Report) and self._values == other._values

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return f"{type(self).__name__}({', '.join(f'{name}={getattr(self, name)!r}' for name in self._values)})"


def _wrapped(value: Any) -> Any:
    if isinstance(value, dict):
        return Report(value)
    if isinstance(value, list):
        return [_wrapped(part) for part in value]
    return value


class FuseReport(Report):
    """What a fusion has written."""


class EvaluateReport(Report):
    """The figures of a fused image: a metric each, with lists of numbers, one for each pair of bands."""


class CheckReport(Report):
    """What was seen of a pair of images."""


class AssessReport(Report):
    """What was measured of the methods."""


class WrittenReport(Report):
    """A page that was written."""


class SampleReport(Report):
    """A made-up scene that was written."""


class OutputInfo(Report):
    """How a fused image was made."""


class Verified(Report):
    """What was found of a fused image that holds what was written."""


class Method(Report):
    """A fusion method."""
