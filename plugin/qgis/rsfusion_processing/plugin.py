"""What QGIS loads."""
from qgis.core import QgsApplication

from .provider import FusionProvider


class FusionPlugin:
    def __init__(self):
        self.provider = None

    def initProcessing(self):
        self.provider = FusionProvider()
        QgsApplication.processingRegistry().addProvider(self.provider)

    def initGui(self):
        self.initProcessing()

    def unload(self):
        if self.provider:
            QgsApplication.processingRegistry().removeProvider(self.provider)
            self.provider = None
