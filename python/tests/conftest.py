"""Scenes and the command, for all tests. FUSION_COMMAND names the command, FUSION_SOURCE_DIR the clone."""
import os
import pathlib
import subprocess

import numpy as np
import pytest

import rsfusion

# What an output tells of its time.
os.environ["SOURCE_DATE_EPOCH"] = "1700000000"

COMMAND = os.environ.get("FUSION_COMMAND", "fusion")
SOURCE = pathlib.Path(os.environ.get("FUSION_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
METHODS = [method.name for method in rsfusion.methods()]
PAN_PLACE = (440000.0, 0.5, 0.0, 4475000.0, 0.0, -0.5)
MS_PLACE = (440000.0, 2.0, 0.0, 4475000.0, 0.0, -2.0)


def command(*arguments):
    """Runs the command and answers what it prints."""
    done = subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True)
    assert done.returncode in (0, 3), done.stderr
    return done.stdout


def read(path):
    """All samples of a file, (bands, rows, columns)."""
    return rsfusion._core.read_image(str(path))[0]


@pytest.fixture(scope="session")
def scene(tmp_path_factory):
    """A folder with pan.tif (192 x 192 of uint16) and ms.tif (four bands of 48 x 48)."""
    folder = tmp_path_factory.mktemp("scene")
    rsfusion.sample(folder, size=192)
    return folder


@pytest.fixture(scope="session")
def arrays(scene):
    """The same as arrays: pan (rows, columns) and ms (bands, rows, columns)."""
    return read(scene / "pan.tif")[0], read(scene / "ms.tif")


@pytest.fixture(scope="session")
def numbers():
    """A pair of made-up numbers: pan (32, 24) and ms (3, 8, 6) of float64, the same on every machine."""
    random = np.random.default_rng(1)
    ms = random.uniform(10.0, 200.0, (3, 8, 6))
    ms[1] += 0.5 * ms[0]
    pan = ms.mean(axis=0).repeat(4, axis=0).repeat(4, axis=1) + random.uniform(-5.0, 5.0, (32, 24))
    return pan, ms
