"""Arguments as the texts that runs take."""
from __future__ import annotations

import numbers
import os
from typing import Any, List, Mapping, Tuple


def text_of(name: str, value: Any) -> str:
    """The text that stands for a value of an option."""
    if isinstance(value, (str, os.PathLike)):
        return checked_text(name, os.fsdecode(value))
    if isinstance(value, (bool,)) or type(value).__name__ == "bool_":
        return "on" if value else "off"
    if isinstance(value, numbers.Integral):
        return str(int(value))
    if isinstance(value, numbers.Real):
        return repr(float(value))
    if isinstance(value, (list, tuple)) or type(value).__name__ == "ndarray":
        return ",".join(text_of(name, part) for part in value)
    raise TypeError(f"{name}: a text, a number, True or False, or a list of them, not {type(value).__name__}")


def checked_text(name: str, text: str) -> str:
    """A text that can go to the library, which takes UTF-8."""
    try:
        text.encode()
    except UnicodeEncodeError:
        raise ValueError(f"{name}: {text!r} is no UTF-8") from None
    if "\0" in text:
        raise ValueError(f"{name}: {text!r} has a zero in it")
    return text


def pairs_of(values: Mapping[str, Any]) -> List[Tuple[str, str]]:
    """Options by the command's names; those that are None are left at their defaults."""
    pairs: List[Tuple[str, str]] = []
    for name, value in values.items():
        if value is None:
            continue
        if name == "co":
            pairs += [("co", option) for option in _creation_options(value)]
        else:
            pairs.append((name.replace("_", "-"), text_of(name, value)))
    return pairs


def _creation_options(value: Any) -> List[str]:
    if isinstance(value, str):
        return [value]
    if isinstance(value, Mapping):
        return [f"{name}={text_of('co', setting)}" for name, setting in value.items()]
    if isinstance(value, (list, tuple)) and all(isinstance(option, str) for option in value):
        return list(value)
    raise TypeError(f"co: creation options are NAME=VALUE each, or a mapping, not {value!r}")
