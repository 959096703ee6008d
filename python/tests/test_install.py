"""The package as it is installed: by CMake, and as a wheel by pip."""
import os
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import pytest
from conftest import SOURCE

import rsfusion

BUILD = pathlib.Path(os.environ.get("FUSION_BUILD_DIR", "nowhere"))
PROGRAM = """
import sys, numpy as np, rsfusion
fused = rsfusion.fuse(np.load(sys.argv[1]), np.load(sys.argv[2]), method="bayesian")
np.save(sys.argv[3], fused)
print(rsfusion.__file__)
"""


def run(*command, **more):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, **more)
    assert done.returncode == 0, done.stdout[-3000:] + done.stderr[-3000:]
    return done.stdout


def expect_the_same(interpreter, package, arrays, folder, **more):
    """What is installed there gives what this package gives."""
    files = [folder / name for name in ("pan.npy", "ms.npy", "fused.npy")]
    for array, file in zip(arrays, files):
        np.save(file, array)
    said = run(interpreter, "-B", "-c", PROGRAM, *files, cwd=folder, **more)
    assert pathlib.Path(said.strip()).parent == package
    assert (np.load(files[2]) == rsfusion.fuse(*arrays)).all()


@pytest.mark.skipif(not (BUILD / "CMakeCache.txt").exists(), reason="no build folder (FUSION_BUILD_DIR)")
def test_what_cmake_installs(arrays, tmp_path):
    for component in ("library", "python"):
        run("cmake", "--install", BUILD, "--prefix", tmp_path / "prefix", "--component", component)
    (package,) = (tmp_path / "prefix").rglob("rsfusion")
    names = {file.name for file in package.iterdir()}
    assert {file.name for file in (SOURCE / "python/rsfusion").iterdir() if file.is_file()} < names
    libraries = next((tmp_path / "prefix").rglob("libfusion.so.1")).parent
    paths = {"PYTHONPATH": str(package.parent), "LD_LIBRARY_PATH": str(libraries)}
    expect_the_same(sys.executable, package, arrays, tmp_path, env={**os.environ, **paths})


@pytest.mark.skipif(not (BUILD / "CMakeCache.txt").exists(), reason="no build folder (FUSION_BUILD_DIR)")
@pytest.mark.skipif(not shutil.which("cmake"), reason="CMake is not installed")
def test_what_pip_installs(arrays, tmp_path):
    pytest.importorskip("ensurepip", reason="virtual environments (python3-venv) are not installed")
    pytest.importorskip("pip", reason="pip (python3-pip) is not installed")
    run(sys.executable, "-m", "venv", "--system-site-packages", tmp_path / "env")
    python = tmp_path / "env/bin/python"
    # Compiled as this build is, so that a compiler cache has every object.
    cache = (BUILD / "CMakeCache.txt").read_text()
    strict = "ON" if "FUSION_WERROR:BOOL=ON" in cache or "FUSION_WERROR:UNINITIALIZED=ON" in cache else "OFF"
    clean = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    clean.update(CMAKE_ARGS=f"-DFUSION_WERROR={strict}")
    run(python, "-m", "pip", "install", "--no-index", "--no-cache-dir", SOURCE, env=clean)
    (package,) = (tmp_path / "env/lib").rglob("rsfusion")
    expect_the_same(python, package, arrays, tmp_path, env=clean)
    # It is whole: the library is in it, and everything that lies in the tree.
    (extension,) = package.glob("_core.*.so")
    assert "libfusion" not in run("ldd", extension)
    listed = run(python, "-m", "pip", "show", "-f", "rsfusion", env=clean)
    for name in ("__init__.pyi", "py.typed", "_core.pyi", extension.name):
        assert f"rsfusion/{name}" in listed
    run(python, "-m", "pip", "uninstall", "-y", "rsfusion", env=clean)
    assert not package.exists()
