"""Hints and help."""
import ast
import inspect
import os
import pathlib
import pydoc
import re
import shutil
import subprocess

import pytest

import rsfusion

PACKAGE = pathlib.Path(rsfusion.__file__).parent
# A program of a user with all hints.
USER = '''
from pathlib import Path

import numpy as np
import rsfusion

report: rsfusion.FuseReport = rsfusion.fuse("a.tif", Path("b.tif"), "c.tif", bands=[1, 2], co={"TILED": "YES"})
width: int = report.width
array = rsfusion.fuse(np.zeros((4, 4)), np.zeros((2, 2, 2)), method="brovey", progress=lambda stage, percent: None)
total: float = array.mean()
for method in rsfusion.methods():
    print(method.name.upper())
try:
    rsfusion.verify("c.tif")
except rsfusion.FusionError as error:
    print(error.type, error.sentence)
'''


def mypy(tmp_path, *arguments):
    if not shutil.which("mypy"):
        pytest.skip("mypy is not installed")
    environment = {**os.environ, "MYPYPATH": str(PACKAGE.parent)}
    command = ["mypy", "--strict", "--cache-dir", str(tmp_path / "cache"), *map(str, arguments)]
    return subprocess.run(command, capture_output=True, text=True, env=environment, cwd=tmp_path)


def test_mypy_accepts_the_package_and_its_users(tmp_path):
    (tmp_path / "user.py").write_text(USER)
    done = mypy(tmp_path, PACKAGE, "user.py")
    assert done.returncode == 0, done.stdout
    # And sees what is wrong.
    (tmp_path / "user.py").write_text(USER.replace("width: int", "width: str") + "rsfusion.fuse(1, 2, 3, metod=4)\n")
    done = mypy(tmp_path, "user.py")
    assert done.returncode == 1 and 'variable has type "str"' in done.stdout and "No overload variant" in done.stdout


def test_the_stub_has_the_arguments_of_the_package():
    told = {}
    for node in ast.parse((PACKAGE / "__init__.pyi").read_text()).body:
        if isinstance(node, ast.FunctionDef):
            arguments = [argument.arg for argument in node.args.args + node.args.kwonlyargs]
            defaults = [ast.literal_eval(default) for default in node.args.kw_defaults]
            told.setdefault(node.name, []).append((arguments, defaults))
    functions = {name for name in rsfusion.__all__ if inspect.isfunction(getattr(rsfusion, name))}
    assert set(told) == functions
    assert len(told["fuse"]) == 3
    for name, variants in told.items():
        parameters = inspect.signature(getattr(rsfusion, name)).parameters.values()
        own = [parameter.default for parameter in parameters if parameter.kind is parameter.KEYWORD_ONLY]
        for arguments, defaults in variants:
            assert arguments == [parameter.name for parameter in parameters]
            assert defaults == own


def test_stub_and_reports_have_the_same_attributes(scene, tmp_path):
    out = tmp_path / "fused.tif"
    pair = (scene / "pan.tif", scene / "ms.tif")
    reports = [
        rsfusion.fuse(*pair, out),
        rsfusion.check(*pair),
        rsfusion.assess(*pair, methods="brovey"),
        rsfusion.report(*pair, out, tmp_path / "page.html"),
        rsfusion.sample(tmp_path / "scene", size=32),
        rsfusion.info(out),
        rsfusion.verify(out),
        rsfusion.methods()[0],
    ]
    told = {}
    for node in ast.parse((PACKAGE / "__init__.pyi").read_text()).body:
        if isinstance(node, ast.ClassDef):
            told[node.name] = {item.target.id for item in node.body if isinstance(item, ast.AnnAssign)}
    # What every report has of a failed command, and tables that are there by name.
    beside = {"error_type", "message", "wald", "full"}
    for report in reports:
        assert set(report) - beside == told[type(report).__name__], type(report).__name__


def test_help_tells_of_every_argument():
    def arguments_told(function):
        return inspect.getdoc(function).split("Args:")[1].split("Returns:")[0]

    for name in rsfusion.__all__:
        thing = getattr(rsfusion, name)
        assert len(inspect.getdoc(thing)) > 15 and name in pydoc.render_doc(thing)
        if not inspect.isfunction(thing) or "Args:" not in inspect.getdoc(thing):
            continue
        told = arguments_told(thing)
        if "that are not told here" in told:
            told += arguments_told(rsfusion.fuse)
        for argument in inspect.signature(thing).parameters:
            assert re.search(rf"\b{argument}\b", told), (name, argument)
    assert max(map(len, inspect.getdoc(rsfusion.fuse).splitlines())) <= 120
    assert "(bands, rows, columns)" in rsfusion.fuse.__doc__
