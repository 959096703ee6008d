"""Pan-sharpening of satellite and aerial images.

    >>> import rsfusion
    >>> report = rsfusion.fuse("pan.tif", "ms.tif", "fused.tif")          # files to a file
    >>> fused = rsfusion.fuse(pan, ms, method="brovey")                   # arrays to an array

A panchromatic image with fine pixels and a multispectral one with coarser pixels of the same ground become a
multispectral image with fine pixels. Images are paths (whatever GDAL opens), NumPy arrays, rasterio datasets or xarray
DataArrays. Functions: fuse, check, evaluate, assess, report, sample, info, verify, methods. Keyword arguments are the
options of the command `fusion`, with underscores; what is left at None takes the command's default.

Runs do not hold the interpreter's lock. There is one at a time in a process; calls from other threads wait.
"""
from __future__ import annotations

from . import _core
from ._errors import Cancelled, FusionError, UsageError
from ._reports import (
    AssessReport,
    CheckReport,
    EvaluateReport,
    FuseReport,
    Method,
    OutputInfo,
    Report,
    SampleReport,
    Verified,
    WrittenReport,
)
from ._runs import assess, check, evaluate, fuse, info, methods, report, sample, verify

__version__ = _core.version

__all__ = [
    "AssessReport",
    "Cancelled",
    "CheckReport",
    "EvaluateReport",
    "FuseReport",
    "FusionError",
    "Method",
    "OutputInfo",
    "Report",
    "SampleReport",
    "UsageError",
    "Verified",
    "WrittenReport",
    "assess",
    "check",
    "evaluate",
    "fuse",
    "info",
    "methods",
    "report",
    "sample",
    "verify",
]
