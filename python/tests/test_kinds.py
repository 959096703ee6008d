"""rasterio datasets and xarray DataArrays, in and out."""
import numpy as np
import pytest
from conftest import MS_PLACE, PAN_PLACE, read

import rsfusion


@pytest.fixture
def rasterio():
    return pytest.importorskip("rasterio")


@pytest.fixture
def xarray():
    return pytest.importorskip("xarray")


def data_arrays(xarray, arrays, system=None):
    """Pan and multispectral image as rioxarray would have them, without it."""
    wkt = system or rsfusion_wkt()
    made = []
    for samples, place in zip(arrays, (PAN_PLACE, MS_PLACE)):
        rows, columns = samples.shape[-2:]
        coords = {
            "x": place[0] + place[1] * (np.arange(columns) + 0.5),
            "y": place[3] + place[5] * (np.arange(rows) + 0.5),
            "spatial_ref": ((), 0, {"crs_wkt": wkt, "GeoTransform": " ".join(map(str, place))}),
        }
        dims = ("y", "x") if samples.ndim == 2 else ("band", "y", "x")
        made.append(xarray.DataArray(samples, coords=coords, dims=dims, name="image"))
    return made


def rsfusion_wkt():
    array = rsfusion._core.ArrayRaster(np.zeros((1, 2, 2)), PAN_PLACE, "EPSG:32630", None)
    return rsfusion._core.read_image(array.path)[2]


def test_datasets_give_a_dataset(rasterio, scene):
    with rasterio.open(scene / "pan.tif") as pan, rasterio.open(scene / "ms.tif") as ms:
        with rsfusion.fuse(pan, ms, method="brovey") as fused:
            assert fused.count == 4 and fused.shape == (192, 192) and fused.dtypes[0] == "uint16"
            assert fused.transform == pan.transform and fused.crs == pan.crs
            expected = rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method="brovey")
            assert (fused.read() == expected).all()


def test_datasets_in_memory_are_read(rasterio, scene, arrays):
    expected = rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method="brovey")
    memory = rasterio.MemoryFile((scene / "ms.tif").read_bytes())
    with rasterio.open(scene / "pan.tif") as pan, memory.open() as ms:
        with rsfusion.fuse(pan, ms, method="brovey") as fused:
            assert (fused.read() == expected).all()
        # With a no-data value, which samples have.
        darkest = int(arrays[1].min())
        profile = {**ms.profile, "nodata": darkest}
    with rasterio.MemoryFile() as other:
        with other.open(**profile) as writing:
            writing.write(arrays[1])
        with rasterio.open(scene / "pan.tif") as pan, other.open() as ms:
            with rsfusion.fuse(pan, ms, method="brovey") as fused:
                assert fused.nodata == 0
                assert (fused.read() == rsfusion.fuse(
                    *arrays, method="brovey", nodata=darkest)).mean() > 0.99  # fmt: skip
    pan = rasterio.open(scene / "pan.tif")
    pan.close()
    with pytest.raises(ValueError, match="pan: the dataset is closed"):
        rsfusion.fuse(pan, scene / "ms.tif")


def test_a_view_through_a_warp_is_an_image(rasterio, scene):
    from rasterio.vrt import WarpedVRT

    with rasterio.open(scene / "pan.tif") as pan, rasterio.open(scene / "ms.tif") as ms:
        with WarpedVRT(ms, crs=pan.crs) as view, rsfusion.fuse(pan, view, method="brovey") as fused:
            assert fused.transform == pan.transform
            assert (fused.read() == rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method="brovey")).all()


def test_data_arrays_give_a_data_array(xarray, scene, arrays):
    pan, ms = data_arrays(xarray, arrays)
    expected = rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method="brovey")
    fused = rsfusion.fuse(pan, ms, method="brovey")
    assert isinstance(fused, xarray.DataArray)
    assert fused.dims == ("band", "y", "x") and fused.name == "image"
    assert (fused.values == expected).all()
    assert (fused.x.values == pan.x.values).all() and (fused.y.values == pan.y.values).all()
    assert list(fused.band.values) == [1, 2, 3, 4]
    assert [float(term) for term in fused.spatial_ref.attrs["GeoTransform"].split()] == list(PAN_PLACE)
    assert "32630" in fused.spatial_ref.attrs["crs_wkt"]


def test_a_part_of_a_data_array_lies_where_it_lies(xarray, arrays):
    pan, ms = data_arrays(xarray, arrays)
    whole = rsfusion.fuse(pan, ms, method="brovey", resample="nearest", spectral_match="off")
    # What the written georeference tells is that of the whole array still.
    part = rsfusion.fuse(
        pan.isel(y=slice(40, 120), x=slice(60, 160)), ms, method="brovey", resample="nearest", spectral_match="off"
    )
    assert (part == whole.isel(y=slice(40, 120), x=slice(60, 160))).all()
    assert (part.x == whole.x[60:160]).all()


def test_other_orders_and_names_of_dimensions(xarray, arrays):
    pan, ms = data_arrays(xarray, arrays)
    expected = rsfusion.fuse(pan, ms, method="brovey")
    assert (rsfusion.fuse(pan.transpose("x", "y"), ms.transpose("y", "x", "band"), method="brovey") == expected).all()
    named = ms.rename(x="longitude", y="latitude", band="wavelength")
    fused = rsfusion.fuse(pan, named, method="brovey")
    assert fused.dims == ("wavelength", "latitude", "longitude") and (fused.values == expected.values).all()


def test_without_coordinates_both_cover_the_same_ground(xarray, arrays):
    pan = xarray.DataArray(arrays[0], dims=("y", "x"))
    ms = xarray.DataArray(arrays[1], dims=("band", "y", "x"))
    fused = rsfusion.fuse(pan, ms, method="brovey")
    assert (fused.values == rsfusion.fuse(*arrays, method="brovey")).all() and "x" not in fused.coords


def test_no_data_of_a_data_array(xarray, arrays):
    pan, ms = data_arrays(xarray, arrays)
    fill = 65535
    assert max(array.max() for array in arrays) < fill
    ms = ms.copy()
    ms[:, 10:14, 20:30] = fill
    assert "_FillValue" not in rsfusion.fuse(pan, ms, method="brovey").attrs
    ms.attrs["_FillValue"] = fill
    fused = rsfusion.fuse(pan, ms, method="brovey")
    assert fused.attrs["_FillValue"] == 0
    assert (fused.values[:, 44:52, 84:116] == 0).all()
    assert (fused.values == rsfusion.fuse(arrays[0], ms.values, method="brovey", nodata=fill)).all()


@pytest.mark.parametrize(
    "words, change",
    [
        ("ms: dimensions y and x", lambda ms: ms.rename(x="across")),
        ("ms: its coordinates along x are not evenly spaced", lambda ms: ms.assign_coords(x=ms.x + (ms.x - ms.x[0]) ** 2)),
        ("ms_transform is missing", lambda ms: ms.drop_vars(["x", "y", "spatial_ref"])),
        ("ms.spatial_ref: 'nothing' is no coordinate system", "crs"),
    ],
)
def test_what_is_no_image_is_told(xarray, arrays, words, change):
    pan, ms = data_arrays(xarray, arrays)
    if change == "crs":
        ms.spatial_ref.attrs["crs_wkt"] = "nothing"
    else:
        ms = change(ms)
    with pytest.raises(ValueError, match=words):
        rsfusion.fuse(pan, ms)


def test_rioxarray_reads_what_comes_back(xarray, scene):
    rioxarray = pytest.importorskip("rioxarray")
    pan = rioxarray.open_rasterio(scene / "pan.tif")
    ms = rioxarray.open_rasterio(scene / "ms.tif")
    fused = rsfusion.fuse(pan, ms, method="brovey")
    assert (fused.values == rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", method="brovey")).all()
    assert fused.rio.crs == pan.rio.crs and fused.rio.transform() == pan.rio.transform()
    fused.rio.to_raster(scene / "by_rioxarray.tif")
    assert (read(scene / "by_rioxarray.tif") == fused.values).all()
