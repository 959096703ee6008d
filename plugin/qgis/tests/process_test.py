#!/usr/bin/python3
"""The plugin as it is packed, run by qgis_process. The environment's FUSION_COMMAND is the command.

Ends with 77, which counts as skipped, where QGIS is not installed."""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import make_zip  # noqa: E402

FUSION = shutil.which(os.environ["FUSION_COMMAND"])
# Debian's wrapper of 3.22 hands on an argument that the program does not know.
QGIS = shutil.which("qgis_process.bin") or shutil.which("qgis_process")


class QgisProcess(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.folder = pathlib.Path(temporary.name)
        make_zip.make(cls.folder / "plugin.zip")
        with zipfile.ZipFile(cls.folder / "plugin.zip") as archive:
            archive.extractall(cls.folder / "plugins")
        (cls.folder / "bin").mkdir()
        (cls.folder / "bin/fusion").symlink_to(FUSION)
        cls.environment = dict(
            os.environ,
            QT_QPA_PLATFORM="offscreen",
            QGIS_PLUGINPATH=str(cls.folder / "plugins"),
            QGIS_CUSTOM_CONFIG_PATH=str(cls.folder / "profile"),
            XDG_RUNTIME_DIR=temporary.name,
            # QGIS takes the Python of the first python3 there for its own, which has to be the system's.
            PATH=f"{cls.folder / 'bin'}:/usr/bin:/bin",
            PYTHONDONTWRITEBYTECODE="1",
            SOURCE_DATE_EPOCH="1700000000",
        )
        # It is the command that is tried here.
        cls.environment.pop("PYTHONPATH", None)
        cls.call([QGIS, "plugins", "enable", "rsfusion_processing"])
        cls.call([FUSION, "sample", "scene", "--size", "256"])

    @classmethod
    def call(cls, words, status=0):
        run = subprocess.run(
            [str(word) for word in words],
            cwd=cls.folder,
            env=cls.environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
        )
        assert run.returncode == status, run.stdout
        return run.stdout

    def test_the_algorithms_are_listed(self):
        listed = self.call([QGIS, "list"])
        for name in ("pansharpen", "check", "evaluate", "assess", "report", "sample"):
            self.assertIn(f"rsfusion:{name}\t", listed)

    def test_the_result_is_that_of_the_command(self):
        files = {"PAN": "scene/pan.tif", "MS": "scene/ms.tif", "OUTPUT": "qgis.tif"}
        said = self.call([QGIS, "run", "rsfusion:pansharpen", *(f"--{name}={file}" for name, file in files.items())])
        self.assertIn("METHOD_TAKEN:\tbayesian", said)
        self.call([FUSION, "fuse", files["PAN"], files["MS"], "command.tif"])
        made, expected = (self.folder / name for name in ("qgis.tif", "command.tif"))
        self.assertTrue(made.read_bytes() == expected.read_bytes())

    def test_a_failure_is_one_with_the_commands_sentence(self):
        parameters = (
            "--PAN=scene/pan.tif --MS=scene/ms.tif --METHOD=pca --STRETCH=true --TYPE=float32 --OUTPUT=none.tif"
        )
        said = self.call([QGIS, "run", "rsfusion:pansharpen", *parameters.split()], status=1)
        words = ["--method=pca", "--stretch", "--type=float32"]
        told = self.call([FUSION, "fuse", "scene/pan.tif", "scene/ms.tif", "none.tif", *words], status=2)
        self.assertIn(told.removeprefix("fusion: ").strip(), said)
        self.assertFalse((self.folder / "none.tif").exists())


if __name__ == "__main__":
    if not QGIS:
        print("There is no qgis_process: the plugin is not tried by it")
        sys.exit(77)
    unittest.main()
