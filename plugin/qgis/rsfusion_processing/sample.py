import os

from qgis.core import QgsProcessingContext, QgsProcessingOutputRasterLayer, QgsProcessingParameterFolderDestination

from .algorithm import FusionAlgorithm
from .job import Job
from .options import SAMPLE

FILES = {
    "PAN": ("pan.tif", "Panchromatic image"),
    "MS": ("ms.tif", "Multispectral image"),
    "TRUTH": ("truth.tif", "What a perfect fusion would give"),
}


class SampleAlgorithm(FusionAlgorithm):
    name_ = "sample"
    title = "Make a sample scene"
    summary = "Writes a made-up scene to try things with: fields, woods, a river, roads, houses."
    help = (
        "<p>A panchromatic and a multispectral image as sensors make them, blurred and with noise, and the truth that "
        "they were made from.</p>"
    )
    tags_ = ("test", "example")
    options = SAMPLE

    def initAlgorithm(self, configuration=None):
        self.add_options()
        self.addParameter(QgsProcessingParameterFolderDestination("FOLDER", "Folder of the scene"))
        for name, (_, title) in FILES.items():
            self.addOutput(QgsProcessingOutputRasterLayer(name, title))

    def notice_of(self, feedback):
        return feedback.pushInfo

    def processAlgorithm(self, parameters, context, feedback):
        folder = self.parameterAsString(parameters, "FOLDER", context)
        if self.run_job(Job("sample", out=folder, options=self.values(parameters, context)), feedback) is None:
            return {}
        results = {"FOLDER": folder}
        for name, (file, title) in FILES.items():
            results[name] = os.path.join(folder, file)
            if context.project():
                context.addLayerToLoadOnCompletion(
                    results[name], QgsProcessingContext.LayerDetails(title, context.project(), name)
                )
        return results
