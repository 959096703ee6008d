"""QGIS without its windows, with the plugin. The environment's FUSION_COMMAND is the command.

Ends with 77, which counts as skipped, where QGIS's Python modules are not installed."""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT), str(ROOT / "tests"), "/usr/share/qgis/python/plugins", "/usr/share/qgis/python"]
WORK = tempfile.TemporaryDirectory()
# Nothing of the user's, no screen, one time in all outputs.
os.environ.update(
    QT_QPA_PLATFORM="offscreen",
    QGIS_CUSTOM_CONFIG_PATH=WORK.name + "/profile",
    XDG_RUNTIME_DIR=WORK.name,
    SOURCE_DATE_EPOCH="1700000000",
)
try:
    import processing
    from osgeo import gdal
    from processing.core.Processing import Processing
    from processing.core.ProcessingConfig import ProcessingConfig
    from qgis.core import QgsApplication, QgsProcessingFeedback, QgsProject
except ImportError as missing:
    print(f"{missing}: the plugin is not tried in QGIS")
    sys.exit(77)

from rsfusion_processing.plugin import FusionPlugin  # noqa: E402

gdal.UseExceptions()
FUSION = shutil.which(os.environ["FUSION_COMMAND"])
SCENE = pathlib.Path(WORK.name) / "scene"
PAIR = {"PAN": str(SCENE / "pan.tif"), "MS": str(SCENE / "ms.tif")}


def fusion(*words, status=0):
    run = subprocess.run([FUSION, *map(str, words)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8")
    assert run.returncode == status, run.stderr
    return run.stdout if status == 0 else run.stderr


QgsApplication.setPrefixPath("/usr", True)
APPLICATION = QgsApplication([], False)
APPLICATION.initQgis()
Processing.initialize()
PLUGIN = FusionPlugin()
PLUGIN.initProcessing()
ProcessingConfig.setSettingValue("FUSION_COMMAND", FUSION)
fusion("sample", SCENE, "--size", "256")


def main():
    tests = unittest.main(exit=False)
    PLUGIN.unload()
    QgsProject.instance().clear()
    APPLICATION.exitQgis()
    WORK.cleanup()
    sys.exit(not tests.result.wasSuccessful())


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=WORK.name))

    def run_algorithm(self, name, parameters, feedback=None, context=None):
        feedback = feedback or QgsProcessingFeedback(False)
        return processing.run("rsfusion:" + name, parameters, feedback=feedback, context=context)

    def assert_same_bytes(self, a, b):
        self.assertTrue(pathlib.Path(a).read_bytes() == pathlib.Path(b).read_bytes(), f"{a} is not {b}")

    def assert_same_pixels(self, a, b):
        first, second = gdal.Open(str(a)), gdal.Open(str(b))
        self.assertEqual(first.GetGeoTransform(), second.GetGeoTransform())
        self.assertTrue((first.ReadAsArray() == second.ReadAsArray()).all())
