"""Images as callers have them: paths, NumPy arrays, rasterio datasets, xarray DataArrays."""
from __future__ import annotations

import itertools
import os
import sys
from typing import Any, List, Optional, Sequence, Tuple

import numpy as np

from . import _core

Transform = Tuple[float, float, float, float, float, float]

TYPES = ("uint8", "uint16", "int16", "uint32", "int32", "float32", "float64")
_X_NAMES = ("x", "longitude", "lon")
_Y_NAMES = ("y", "latitude", "lat")
_count = itertools.count(1)


class Image:
    """An input under a name by which runs open it. What lies in memory stays where it is, as long as this lives."""

    def __init__(self, paths: Sequence[str], kind: str = "path", placed: bool = True) -> None:
        self.paths = list(paths)
        self.kind = kind  # path, array, xarray or rasterio
        self.placed = placed  # has a georeference, or is a file, which may have one
        self.held: Any = None  # what keeps its samples readable
        self.source: Any = None  # what the caller gave
        self.shape: Optional[Tuple[int, int]] = None  # rows and columns, of an array
        self.transform: Optional[Transform] = None
        self.crs = ""

    @property
    def path(self) -> str:
        return self.paths[0]


def is_xarray(value: Any) -> bool:
    module = sys.modules.get("xarray")
    return module is not None and isinstance(value, module.DataArray)


def is_rasterio(value: Any) -> bool:
    module = sys.modules.get("rasterio")
    return module is not None and (
        isinstance(value, module.io.DatasetReader) or type(value).__module__.startswith("rasterio.")
    )


def open_image(name: str, value: Any, transform: Any = None, crs: Any = None, crs_name: str = "crs", several: bool = False) -> Image:
    """An argument as an image.

    Args:
        name: of the argument, which errors tell
        transform, crs: of an array
        crs_name: of the argument that crs comes from
        several: whether it may be a list of paths
    """
    if isinstance(value, (str, os.PathLike)):
        _only_arrays(name, transform, crs)
        return Image([os.fsdecode(value)])
    if is_xarray(value):
        _only_arrays(name, transform, crs)
        return _of_xarray(name, value)
    if isinstance(value, np.ndarray):
        return _of_array(name, value, six_terms(f"{name}_transform", transform), crs_text(crs), crs_name)
    if is_rasterio(value):
        _only_arrays(name, transform, crs)
        return _of_rasterio(name, value)
    if several and isinstance(value, (list, tuple)) and value and all(isinstance(v, (str, os.PathLike)) for v in value):
        _only_arrays(name, transform, crs)
        return Image([os.fsdecode(v) for v in value])
    raise TypeError(
        f"{name}: a path, a NumPy array, a rasterio dataset or an xarray DataArray, not {type(value).__name__}"
    )


def six_terms(name: str, transform: Any) -> Optional[Transform]:
    """A transform in GDAL's order: of six numbers, or of an affine.Affine."""
    if transform is None:
        return None
    try:
        terms = tuple(float(term) for term in (transform.to_gdal() if hasattr(transform, "to_gdal") else transform))
    except (TypeError, ValueError):
        raise TypeError(f"{name}: an affine.Affine or GDAL's six numbers, not {transform!r}") from None
    if len(terms) != 6:
        raise ValueError(f"{name}: GDAL's six numbers, not {len(terms)}")
    if not np.isfinite(terms).all() or terms[1] * terms[5] == terms[2] * terms[4]:
        raise ValueError(f"{name}: {terms} cannot be turned round")
    return terms  # type: ignore[return-value]


def crs_text(crs: Any) -> str:
    """A coordinate system as text: what has to_wkt() (rasterio, pyproj) gives that."""
    if crs is None:
        return ""
    if hasattr(crs, "to_wkt"):
        return str(crs.to_wkt())
    return f"EPSG:{crs}" if isinstance(crs, (int, np.integer)) else str(crs)


def _only_arrays(name: str, transform: Any, crs: Any) -> None:
    if transform is not None:
        raise TypeError(f"{name}_transform is for a NumPy array; {name} has a georeference of its own")
    if crs is not None:
        raise TypeError(f"{name}_crs is for a NumPy array; {name} has a coordinate system of its own")


def _of_array(
    name: str,
    array: "np.ndarray[Any, Any]",
    transform: Optional[Transform],
    crs: str,
    crs_name: str,
    nodata: Optional[float] = None,
    kind: str = "array",
) -> Image:
    if isinstance(array, np.ma.MaskedArray):
        raise TypeError(f"{name}: a masked array; fill it (filled) with a value that nodata names")
    if array.dtype.newbyteorder("=").name not in TYPES:
        raise TypeError(f"{name}: its samples are {array.dtype}, not of {', '.join(TYPES)}")
    if array.ndim == 2:
        array = array[np.newaxis]
    if array.ndim != 3:
        raise ValueError(f"{name}: (rows, columns) or (bands, rows, columns), not {array.ndim} dimensions")
    if 0 in array.shape:
        raise ValueError(f"{name}: its shape is {array.shape}, there are no samples")
    if any(step <= 0 and count > 1 for step, count in zip(array.strides, array.shape)):
        raise ValueError(f"{name}: its samples lie in falling order (negative strides); take numpy.ascontiguousarray")
    try:
        held = _core.ArrayRaster(array, transform, crs if transform else "", nodata)
    except ValueError as error:
        about = crs_name if "coordinate system" in str(error) else name
        raise ValueError(f"{about}: {error}") from None
    image = Image([held.path], kind, placed=transform is not None)
    image.held = held
    image.shape = (array.shape[1], array.shape[2])
    image.transform, image.crs = transform, crs
    return image


def _of_rasterio(name: str, dataset: Any) -> Image:
    if dataset.closed:
        raise ValueError(f"{name}: the dataset is closed")
    if dataset.mode == "r" and os.path.exists(dataset.name):
        image = Image([dataset.name], "rasterio")
    else:
        # Behind other names lies what only rasterio can open.
        placed = dataset.crs is not None or not dataset.transform.is_identity
        terms = six_terms(f"{name}.transform", dataset.transform) if placed else None
        image = _of_array(name, dataset.read(), terms, crs_text(dataset.crs), f"{name}.crs", dataset.nodata, "rasterio")
    image.source = dataset
    return image


def _axis(dims: Sequence[Any], names: Sequence[str]) -> Optional[str]:
    found = [str(dim) for dim in dims if str(dim) in names]
    return found[0] if len(found) == 1 else None


def _of_xarray(name: str, data: Any) -> Image:
    x, y = _axis(data.dims, _X_NAMES), _axis(data.dims, _Y_NAMES)
    if x is None or y is None or data.ndim not in (2, 3):
        raise ValueError(f"{name}: dimensions y and x, and one of the bands before them, not {data.dims}")
    bands = [dim for dim in data.dims if dim not in (x, y)]
    placed = data.transpose(*bands, y, x)
    transform = _transform_of(name, data, x, y)
    nodata = data.attrs.get("_FillValue", data.encoding.get("_FillValue"))
    values = np.asarray(placed.data)
    if nodata is not None and (isinstance(nodata, (str, bytes)) or not _fits(float(nodata), values.dtype)):
        nodata = None
    declared = None if nodata is None else float(nodata)
    image = _of_array(name, values, transform, _crs_of(data), f"{name}.spatial_ref", declared, "xarray")
    image.source = data
    return image


def _fits(value: float, dtype: Any) -> bool:
    if dtype.kind == "f":
        return True
    limits = np.iinfo(dtype)
    return bool(np.isfinite(value)) and value == int(value) and limits.min <= value <= limits.max


def _mapping_of(data: Any) -> Any:
    name = data.encoding.get("grid_mapping", data.attrs.get("grid_mapping", "spatial_ref"))
    return data.coords[name].attrs if name in data.coords else {}


def _crs_of(data: Any) -> str:
    mapping = _mapping_of(data)
    return str(mapping.get("crs_wkt") or mapping.get("spatial_ref") or "")


def _transform_of(name: str, data: Any, x: str, y: str) -> Optional[Transform]:
    """Of the coordinates, which are those of the pixels' centres; exactly as it is written down, where that agrees."""
    told = _mapping_of(data).get("GeoTransform")
    exact = six_terms(f"{name}.GeoTransform", told.split()) if isinstance(told, str) else None
    if x not in data.coords or y not in data.coords:
        return exact
    starts: List[float] = []
    steps: List[float] = []
    for axis, (dim, size) in enumerate(((x, 1), (y, 5))):
        centres = np.asarray(data.coords[dim].values, dtype=np.float64)
        if len(centres) == 0:
            return None
        if len(centres) > 1:
            step = (centres[-1] - centres[0]) / (len(centres) - 1)
        elif exact:
            step = exact[size]
        else:
            raise ValueError(f"{name}: one coordinate along {dim} does not tell how large a pixel is")
        even = centres[0] + step * np.arange(len(centres))
        if step == 0 or np.abs(even - centres).max() > 0.01 * abs(step):
            raise ValueError(f"{name}: its coordinates along {dim} are not evenly spaced")
        starts.append(float(centres[0] - step / 2))
        steps.append(float(step))
    found = (starts[0], steps[0], 0.0, starts[1], 0.0, steps[1])
    if exact:
        near = [abs(steps[0]), abs(steps[0]), 0.0, abs(steps[1]), 0.0, abs(steps[1])]
        if all(abs(a - b) <= 1e-6 * limit for a, b, limit in zip(found, exact, near)):
            return exact
    return found


class Result:
    """The image that a run without an output leaves, in memory."""

    def __init__(self) -> None:
        self.path = f"/vsimem/rsfusion_{next(_count)}/fused.tif"

    def __enter__(self) -> "Result":
        return self

    def __exit__(self, *_: object) -> None:
        _core.delete_image(self.path)

    def take(self, pan: Image, ms: Image) -> Any:
        """The image in the kind of what went in."""
        samples, transform, wkt, nodata = _core.read_image(self.path)
        kinds = {pan.kind, ms.kind}
        if "xarray" in kinds:
            return _to_xarray(samples, transform, wkt, nodata, ms if ms.kind == "xarray" else pan)
        if "rasterio" in kinds:
            return _to_rasterio(samples, transform, wkt, nodata)
        return samples


def _to_xarray(samples: Any, transform: Optional[Transform], wkt: str, nodata: Optional[float], like: Image) -> Any:
    xarray = sys.modules["xarray"]
    data = like.source
    x, y = _axis(data.dims, _X_NAMES), _axis(data.dims, _Y_NAMES)
    bands = [str(dim) for dim in data.dims if dim not in (x, y)]
    coords: Any = {}
    attrs: Any = {}
    band = bands[0] if bands else "band"
    coords[band] = np.arange(1, samples.shape[0] + 1)
    if like.placed and transform:
        coords[x] = transform[0] + transform[1] * (np.arange(samples.shape[2]) + 0.5)
        coords[y] = transform[3] + transform[5] * (np.arange(samples.shape[1]) + 0.5)
        mapping = {"GeoTransform": " ".join(repr(float(term)) for term in transform)}
        if wkt:
            mapping.update(crs_wkt=wkt, spatial_ref=wkt)
        coords["spatial_ref"] = ((), 0, mapping)
    if nodata is not None:
        attrs["_FillValue"] = samples.dtype.type(nodata)
    return xarray.DataArray(samples, coords=coords, dims=(band, y, x), name=data.name, attrs=attrs)


def _to_rasterio(samples: Any, transform: Optional[Transform], wkt: str, nodata: Optional[float]) -> Any:
    import rasterio  # type: ignore[import]
    from affine import Affine  # type: ignore[import]

    memory = rasterio.MemoryFile()
    profile = {"driver": "GTiff", "count": samples.shape[0], "height": samples.shape[1], "width": samples.shape[2]}
    profile.update(dtype=samples.dtype.name, nodata=nodata, crs=wkt or None)
    if transform:
        profile["transform"] = Affine.from_gdal(*transform)
    with memory.open(**profile) as dataset:
        dataset.write(samples)
    result = memory.open()
    # The memory goes with the last one who reads it.
    result._rsfusion_memory = memory
    return result
