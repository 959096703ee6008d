"""What is raised: by arguments that make no sense, by runs that fail."""
import os
import re

import numpy as np
import pytest
from conftest import MS_PLACE, PAN_PLACE

import rsfusion

PAN = np.full((16, 16), 9, np.uint8)
MS = np.arange(64, dtype=np.uint8).reshape(4, 4, 4)


def fuse(pan=PAN, ms=MS, *more, **options):
    return rsfusion.fuse(pan, ms, *more, **options)


@pytest.mark.parametrize(
    "kind, words, call",
    [
        (TypeError, "pan: a path, .*not int", lambda: fuse(3)),
        (TypeError, "ms: a path, .*not NoneType", lambda: fuse(PAN, None)),
        (TypeError, "ms: a path, .*not list", lambda: fuse(PAN, [])),
        (TypeError, "out: a path, not ndarray", lambda: fuse(PAN, MS, PAN)),
        (TypeError, "ms: a masked array", lambda: fuse(ms=np.ma.masked_equal(MS, 3))),
        (TypeError, "ms: its samples are int8", lambda: fuse(ms=MS.astype("int8"))),
        (TypeError, "ms: its samples are int64", lambda: fuse(ms=MS.astype("int64"))),
        (TypeError, "pan: its samples are float16", lambda: fuse(PAN.astype("float16"))),
        (TypeError, "pan: its samples are bool", lambda: fuse(PAN > 3)),
        (TypeError, "pan: its samples are complex64", lambda: fuse(PAN.astype("complex64"))),
        (TypeError, "pan: its samples are object", lambda: fuse(PAN.astype(object))),
        (ValueError, "pan: .*not 1 dimensions", lambda: fuse(PAN[0])),
        (ValueError, "ms: .*not 4 dimensions", lambda: fuse(ms=MS[None])),
        (ValueError, "ms: its shape is .*no samples", lambda: fuse(ms=MS[:, :0])),
        (ValueError, "ms: .*negative strides", lambda: fuse(ms=MS[:, ::-1])),
        (ValueError, "pan: .*negative strides", lambda: fuse(np.broadcast_to(PAN[:1], PAN.shape))),
        (TypeError, "pan_transform: an affine", lambda: fuse(pan_transform="here", ms_transform=MS_PLACE)),
        (ValueError, "ms_transform: GDAL's six numbers, not 3", lambda: fuse(pan_transform=PAN_PLACE, ms_transform=(1, 2, 3))),
        (ValueError, "ms_transform: .*cannot be turned", lambda: fuse(pan_transform=PAN_PLACE, ms_transform=(0,) * 6)),
        (ValueError, "ms_transform is missing", lambda: fuse(pan_transform=PAN_PLACE)),
        (ValueError, "pan_transform is missing", lambda: fuse(ms_transform=MS_PLACE)),
        (ValueError, "^crs: 'EPSG:1' is no coord", lambda: fuse(pan_transform=PAN_PLACE, ms_transform=MS_PLACE, crs="EPSG:1")),
        (ValueError, "^ms_crs: 'x' is no coord", lambda: fuse(pan_transform=PAN_PLACE, ms_transform=MS_PLACE, ms_crs="x")),
        (TypeError, "pan_crs and crs say the same", lambda: fuse(crs=1, pan_crs=2)),
        (TypeError, "pan_transform is for a NumPy array", lambda: fuse("pan.tif", "ms.tif", pan_transform=PAN_PLACE)),
        (TypeError, "ms_crs is for a NumPy array", lambda: fuse("pan.tif", "ms.tif", ms_crs=4326)),
        (TypeError, "unexpected keyword argument 'metod'", lambda: fuse(metod="brovey")),
        (TypeError, "bands: a text, a number", lambda: fuse(bands={1, 2})),
        (TypeError, "window: a text, a number", lambda: fuse(window=(1, 2, object(), 4))),
        (TypeError, "co: creation options", lambda: fuse(PAN, MS, "x.tif", co=3)),
        (TypeError, "progress: a callable", lambda: fuse(progress=7)),
        (ValueError, "overwrite is for a run with out", lambda: fuse(overwrite=True)),
        (ValueError, "format is for a run with out", lambda: fuse(format="png")),
        (ValueError, "Unknown method 'none'", lambda: fuse(method="none")),
        (ValueError, "^pan_band 3: the pan image has bands 1 to 1", lambda: fuse(pan_band=3)),
        (ValueError, "^bands 9: the multispectral image has bands 1 to 4", lambda: fuse(bands=[1, 9])),
        (ValueError, "^bands: '1.5' is no whole number", lambda: fuse(bands=1.5)),
        (ValueError, "^same_extent: a switch is on or off, not 'yes'", lambda: fuse(same_extent="yes")),
        (ValueError, "^bayes_weight must lie between 0 and 1", lambda: fuse(bayes_weight=2)),
        (ValueError, "^kernel_size must be an odd", lambda: fuse(method="hpf", kernel_size=4)),
        (ValueError, "rgb", lambda: fuse(method="brovey", rgb=[1, 2, 3])),
        (TypeError, "fused: a path, .*not float", lambda: rsfusion.evaluate(PAN, MS, 1.5)),
        (ValueError, "fused_transform is missing", lambda: rsfusion.evaluate(
            PAN, MS, MS, pan_transform=PAN_PLACE, ms_transform=MS_PLACE)),
        (ValueError, "Unknown metric", lambda: rsfusion.evaluate(PAN, MS, np.zeros((4, 16, 16), "u1"), metric="beauty")),
        (TypeError, "pan: a path, not ndarray", lambda: rsfusion.report(PAN, MS, "f.tif", "o.html")),
        (ValueError, "^pan: .* is no UTF-8", lambda: fuse(b"\xff.tif".decode("utf-8", "surrogateescape"), "ms.tif")),
        (ValueError, "^ms: .* has a zero in it", lambda: fuse("pan.tif", "ms\0.tif")),
        (ValueError, "^file: .* is no UTF-8", lambda: rsfusion.info(b"\xff.tif".decode("utf-8", "surrogateescape"))),
        (TypeError, "file: a path, not int", lambda: rsfusion.info(3)),
        (ValueError, "size is N or WxH", lambda: rsfusion.sample("nowhere", size="large")),
    ],
)  # fmt: skip
def test_wrong_arguments_are_named(kind, words, call):
    with pytest.raises(kind, match=words) as raised:
        call()
    assert "--" not in str(raised.value)


def test_usage_errors_are_both(scene, tmp_path):
    out = tmp_path / "fused.tif"
    rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", out, method="brovey")
    before = out.read_bytes()
    with pytest.raises(ValueError, match=re.escape(f"{out} exists; add overwrite=True to replace it.")) as raised:
        rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", out, method="pca")
    assert isinstance(raised.value, rsfusion.FusionError) and raised.value.type == -1
    assert out.read_bytes() == before
    rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", out, method="pca", overwrite=True)
    assert out.read_bytes() != before


def test_failures_have_a_type_a_message_and_a_sentence(scene, tmp_path):
    missing = str(tmp_path / "missing.tif")
    with pytest.raises(rsfusion.FusionError) as raised:
        rsfusion.fuse(missing, scene / "ms.tif", tmp_path / "out.tif")
    error = raised.value
    assert error.type == 4 and not isinstance(error, ValueError)
    assert error.sentence == f"{missing} does not exist."
    assert missing in error.message and error.message != error.sentence
    assert str(error) == f"{error.sentence} ({error.message})"
    assert os.listdir(tmp_path) == []


def test_an_image_without_variation_fails(scene, arrays):
    with pytest.raises(rsfusion.FusionError, match="no variation") as raised:
        rsfusion.fuse(np.full_like(arrays[0], 7), arrays[1], method="hpf")
    assert raised.value.type > 0


def test_a_damaged_file_fails(scene, tmp_path):
    damaged = tmp_path / "pan.tif"
    damaged.write_bytes((scene / "pan.tif").read_bytes()[:20000])
    with pytest.raises(rsfusion.FusionError):
        rsfusion.fuse(damaged, scene / "ms.tif")


def test_what_was_changed_is_not_verified(scene, tmp_path):
    out = tmp_path / "fused.tif"
    rsfusion.fuse(scene / "pan.tif", scene / "ms.tif", out, method="brovey", no_overviews=True)
    rsfusion.verify(out)
    data = bytearray(out.read_bytes())
    data[len(data) // 2] ^= 255
    out.write_bytes(data)
    with pytest.raises(rsfusion.FusionError):
        rsfusion.verify(out)
    with pytest.raises(ValueError):
        rsfusion.verify(scene / "pan.tif")
