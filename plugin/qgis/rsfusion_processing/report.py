from qgis.core import QgsProcessing, QgsProcessingParameterFileDestination, QgsProcessingParameterMultipleLayers

from . import inputs
from .algorithm import FusionAlgorithm
from .job import Job
from .options import REPORT


class ReportAlgorithm(FusionAlgorithm):
    name_ = "report"
    title = "Report"
    summary = "Writes a page about pan-sharpened images and their inputs: pictures to compare, histograms, figures."
    help = (
        "<p>One file of HTML for a browser, which needs nothing beside it. The viewer of Processing may show less of "
        "it than a browser does.</p>"
    )
    tags_ = ("quality", "html", "compare")
    options = REPORT

    def initAlgorithm(self, configuration=None):
        inputs.add_pair(self)
        self.addParameter(
            QgsProcessingParameterMultipleLayers(
                "FUSED", "Pan-sharpened images, on the pixels of the panchromatic one", QgsProcessing.TypeRaster
            )
        )
        self.add_options()
        self.addParameter(QgsProcessingParameterFileDestination("OUTPUT", "Page", "HTML files (*.html)"))

    def processAlgorithm(self, parameters, context, feedback):
        pan, ms, bands = inputs.pair_of(self, parameters, context)
        fused = [inputs.file_of(layer) for layer in self.parameterAsLayerList(parameters, "FUSED", context)]
        out = self.parameterAsFileOutput(parameters, "OUTPUT", context)
        options = {**self.values(parameters, context), **bands, "overwrite": True}
        outcome = self.run_job(Job("report", pan, ms, fused, out, options), feedback)
        return {} if outcome is None else {"OUTPUT": out}
