"""The provider: what algorithms there are, and where the command is."""
import os

from processing.core.ProcessingConfig import ProcessingConfig, Setting
from qgis.core import QgsProcessingProvider
from qgis.PyQt.QtGui import QIcon

from .assess import AssessAlgorithm
from .check import CheckAlgorithm
from .evaluate import EvaluateAlgorithm
from .pan_sharpen import PanSharpenAlgorithm
from .report import ReportAlgorithm
from .sample import SampleAlgorithm
from .settings import COMMAND_SETTING, find_runner

ICON = os.path.join(os.path.dirname(__file__), "icon.svg")
ALGORITHMS = (PanSharpenAlgorithm, CheckAlgorithm, EvaluateAlgorithm, AssessAlgorithm, ReportAlgorithm, SampleAlgorithm)


class FusionProvider(QgsProcessingProvider):
    def id(self):
        return "rsfusion"

    def name(self):
        return "Pan-sharpening (Fusion)"

    def icon(self):
        return QIcon(ICON)

    def svgIconPath(self):
        return ICON

    def load(self):
        ProcessingConfig.settingIcons[self.name()] = self.icon()
        ProcessingConfig.addSetting(
            Setting(
                self.name(),
                COMMAND_SETTING,
                "The command fusion (empty: the module rsfusion, else that of the search path)",
                "",
                valuetype=Setting.FILE,
            )
        )
        ProcessingConfig.readSettings()
        self.refreshAlgorithms()
        return True

    def unload(self):
        ProcessingConfig.removeSetting(COMMAND_SETTING)

    def loadAlgorithms(self):
        for algorithm in ALGORITHMS:
            self.addAlgorithm(algorithm())

    def supportedOutputRasterLayerExtensions(self):
        # The first is the default.
        return ["tif", "tiff", "img", "dat", "jp2", "png", "jpg"]

    def supportsNonFileBasedOutput(self):
        return False

    def warningMessage(self):
        try:
            find_runner()
        except LookupError as missing:
            return str(missing)
        return ""
