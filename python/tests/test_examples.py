"""The examples run, and the notebook's output is what it gives."""
import base64
import io
import json
import pathlib
import subprocess
import sys

import numpy as np
import pytest
from conftest import SOURCE

import rsfusion

EXAMPLES = SOURCE / "examples/python"


def test_the_script_runs(tmp_path):
    command = [sys.executable, "-B", str(EXAMPLES / "main.py"), str(tmp_path / "scene")]
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert lines[0].endswith("(4, 512, 512) uint16")
    assert [line.split(":")[0] for line in lines[1:]] == ["band 1", "band 2", "band 3", "band 4"]
    assert all(float(line.split()[3]) > 0.5 for line in lines[1:])
    assert (tmp_path / "scene/fused.tif").exists()


def outputs(notebook):
    """What its cells print and show, and its pictures."""
    texts, pictures = [], []
    for cell in notebook["cells"]:
        for output in cell.get("outputs", []):
            assert output["output_type"] in ("stream", "execute_result", "display_data"), output
            if "image/png" in output.get("data", {}):
                pictures.append(base64.b64decode(output["data"]["image/png"]))
                continue
            text = output["text"] if "text" in output else output["data"]["text/plain"]
            texts.append("".join(text))
    return texts, pictures


def test_the_notebook_gives_what_it_shows(monkeypatch, tmp_path):
    for module in ("nbformat", "nbconvert", "ipykernel", "rioxarray", "matplotlib"):
        pytest.importorskip(module)
    import matplotlib.image
    import nbformat
    from nbconvert.preprocessors import ExecutePreprocessor

    committed = json.loads((EXAMPLES / "fusion.ipynb").read_text())
    notebook = nbformat.read(EXAMPLES / "fusion.ipynb", as_version=4)
    for cell in notebook.cells:
        cell.outputs = []
    monkeypatch.setenv("PYTHONPATH", str(pathlib.Path(rsfusion.__file__).parents[1]))
    monkeypatch.setenv("PYTHONDONTWRITEBYTECODE", "1")
    monkeypatch.setenv("IPYTHONDIR", str(tmp_path))
    monkeypatch.setenv("MPLCONFIGDIR", str(tmp_path))
    ExecutePreprocessor(timeout=300, kernel_name="python3").preprocess(notebook, {"metadata": {"path": str(tmp_path)}})
    texts, pictures = outputs(committed)
    new_texts, new_pictures = outputs(notebook)
    assert len(texts) > 4 and new_texts == texts
    assert len(pictures) == len(new_pictures) == 1
    old, new = (matplotlib.image.imread(io.BytesIO(picture))[..., :3] for picture in (pictures[0], new_pictures[0]))
    # Letters may be drawn in another way by other versions.
    assert old.shape == new.shape and np.abs(old - new).mean() < 0.01
    # It shows something: colours, and no single one.
    assert old.std() > 0.1 and np.abs(old[..., 0] - old[..., 2]).mean() > 0.02
