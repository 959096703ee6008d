"""The functions of the package."""
from __future__ import annotations

import os
from typing import Any, Dict, List, Optional

import numpy as np

from . import _core
from ._images import Image, Result, crs_text, open_image
from ._options import checked_text, pairs_of
from ._progress import Watcher
from ._reports import (
    AssessReport,
    CheckReport,
    EvaluateReport,
    FuseReport,
    Method,
    OutputInfo,
    SampleReport,
    Verified,
    WrittenReport,
)

# Arguments that are no options: images, and what goes with arrays.
_BESIDE = ("pan", "ms", "out", "fused", "progress", "pan_transform", "ms_transform", "fused_transform", "crs", "pan_crs", "ms_crs")


def _options(given: Dict[str, Any]) -> Dict[str, Any]:
    return {name: value for name, value in given.items() if name not in _BESIDE}


class _Pair:
    """Pan and multispectral image of a run."""

    def __init__(self, given: Dict[str, Any]) -> None:
        crs = given["crs"]
        systems: Dict[str, Any] = {}
        told: Dict[str, str] = {}
        for name in ("pan", "ms"):
            own = given[f"{name}_crs"]
            if crs is not None and own is not None:
                raise TypeError(f"{name}_crs and crs say the same; give one of them")
            # One system for both may be given where one of them is a file, which has its own.
            is_array = isinstance(given[name], np.ndarray)
            systems[name] = own if own is not None or not is_array else crs
            told[name] = "crs" if own is None else f"{name}_crs"
        self.pan = open_image("pan", given["pan"], given["pan_transform"], systems["pan"], told["pan"])
        self.ms = open_image("ms", given["ms"], given["ms_transform"], systems["ms"], told["ms"], several=True)
        self.same_extent = given["same_extent"]
        if self.pan.placed != self.ms.placed and not self.same_extent:
            lacks = "ms" if self.pan.placed else "pan"
            raise ValueError(
                f"{lacks}_transform is missing: one of the images lies on the ground, the other has no place "
                "(same_extent=True takes both as covering the same ground)"
            )
        if not self.pan.placed and not self.ms.placed and self.same_extent is None:
            self.same_extent = True

    def options(self, given: Dict[str, Any]) -> Dict[str, Any]:
        options = {"pan": self.pan.path, "ms": self.ms.path, **_options(given), "same_extent": self.same_extent}
        if len(self.ms.paths) > 1:
            options["more_ms"] = "\n".join(self.ms.paths[1:])
        return options


def fuse(
    pan: Any,
    ms: Any,
    out: Any = None,
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
    bands: Any = None,
    pan_band: Optional[int] = None,
    rgb: Any = None,
    window: Any = None,
    rows: Any = None,
    survey: Any = None,
    statistics: Optional[str] = None,
    aoi: Any = None,
    spectral_match: Any = None,
    nodata_mask: Any = None,
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
    co: Any = None,
    dry_run: Optional[bool] = None,
    no_provenance: Optional[bool] = None,
    sync: Optional[bool] = None,
    overwrite: Optional[bool] = None,
    quicklook: Any = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Any = None,
    log: Any = None,
    given: Optional[str] = None,
    measure_valid: Optional[bool] = None,
    pan_transform: Any = None,
    ms_transform: Any = None,
    crs: Any = None,
    pan_crs: Any = None,
    ms_crs: Any = None,
    progress: Any = None,
) -> Any:
    """Fuse a panchromatic and a multispectral image.

    Args:
        pan: panchromatic image: a path, an array (rows, columns), a rasterio dataset or an xarray DataArray
        ms: multispectral image: likewise, an array being (bands, rows, columns); or a list of paths of one band each
        out: path of the fused image to write; None gives the image back
        method: bayesian, brovey, multiplicative, weighted, ihs, pca, hpf, sharpen (see `methods()`); or best, the one
            that suits the scene
        resample: nearest, bilinear, bicubic or auto
        edges, match_moments, product_root, detail_cap, pca_match, keep_bands: guards, each on by default
        as_published: everything as the library's classes do it: no guard, no matching or mask unless asked for
        type: uint8, uint16, int16, uint32, int32, float32 or float64; by default that of ms
        bands: of ms, counted from 1, in the order of the output; by default all
        pan_band: of pan, counted from 1
        rgb: ihs: which of the chosen bands are red, green and blue, counted from 1
        window: column, row, width and height in pan pixels
        rows: of the whole result, from and up to which; only these are made
        survey: path of what these need of the whole images (see rsfusion.dask); None looks at all of them
        statistics: what those of a window are taken from: scene or window
        aoi: path of a vector file: only inside its polygons
        spectral_match: auto, on or off (or True, False): bring the bands to the multispectral means and deviations
        nodata_mask: auto, on or off (or True, False): take pixels without data for missing
        nodata: value of pixels without data, of images that declare none
        make_green: mix a tenth of near infrared into green (bands B, G, R, NIR)
        auto_level: hpf, sharpen: end with an automatic level adjustment
        stretch: stretch a raw result to the range of an integer type
        kernel_size, second_kernel_size: hpf: in pan pixels, odd, 3 to 31
        detail_weight, second_detail_weight: hpf: of the detail; 0.5 and 0.35
        bayes_weight: bayesian: how much of the model is applied, 0 to 1; 0.5
        registration: bayesian: auto, off or report: move ms onto the detail of pan
        same_extent: take both images as covering the same ground; arrays without transforms always are
        no_overviews, format, compress, co, no_provenance, sync, overwrite: of out. co is NAME=VALUE, a list of them, or
            a mapping
        dry_run: the report tells what would be done, and nothing is
        quicklook: path of a PNG of pan, ms and result side by side
        allow_network, confined: what inputs may refer to: other hosts; nothing outside their folders
        threads: number of them, or all
        log: path of a file that the library's log is appended to
        given: what is to be done, in the caller's words, for the log
        measure_valid: let the report tell the share of pixels with data; on by default
        pan_transform, ms_transform: georeference of an array: an affine.Affine or GDAL's six numbers, in units of its
            coordinate system
        crs, pan_crs, ms_crs: coordinate system of both arrays, or of one: EPSG:32633, WKT, PROJ, an EPSG number, or
            what has to_wkt()
        progress: called with the name of a stage and a percentage, 0 to 100, and may answer False to end the run; or an
            object like tqdm's, with update(n), of 100 for each stage

    Returns:
        With out a FuseReport: what `fusion fuse --json` prints, as attributes (width and height in pixels, seconds ...).
        Without, the fused image on the pixels of pan where both images are, (bands, rows, columns): a DataArray if one
        went in, an open rasterio dataset likewise, else an array.

    Raises:
        UsageError: a ValueError, for what cannot work; TypeError for arguments of a wrong type. Both name the argument
        FusionError: the run has failed. Nothing is left of its output
        Cancelled: progress has answered False
    """
    arguments = dict(locals())
    watcher = Watcher(progress)
    if out is not None:
        if not isinstance(out, (str, os.PathLike)):
            raise TypeError(f"out: a path, not {_name_of(out)}")
        pair = _Pair(arguments)
        options: Dict[str, Any] = {**pair.options(arguments), "out": out}
        if measure_valid is None:
            options["measure_valid"] = True
        return FuseReport(_core.fuse(pairs_of(options), watcher))
    for name in ("format", "compress", "co", "dry_run", "sync", "overwrite", "no_provenance", "no_overviews", "measure_valid"):
        if arguments[name]:
            raise ValueError(f"{name} is for a run with out, whose result is written")
    pair = _Pair(arguments)
    with Result() as result:
        options = {**pair.options(arguments), "out": result.path, "no_overviews": True, "no_provenance": True}
        _core.fuse(pairs_of(options), watcher)
        return result.take(pair.pan, pair.ms)


def check(
    pan: Any,
    ms: Any,
    *,
    bands: Any = None,
    pan_band: Optional[int] = None,
    nodata: Optional[float] = None,
    same_extent: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Any = None,
    pan_transform: Any = None,
    ms_transform: Any = None,
    crs: Any = None,
    pan_crs: Any = None,
    ms_crs: Any = None,
    progress: Any = None,
) -> CheckReport:
    """Look at a pair of images before fusing it.

    Args:
        pan, ms: images, as of `fuse`; so are the arguments that are not told here
        bands: of ms, counted from 1; by default all but alpha

    Returns:
        What `fusion check --json` prints, as attributes: fine (nothing to warn of), warnings with a text and an advice
        each, notes, figures of the bands, shift in pan pixels, blur.
    """
    arguments = dict(locals())
    pair = _Pair(arguments)
    return CheckReport(_core.check(pairs_of(pair.options(arguments)), Watcher(progress)))


def evaluate(
    pan: Any,
    ms: Any,
    fused: Any,
    *,
    metric: Any = None,
    bands: Any = None,
    fused_bands: Any = None,
    pan_band: Optional[int] = None,
    same_extent: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    threads: Any = None,
    pan_transform: Any = None,
    ms_transform: Any = None,
    fused_transform: Any = None,
    crs: Any = None,
    pan_crs: Any = None,
    ms_crs: Any = None,
    progress: Any = None,
) -> EvaluateReport:
    """Measure the quality of a fused image.

    Args:
        pan, ms: images that were fused, as of `fuse`; so are the arguments that are not told here
        fused: fused image, on the pixels of pan; an array is (bands, rows, columns)
        metric: entropy, statistics, snr, gradient, or a list of them; by default all
        bands: of ms, counted from 1; by default all but alpha
        fused_bands: of fused, as many, compared in pairs
        fused_transform: georeference of an array; by default that of pan, if it has as many rows and columns

    Returns:
        What `fusion evaluate --json` prints, as attributes: report.statistics.m_pCorrelation, a list of one number for
        each pair of bands.
    """
    arguments = dict(locals())
    pair = _Pair(arguments)
    image = _fused("fused", fused, pair, fused_transform, arguments)
    options = {**pair.options(arguments), "fused": image.path}
    return EvaluateReport(_core.evaluate(pairs_of(options), Watcher(progress)))


def assess(
    pan: Any,
    ms: Any,
    *,
    methods: Any = None,
    protocol: Optional[str] = None,
    bands: Any = None,
    pan_band: Optional[int] = None,
    nodata: Optional[float] = None,
    same_extent: Optional[bool] = None,
    mtf: Any = None,
    tiles: Optional[int] = None,
    threads: Any = None,
    picture: Any = None,
    keep: Any = None,
    extra: Any = None,
    overwrite: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    pan_transform: Any = None,
    ms_transform: Any = None,
    crs: Any = None,
    pan_crs: Any = None,
    ms_crs: Any = None,
    progress: Any = None,
) -> AssessReport:
    """Compare the methods on a pair of images.

    Args:
        pan, ms: images, as of `fuse`; so are the arguments that are not told here
        methods: names, see `methods()`; by default all
        protocol: wald (both images degraded, ms is the truth), full (as they are) or both
        mtf: auto, or the gains of the filters of the bands and of pan at the bands' Nyquist frequency, 0 to 1
        tiles: the most parts of a large scene to look at
        picture: path of a PNG of crops of every result
        keep: folder to leave the pairs and the results in
        extra: names of results that another program has added to those kept
        overwrite: replace existing files

    Returns:
        What `fusion assess --json` prints, as attributes: best, advice, wald and full with rows of figures for each
        method.
    """
    arguments = dict(locals())
    pair = _Pair(arguments)
    return AssessReport(_core.assess(pairs_of(pair.options(arguments)), Watcher(progress)))


def report(
    pan: Any,
    ms: Any,
    fused: Any,
    out: Any,
    *,
    title: Optional[str] = None,
    bands: Any = None,
    fused_bands: Any = None,
    pan_band: Optional[int] = None,
    nodata: Optional[float] = None,
    same_extent: Optional[bool] = None,
    allow_network: Optional[bool] = None,
    confined: Optional[bool] = None,
    overwrite: Optional[bool] = None,
    threads: Any = None,
    progress: Any = None,
) -> WrittenReport:
    """Write a page about fused images, one file for the browser.

    Args:
        pan, ms: paths of the images that were fused; ms may be a list. Arguments that are not told here are those of `fuse`
        bands, fused_bands: counted from 1, as many, compared in pairs; by default all but alpha
        fused: path of a fused image, or a list of several, on the pixels of pan
        out: path of the page to write, HTML
        title: of the page
        overwrite: replace an existing page

    Returns:
        What `fusion report --json` prints, as attributes: output, bytes, images.
    """
    arguments = dict(locals())
    for name in ("pan_transform", "ms_transform", "crs", "pan_crs", "ms_crs"):
        arguments[name] = None
    for name in ("pan", "out"):
        if not isinstance(arguments[name], (str, os.PathLike)):
            raise TypeError(f"{name}: a path, not {_name_of(arguments[name])}")
    pair = _Pair(arguments)
    if pair.ms.kind != "path":
        raise TypeError(f"ms: a path or a list of paths, not {_name_of(ms)}")
    images = open_image("fused", fused, several=True)
    if images.kind != "path":
        raise TypeError(f"fused: a path or a list of paths, not {_name_of(fused)}")
    options = {**pair.options(arguments), "fused": "\n".join(images.paths), "out": out}
    return WrittenReport(_core.report(pairs_of(options), Watcher(progress)))


def sample(
    folder: Any,
    *,
    size: Any = None,
    seed: Optional[int] = None,
    type: Optional[str] = None,
    ratio: Optional[int] = None,
    bands: Optional[int] = None,
    shift: Any = None,
    noise: Optional[float] = None,
    clouds: Optional[float] = None,
    overwrite: Optional[bool] = None,
    progress: Any = None,
) -> SampleReport:
    """Write a made-up scene to try things with: pan.tif, ms.tif and truth.tif.

    Args:
        folder: for the files, made where it is missing
        size: pan pixels: one number, or "WxH"; 1024
        seed: another one gives another landscape, the same on every machine
        type: of the samples, as of `fuse`; uint16
        ratio: multispectral over pan pixel, 1 to 16; 4
        bands: multispectral, 1 to 16; 4
        shift: how far the multispectral picture lies to the right and down, in pan pixels: (0.5, -0.25)
        noise: standard deviation of the sensors' noise, 0 to 1, 1 being the brightest white
        clouds: share of the scene that clouds hide, 0 to 1
        overwrite: replace existing files
        progress: as of `fuse`

    Returns:
        files: path, width and height in pixels, bands, pixel_size in metres of each.
    """
    options = {name: value for name, value in locals().items() if name != "progress"}
    return SampleReport(_core.sample(pairs_of(options), Watcher(progress)))


def info(file: Any) -> OutputInfo:
    """How a fused image was made: method, options, inputs, model, checksums, and the command that makes it again."""
    return OutputInfo(_core.info(_path("file", file)))


def verify(file: Any, *, progress: Any = None) -> Verified:
    """Compare a fused image with what was written.

    Raises:
        FusionError: it is not what was written
        UsageError: it tells nothing of how it was made
    """
    return Verified(_core.verify(_path("file", file), Watcher(progress)))


def methods() -> List[Method]:
    """The fusion methods, the default first: name, summary, formula, source, suits, spares, options of its own."""
    return [Method(method) for method in _core.methods()]


def _path(name: str, value: Any) -> str:
    if not isinstance(value, (str, os.PathLike)):
        raise TypeError(f"{name}: a path, not {_name_of(value)}")
    return checked_text(name, os.fsdecode(value))


def _name_of(value: Any) -> str:
    return str(value.__class__.__name__)


def _fused(name: str, fused: Any, pair: _Pair, transform: Any, arguments: Dict[str, Any]) -> Image:
    """A fused image, which lies on the pixels of pan."""
    pan = pair.pan
    is_array = isinstance(fused, np.ndarray)
    if is_array and transform is None and pan.placed:
        if pan.transform is None:
            raise ValueError(f"{name}_transform is missing: pan is a file")
        if fused.shape[-2:] != pan.shape:
            raise ValueError(f"{name}_transform is missing: {name} has another size than pan")
        transform = pan.transform
    system = (pan.crs or crs_text(arguments["crs"]) or None) if is_array else None
    return open_image(name, fused, transform, system, "crs")
