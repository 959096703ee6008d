"""Arrays: where they lie, what they hold, what comes back; and methods against formulas of their own."""
import numpy as np
import pytest
from conftest import METHODS, MS_PLACE, PAN_PLACE, read

import rsfusion

SYSTEM = "EPSG:32630"
PLACED = {"pan_transform": PAN_PLACE, "ms_transform": MS_PLACE, "crs": SYSTEM}


@pytest.mark.parametrize("method", METHODS)
def test_arrays_give_what_files_give(scene, arrays, method):
    expected = rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method=method)
    assert expected.shape == (4, 192, 192) and expected.dtype == np.uint16
    assert (rsfusion.fuse(*arrays, method=method, **PLACED) == expected).all()
    # Without places both cover the same ground, as they do.
    assert (rsfusion.fuse(*arrays, method=method) == expected).all()


def test_inputs_stay_as_they_are_and_where_they_are(arrays):
    pan, ms = (array.copy() for array in arrays)
    pan.setflags(write=False)
    ms.setflags(write=False)
    rsfusion.fuse(pan, ms)
    assert (pan == arrays[0]).all() and (ms == arrays[1]).all()
    # A view is read where it lies: a change between two runs is seen by the second.
    raster = rsfusion._core.ArrayRaster(arrays[1].copy(), None, "", None)
    assert (read(raster.path) == arrays[1]).all()
    changed = arrays[1].copy()
    raster = rsfusion._core.ArrayRaster(changed, None, "", None)
    changed[2, 3, 4] = 77
    assert read(raster.path)[2, 3, 4] == 77
    path = raster.path
    del raster
    with pytest.raises(RuntimeError, match="cannot be opened"):
        read(path)


@pytest.mark.parametrize("kind", ["columns last", "every second", "other bytes", "Fortran"])
def test_samples_may_lie_in_any_rising_order(arrays, kind):
    pan, ms = arrays
    expected = rsfusion.fuse(pan, ms, method="brovey")
    if kind == "columns last":
        ms = np.ascontiguousarray(ms.transpose(1, 2, 0)).transpose(2, 0, 1)
    elif kind == "every second":
        apart = np.zeros((4, 96, 144), ms.dtype)
        apart[:, ::2, ::3] = ms
        ms = apart[:, ::2, ::3]
    elif kind == "other bytes":
        ms = ms.astype(ms.dtype.newbyteorder("S"))
        pan = pan.astype(pan.dtype.newbyteorder("S"))
    else:
        pan, ms = np.asfortranarray(pan), np.asfortranarray(ms)
    assert (rsfusion.fuse(pan, ms, method="brovey") == expected).all()


@pytest.mark.parametrize("type", ["uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"])
def test_all_seven_types_go_in_and_come_out(arrays, type):
    # Small enough for a byte.
    pan, ms = ((array // 256).astype(type) for array in arrays)
    fused = rsfusion.fuse(pan, ms, method="brovey")
    assert fused.dtype == np.dtype(type) and fused.shape == (4, 192, 192)
    exact = rsfusion.fuse(pan.astype("float64"), ms.astype("float64"), method="brovey")
    # Integers are cut off, or rounded, within their range; no float type is.
    if fused.dtype.kind == "f":
        assert np.allclose(fused, exact, rtol=1e-6, atol=1e-6)
    else:
        limits = np.iinfo(type)
        assert np.abs(fused - np.clip(exact, limits.min, limits.max)).max() <= 1.0
    for other in ("uint8", "float32"):
        assert rsfusion.fuse(pan, ms, method="brovey", type=other).dtype == np.dtype(other)


def upsampled(ms, ratio=4):
    return ms.repeat(ratio, axis=1).repeat(ratio, axis=2)


RAW = {"spectral_match": "off", "resample": "nearest", "type": "float64"}


def test_brovey_is_its_formula(numbers):
    pan, ms = numbers
    bands = upsampled(ms)
    fused = rsfusion.fuse(pan, ms, method="brovey", **RAW)
    assert np.allclose(fused, bands * pan / bands.sum(axis=0), rtol=1e-12)


def test_multiplicative_is_its_formula(numbers):
    pan, ms = numbers
    fused = rsfusion.fuse(pan, ms, method="multiplicative", **RAW)
    assert np.allclose(fused, upsampled(ms) * pan, rtol=1e-12)


def test_matched_bands_have_the_moments_of_the_multispectral_ones(numbers):
    pan, ms = numbers
    fused = rsfusion.fuse(
        pan, ms, method="multiplicative", product_root="off", resample="nearest", type="float64", match_moments="plain"
    )
    raw = upsampled(ms) * pan
    for band, product, target in zip(fused, raw, ms):
        assert np.allclose(band, (product - product.mean()) / product.std() * target.std() + target.mean(), rtol=1e-9)


def test_pca_is_its_formula(numbers):
    pan, ms = numbers
    fused = rsfusion.fuse(pan, ms, method="pca", resample="nearest", type="float64")
    samples = ms.reshape(3, -1)
    values, vectors = np.linalg.eigh(np.cov(samples, bias=True))
    first = vectors[:, np.argmax(values)]
    bands = upsampled(ms)
    component = np.tensordot(first, bands, 1)
    # Pan gets the component's mean and deviation, and its direction.
    rises = np.sign(((pan - pan.mean()) * (component - component.mean())).sum())
    scaled = (pan - pan.mean()) / pan.std() * np.sqrt(values.max()) * rises + first @ samples.mean(axis=1)
    assert np.allclose(fused, bands + first[:, None, None] * (scaled - component), rtol=1e-9)


def test_pca_without_a_match_takes_pan_as_it_is(numbers):
    pan, ms = numbers
    fused = rsfusion.fuse(pan, ms, method="pca", pca_match="off", resample="nearest", type="float64")
    values, vectors = np.linalg.eigh(np.cov(ms.reshape(3, -1), bias=True))
    rest = vectors[:, np.argsort(values)[:2]]
    # The other components are the bands', whatever pan is.
    expected = np.tensordot(rest.T, upsampled(ms), 1)
    assert np.allclose(np.tensordot(rest.T, fused, 1), expected, rtol=1e-9, atol=1e-9)
    # The first one's row has some length of its own: along it lies pan.
    along = np.tensordot(vectors[:, np.argmax(values)], fused, 1)
    assert np.allclose(np.corrcoef(along.ravel(), pan.ravel())[0, 1] ** 2, 1.0)


def test_partial_overlap_gives_the_common_ground(arrays):
    pan, ms = arrays
    # The multispectral image begins 20 m to the right and 10 m down, and goes beyond pan.
    place = (440020.0, 2.0, 0.0, 4474990.0, 0.0, -2.0)
    fused = rsfusion.fuse(
        pan, ms, method="brovey", pan_transform=PAN_PLACE, ms_transform=place, crs=SYSTEM, **RAW
    )
    assert fused.shape == (4, 192 - 20, 192 - 40)
    bands = upsampled(ms)[:, : 192 - 20, : 192 - 40].astype(float)
    assert np.allclose(fused, bands * pan[20:, 40:] / bands.sum(axis=0), rtol=1e-12)


def test_samples_without_data_are_left_out(arrays):
    pan, ms = arrays[0].astype("float32"), arrays[1].astype("float32")
    ms[:, 10:14, 20:30] = np.nan
    fused = rsfusion.fuse(pan, ms, method="brovey")
    assert (fused[:, 44:52, 84:116] == 0).all() and (fused[:, 100:, :] != 0).all()
    ms[np.isnan(ms)] = -9.0
    assert (rsfusion.fuse(pan, ms, method="brovey", nodata=-9) == fused).all()


def test_pan_may_have_bands_of_its_own(arrays):
    pan, ms = arrays
    expected = rsfusion.fuse(pan, ms, method="brovey")
    several = np.stack([np.zeros_like(pan), pan])
    assert (rsfusion.fuse(several, ms, method="brovey", pan_band=2) == expected).all()


def test_a_path_and_an_array_go_together(scene, arrays):
    expected = rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method="brovey")
    fused = rsfusion.fuse(scene / "pan.tif", arrays[1], method="brovey", ms_transform=MS_PLACE, ms_crs=SYSTEM)
    assert (fused == expected).all()


def test_arrays_are_checked_and_evaluated_as_files_are(scene, arrays):
    pan, ms = arrays
    fused = rsfusion.fuse(pan, ms, method="brovey")
    rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", scene / "evaluated.tif", method="brovey", overwrite=True)
    by_files = rsfusion.evaluate(scene / "pan.tif", scene / "ms.tif", scene / "evaluated.tif")
    assert rsfusion.evaluate(pan, ms, fused, **PLACED) == by_files
    assert rsfusion.evaluate(pan, ms, fused) == by_files
    assert rsfusion.check(pan, ms, **PLACED).pan_band == rsfusion.check(scene / "pan.tif", scene / "ms.tif").pan_band


def test_an_array_may_be_written(scene, arrays, tmp_path):
    report = rsfusion.fuse(*arrays, tmp_path / "fused.tif", method="brovey", **PLACED)
    assert (report.width, report.height, report.bands, report.type) == (192, 192, 4, "uint16")
    samples, transform, wkt, nodata = rsfusion._core.read_image(str(tmp_path / "fused.tif"))
    assert (samples == rsfusion.fuse(*arrays, method="brovey")).all()
    assert transform == PAN_PLACE and "32630" in wkt and nodata is None


def test_affine_transforms_are_those_numbers(arrays):
    affine = pytest.importorskip("affine")
    fused = rsfusion.fuse(
        *arrays,
        method="brovey",
        pan_transform=affine.Affine.from_gdal(*PAN_PLACE),
        ms_transform=affine.Affine.from_gdal(*MS_PLACE),
        pan_crs=32630,
        ms_crs=32630,
    )
    assert (fused == rsfusion.fuse(*arrays, method="brovey")).all()


def test_coordinate_systems_differ(scene, arrays, tmp_path):
    # Five degrees of longitude beside: another zone, the images lie apart.
    with pytest.raises(rsfusion.FusionError, match="no common ground"):
        rsfusion.fuse(*arrays, pan_transform=PAN_PLACE, ms_transform=MS_PLACE, pan_crs=32630, ms_crs=32631)
