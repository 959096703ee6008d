"""Makes the wheel of rsfusion for pip (PEP 517), with CMake and what Python has.

The wheel holds the library; GDAL and what else the library stands on are the system's. CMAKE_ARGS adds arguments for CMake.
"""
import base64
import hashlib
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import sysconfig
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/wheel"
# Within what zip files can tell, the same for every build.
TIME = (1980, 1, 1, 0, 0, 0)


def version():
    return re.search(r"project\(Fusion VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text()).group(1)


def metadata():
    return f"""Metadata-Version: 2.1
Name: rsfusion
Version: {version()}
Summary: Pan-sharpening of satellite and aerial images
License: Apache-2.0
Requires-Python: >=3.8
Requires-Dist: numpy
Description-Content-Type: text/markdown

{(ROOT / "docs/python.md").read_text()}"""


def build():
    """Builds the package and answers the folder that it is installed in."""
    options = {
        "CMAKE_BUILD_TYPE": "Release",
        "FUSION_BUILD_PYTHON": "ON",
        "FUSION_BUILD_TESTS": "OFF",
        "FUSION_STATIC": "ON",
        "FUSION_PYTHON": sys.executable,
        "FUSION_PYTHON_DESTINATION": ".",
    }
    generator = ["-G", "Ninja"] if shutil.which("ninja") else []
    arguments = [f"-D{name}={value}" for name, value in options.items()] + shlex.split(os.environ.get("CMAKE_ARGS", ""))
    # What an earlier build for another interpreter has found is not this one's.
    (BUILD / "CMakeCache.txt").unlink(missing_ok=True)
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, *generator, *arguments], check=True)
    jobs = ["--parallel", str(os.cpu_count() or 1)]
    subprocess.run(["cmake", "--build", BUILD, "--target", "rsfusion_core", *jobs], check=True)
    stage = BUILD / "stage"
    shutil.rmtree(stage, ignore_errors=True)
    install = ["cmake", "--install", BUILD, "--component", "python", "--strip", "--prefix", stage]
    subprocess.run(install, check=True)
    return stage


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    interpreter = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = re.sub(r"[-.]", "_", sysconfig.get_platform())
    tag = f"{interpreter}-{interpreter}-{platform}"
    stage = build()
    files = {str(file.relative_to(stage)): file.read_bytes() for file in sorted(stage.rglob("*")) if file.is_file()}
    info = f"rsfusion-{version()}.dist-info"
    files[f"{info}/METADATA"] = metadata().encode()
    files[f"{info}/WHEEL"] = f"Wheel-Version: 1.0\nGenerator: rsfusion\nRoot-Is-Purelib: false\nTag: {tag}\n".encode()
    files[f"{info}/LICENSE"] = (ROOT / "LICENSE").read_bytes()
    record = f"{info}/RECORD"
    lines = [f"{name},sha256={digest(data)},{len(data)}\n" for name, data in files.items()]
    files[record] = "".join([*lines, f"{record},,\n"]).encode()
    name = f"rsfusion-{version()}-{tag}.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:
        for path, data in files.items():
            entry = zipfile.ZipInfo(path, TIME)
            entry.external_attr = 0o100644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            wheel.writestr(entry, data)
    return name


def digest(data):
    return base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()


class UnsupportedOperation(Exception):
    """As PEP 517 names it."""


def build_sdist(sdist_directory, config_settings=None):
    raise UnsupportedOperation("the archive of the sources is made by scripts/package")
