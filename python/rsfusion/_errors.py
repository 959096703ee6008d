"""What runs raise."""
from __future__ import annotations

import re

# Options that are on or off: they are arguments that may be True.
SWITCHES = frozenset(
    "allow_network as_published auto_level confined dry_run make_green no_overviews no_provenance overwrite same_extent "
    "stretch sync".split()
)


def _in_python(sentence: str) -> str:
    """A sentence with the command's options as the arguments that they are here."""

    def argument(option: re.Match[str]) -> str:
        name = option.group(1).replace("-", "_")
        is_advice = name in SWITCHES and option.group(2) != ":"
        return name + ("=True" if is_advice else "") + option.group(2)

    return re.sub(r"(?<![^\s(])--([a-z][a-z-]*[a-z])(?![\w/-]|\.\w)(:?)", argument, sentence)


class FusionError(Exception):
    """A run has failed; nothing is left of its output.

    Attributes:
        type: number of the error, docs/usage.md; -1 for those of the run itself
        message: the library's own message (Chinese), empty where there is none
        sentence: what went wrong, in English
    """

    def __init__(self, type: int, message: str, sentence: str) -> None:
        super().__init__(type, message, sentence)
        self.type = type
        self.message = message
        self.sentence = sentence

    def __str__(self) -> str:
        return f"{self.sentence} ({self.message})" if self.message else self.sentence


class UsageError(FusionError, ValueError):
    """A run cannot work as it was asked for: arguments that make no sense, or an output that exists."""

    def __init__(self, type: int, message: str, sentence: str) -> None:
        super().__init__(type, message, _in_python(sentence))


class Cancelled(FusionError):
    """A run was ended because its progress answered False."""
