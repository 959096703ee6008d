"""What the package does to a process: other users of GDAL, memory, what it loads."""
import os
import subprocess
import sys

import pytest

import rsfusion


def python(program):
    done = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stderr
    return done.stdout


WITH_OTHERS = """
import {first}
import {second}
import sys, numpy as np, rsfusion
{used}
pan, ms = np.arange(4096, dtype="uint16").reshape(64, 64), np.arange(1024, dtype="uint16").reshape(4, 16, 16)
for _ in range(3):
    assert rsfusion.fuse(pan, ms, method="brovey").shape == (4, 64, 64)
    use({path!r})
try:
    rsfusion.fuse("missing.tif", ms, ms_transform=(0, 1, 0, 0, 0, -1))
except rsfusion.FusionError as error:
    assert "does not exist" in str(error)
use({path!r})
print("well")
"""
USES = {
    "osgeo.gdal": """
from osgeo import gdal
def use(path):
    assert gdal.Open(path).ReadAsArray().shape == (4, 48, 48)
    assert gdal.Open("missing.tif") is None
""",
    "rasterio": """
import rasterio
def use(path):
    with rasterio.open(path) as image:
        assert image.read().shape == (4, 48, 48)
    try:
        rasterio.open("missing.tif")
    except rasterio.errors.RasterioIOError:
        return
    raise AssertionError
""",
}


@pytest.mark.parametrize("order", [("rsfusion", "{}"), ("{}", "rsfusion")], ids=["first", "second"])
@pytest.mark.parametrize("other", USES)
def test_another_user_of_gdal_lives_in_the_same_process(scene, other, order):
    pytest.importorskip(other)
    first, second = (name.format(other) for name in order)
    program = WITH_OTHERS.format(first=first, second=second, used=USES[other], path=str(scene / "ms.tif"))
    # GDAL's binding tells on standard error what it could not open.
    assert python(program).endswith("well\n")


def test_nothing_is_loaded_that_nobody_asked_for():
    loaded = python("import rsfusion, sys; print(*sorted(sys.modules))").split()
    assert not {"osgeo", "rasterio", "xarray", "tqdm", "affine"} & set(loaded)
    assert "numpy" in loaded


MANY = """
import numpy as np, os, rsfusion
random = np.random.default_rng(3)
pan = random.integers(1, 4000, (96, 96), dtype=np.uint16)
ms = random.integers(1, 4000, (4, 24, 24), dtype=np.uint16)
place = (440000.0, 1.0, 0.0, 4470000.0, 0.0, -1.0), (440000.0, 4.0, 0.0, 4470000.0, 0.0, -4.0)
def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") / 1e6
for run in range(1001):
    method = ("bayesian", "brovey", "pca", "hpf", "ihs")[run % 5]
    bands = [3, 2, 1] if method == "ihs" else None
    fused = rsfusion.fuse(pan, ms, method=method, bands=bands, pan_transform=place[0], ms_transform=place[1], crs=32630)
    if run % 7 == 0:
        try:
            rsfusion.fuse(pan, ms, method=method, bands=bands, progress=lambda *_: 1 / 0)
        except ZeroDivisionError:
            pass
        try:
            rsfusion.fuse(pan, ms, bands=[9])
        except ValueError:
            pass
    if run % 100 == 0:
        print(run, round(resident(), 1))
"""


@pytest.mark.skipif(not sys.platform.startswith("linux"), reason="reads /proc")
def test_a_thousand_runs_leave_no_memory_taken():
    measured = [line.split() for line in python(MANY).splitlines()]
    curve = {int(run): float(megabytes) for run, megabytes in measured}
    print("resident MB:", curve)
    assert len(curve) == 11
    # A run that left its pan alone behind would take 17 MB by the end.
    assert max(curve[run] for run in range(500, 1001, 100)) - curve[200] < 4.0


LEFT = """
import numpy as np, rsfusion
pan, ms = np.arange(4096, dtype="uint16").reshape(64, 64), np.arange(1024, dtype="uint16").reshape(4, 16, 16)
for _ in range(3):
    rsfusion.fuse(pan, ms, method="brovey")
    try:
        rsfusion.fuse(pan, ms, method="brovey", progress=lambda *_: 1 / 0)
    except ZeroDivisionError:
        pass
names = [f"/vsimem/fusion_memory_{n}{end}" for n in range(99) for end in (".raw", ".vrt")]
names += [f"/vsimem/rsfusion_{n}/fused.tif" for n in range(99)]
for name in names:
    try:
        print(name, rsfusion._core.read_image(name))
    except RuntimeError:
        continue
from osgeo import gdal
print("left:", gdal.ReadDirRecursive("/vsimem/"))
"""


def test_nothing_is_left_in_the_memory_of_gdal():
    pytest.importorskip("osgeo.gdal")
    assert python(LEFT) in ("left: None\n", "left: []\n")
