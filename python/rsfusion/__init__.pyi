import os
from typing import Any, Callable, Dict, Iterator, List, Mapping, Optional, Protocol, Sequence, Tuple, Union, overload

from numpy.typing import NDArray

# Images are paths, arrays, or what rasterio and xarray have, whose types a user without them has not.
_Path = Union[str, os.PathLike[str]]
_Paths = Union[_Path, Sequence[_Path]]
_Array = NDArray[Any]
_Ints = Union[int, str, Sequence[int], None]
_Words = Union[str, Sequence[str], None]
_Transform = Union[_HasGdalTerms, Sequence[float], None]
_Crs = Union[str, int, _HasWkt, None]
_Progress = Union[Callable[[str, int], object], _Bar, None]

class _HasGdalTerms(Protocol):
    def to_gdal(self) -> Tuple[float, ...]: ...

class _HasWkt(Protocol):
    def to_wkt(self) -> str: ...

class _Bar(Protocol):
    def update(self, __n: int) -> object: ...

__version__: str
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

class FusionError(Exception):
    type: int
    message: str
    sentence: str
    def __init__(self, type: int, message: str, sentence: str) -> None: ...

class UsageError(FusionError, ValueError): ...
class Cancelled(FusionError): ...

class Report:
    def __init__(self, values: Dict[str, Any]) -> None: ...
    def as_dict(self) -> Dict[str, Any]: ...
    def __getattr__(self, name: str) -> Any: ...
    def __getitem__(self, name: str) -> Any: ...
    def __contains__(self, name: object) -> bool: ...
    def __iter__(self) -> Iterator[str]: ...
    def __eq__(self, other: object) -> bool: ...

class FuseReport(Report):
    method: str
    output: str
    width: int
    height: int
    bands: int
    type: str
    seconds: float
    valid_share: Optional[float]
    registration: Optional[Report]
    model: Optional[Report]
    guards: List[str]
    notices: List[str]

class EvaluateReport(Report): ...

class CheckReport(Report):
    fine: bool
    pan: Report
    ms: Report
    ratio: List[float]
    reprojected: bool
    looked_at: float
    covered: float
    pan_band: Optional[Report]
    bands: List[Report]
    mix_correlation: Optional[float]
    shift: Optional[Report]
    blur: Optional[Report]
    warnings: List[Report]
    notes: List[Report]
    seconds: float
    notices: List[str]

class AssessReport(Report):
    best: Optional[str]
    advice: str
    bands: List[str]
    ratio: List[int]
    mtf: float
    full_mtf: float
    pan_mtf: float
    mtf_source: str
    blur: Optional[Report]
    tiles: int
    share: float
    failures: List[Report]
    seconds: float
    notices: List[str]

class WrittenReport(Report):
    output: str
    bytes: int
    fine: bool
    images: List[Report]
    seconds: float
    notices: List[str]

class SampleReport(Report):
    files: List[Report]
    notices: List[str]

class OutputInfo(Report):
    file: str
    output: str
    version: str
    time: str
    method: str
    options: str
    guards: str
    inputs: List[Report]
    model: Report
    checksums: List[str]
    command: str

class Verified(Report):
    file: str
    output: str
    checksums: List[str]

class Method(Report):
    name: str
    summary: str
    formula: str
    source: str
    suits: str
    spares: str
    options: List[str]
    default: bool
    spectral_match: bool

@overload
def fuse(
    pan: Any,
    ms: Any,
    out: _Path,
    *,
    method: Optional[str] = "bayesian",
    resample: Optional[str] = None,
    edges: Optional[str] = None,
    match_moments: Optional[str] = None,
    product_root: Optional[str] = None,
    detail_cap: Optional[str] = None,
    pca_match: Optional[str] = None,
    keep_bands: Optional[str] = None,
    as_published: Optional[bool] = None,
    type: Optional[str] = None,
    bands: _Ints = None,
    pan_band: Optional[int] = None,
    rgb: _Ints = None,
    window: _Ints = None,
    rows: Any = None,
    survey: Any = None,
    statistics: Optional[str] = None,
    aoi: Optional[_Path] = None,
    spectral_match: Union[str, bool, None] = None,
    nodata_mask: Union[str, bool, None] = None,
    nodata: Optional[float] = None,
    make_green: Optional[bool] = None,
    auto_level: Optional[bool] = None,
    stretch: Optional[bool] = None,
    kernel_size: Optional[int] = None,
    second_kernel_size: Optional[int] = None,
    detail_weight: Optional[float] = None,
    second_detail_weight: Optional[float] = None,
    bayes_weight: Optional[float] = None,
    registration: Optional[str] = None,
    same_extent: Optional[bool] = None,
    no_overviews: Optional[bool] = None,
    format: Optional[str] = None,
    compress: Optional[str] = None,
    co: Union[str, Sequence[str], Mapping[str, object], None] = None,
    dry_run: Optional[bool] = None,
    no_provenance: Optional[bool] = None,
    sync: Optional[bool] = None,
    overwrite: Optional[bool] = None,
    quicklook: Optional[_Path] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Union[int, str, None] = None,
    log: Optional[_Path] = None,
    given: Optional[str] = None,
    measure_valid: Optional[bool] = None,
    pan_transform: _Transform = None,
    ms_transform: _Transform = None,
    crs: _Crs = None,
    pan_crs: _Crs = None,
    ms_crs: _Crs = None,
    progress: _Progress = None,
) -> FuseReport: ...
@overload
def fuse(
    pan: Union[_Path, _Array],
    ms: Union[_Paths, _Array],
    out: None = None,
    *,
    method: Optional[str] = "bayesian",
    resample: Optional[str] = None,
    edges: Optional[str] = None,
    match_moments: Optional[str] = None,
    product_root: Optional[str] = None,
    detail_cap: Optional[str] = None,
    pca_match: Optional[str] = None,
    keep_bands: Optional[str] = None,
    as_published: Optional[bool] = None,
    type: Optional[str] = None,
    bands: _Ints = None,
    pan_band: Optional[int] = None,
    rgb: _Ints = None,
    window: _Ints = None,
    rows: Any = None,
    survey: Any = None,
    statistics: Optional[str] = None,
    aoi: Optional[_Path] = None,
    spectral_match: Union[str, bool, None] = None,
    nodata_mask: Union[str, bool, None] = None,
    nodata: Optional[float] = None,
    make_green: Optional[bool] = None,
    auto_level: Optional[bool] = None,
    stretch: Optional[bool] = None,
    kernel_size: Optional[int] = None,
    second_kernel_size: Optional[int] = None,
    detail_weight: Optional[float] = None,
    second_detail_weight: Optional[float] = None,
    bayes_weight: Optional[float] = None,
    registration: Optional[str] = None,
    same_extent: Optional[bool] = None,
    no_overviews: Optional[bool] = None,
    format: Optional[str] = None,
    compress: Optional[str] = None,
    co: Union[str, Sequence[str], Mapping[str, object], None] = None,
    dry_run: Optional[bool] = None,
    no_provenance: Optional[bool] = None,
    sync: Optional[bool] = None,
    overwrite: Optional[bool] = None,
    quicklook: Optional[_Path] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Union[int, str, None] = None,
    log: Optional[_Path] = None,
    given: Optional[str] = None,
    measure_valid: Optional[bool] = None,
    pan_transform: _Transform = None,
    ms_transform: _Transform = None,
    crs: _Crs = None,
    pan_crs: _Crs = None,
    ms_crs: _Crs = None,
    progress: _Progress = None,
) -> _Array: ...
# In the kind of what went in.
@overload
def fuse(
    pan: Any,
    ms: Any,
    out: None = None,
    *,
    method: Optional[str] = "bayesian",
    resample: Optional[str] = None,
    edges: Optional[str] = None,
    match_moments: Optional[str] = None,
    product_root: Optional[str] = None,
    detail_cap: Optional[str] = None,
    pca_match: Optional[str] = None,
    keep_bands: Optional[str] = None,
    as_published: Optional[bool] = None,
    type: Optional[str] = None,
    bands: _Ints = None,
    pan_band: Optional[int] = None,
    rgb: _Ints = None,
    window: _Ints = None,
    rows: Any = None,
    survey: Any = None,
    statistics: Optional[str] = None,
    aoi: Optional[_Path] = None,
    spectral_match: Union[str, bool, None] = None,
    nodata_mask: Union[str, bool, None] = None,
    nodata: Optional[float] = None,
    make_green: Optional[bool] = None,
    auto_level: Optional[bool] = None,
    stretch: Optional[bool] = None,
    kernel_size: Optional[int] = None,
    second_kernel_size: Optional[int] = None,
    detail_weight: Optional[float] = None,
    second_detail_weight: Optional[float] = None,
    bayes_weight: Optional[float] = None,
    registration: Optional[str] = None,
    same_extent: Optional[bool] = None,
    no_overviews: Optional[bool] = None,
    format: Optional[str] = None,
    compress: Optional[str] = None,
    co: Union[str, Sequence[str], Mapping[str, object], None] = None,
    dry_run: Optional[bool] = None,
    no_provenance: Optional[bool] = None,
    sync: Optional[bool] = None,
    overwrite: Optional[bool] = None,
    quicklook: Optional[_Path] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Union[int, str, None] = None,
    log: Optional[_Path] = None,
    given: Optional[str] = None,
    measure_valid: Optional[bool] = None,
    pan_transform: _Transform = None,
    ms_transform: _Transform = None,
    crs: _Crs = None,
    pan_crs: _Crs = None,
    ms_crs: _Crs = None,
    progress: _Progress = None,
) -> Any: ...
def check(
    pan: Any,
    ms: Any,
    *,
    bands: _Ints = None,
    pan_band: Optional[int] = None,
    nodata: Optional[float] = None,
    same_extent: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Union[int, str, None] = None,
    pan_transform: _Transform = None,
    ms_transform: _Transform = None,
    crs: _Crs = None,
    pan_crs: _Crs = None,
    ms_crs: _Crs = None,
    progress: _Progress = None,
) -> CheckReport: ...
def evaluate(
    pan: Any,
    ms: Any,
    fused: Any,
    *,
    metric: _Words = None,
    bands: _Ints = None,
    fused_bands: _Ints = None,
    pan_band: Optional[int] = None,
    same_extent: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Union[int, str, None] = None,
    pan_transform: _Transform = None,
    ms_transform: _Transform = None,
    fused_transform: _Transform = None,
    crs: _Crs = None,
    pan_crs: _Crs = None,
    ms_crs: _Crs = None,
    progress: _Progress = None,
) -> EvaluateReport: ...
def assess(
    pan: Any,
    ms: Any,
    *,
    methods: _Words = None,
    protocol: Optional[str] = None,
    bands: _Ints = None,
    pan_band: Optional[int] = None,
    nodata: Optional[float] = None,
    same_extent: Optional[bool] = None,
    mtf: Union[str, float, Sequence[float], None] = None,
    tiles: Optional[int] = None,
    threads: Union[int, str, None] = None,
    picture: Optional[_Path] = None,
    keep: Optional[_Path] = None,
    extra: _Words = None,
    overwrite: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    pan_transform: _Transform = None,
    ms_transform: _Transform = None,
    crs: _Crs = None,
    pan_crs: _Crs = None,
    ms_crs: _Crs = None,
    progress: _Progress = None,
) -> AssessReport: ...
def report(
    pan: _Path,
    ms: _Paths,
    fused: _Paths,
    out: _Path,
    *,
    title: Optional[str] = None,
    bands: _Ints = None,
    fused_bands: _Ints = None,
    pan_band: Optional[int] = None,
    nodata: Optional[float] = None,
    same_extent: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    overwrite: Optional[bool] = None,
    threads: Union[int, str, None] = None,
    progress: _Progress = None,
) -> WrittenReport: ...
def sample(
    folder: _Path,
    *,
    size: Union[int, str, None] = None,
    seed: Optional[int] = None,
    type: Optional[str] = None,
    ratio: Optional[int] = None,
    bands: Optional[int] = None,
    shift: Union[str, Sequence[float], None] = None,
    noise: Optional[float] = None,
    clouds: Optional[float] = None,
    overwrite: Optional[bool] = None,
    progress: _Progress = None,
) -> SampleReport: ...
def info(
    file: _Path,
) -> OutputInfo: ...
def verify(
    file: _Path,
    *,
    progress: _Progress = None,
) -> Verified: ...
def methods() -> List[Method]: ...
