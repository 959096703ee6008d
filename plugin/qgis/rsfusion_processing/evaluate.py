from qgis.core import QgsProcessingParameterBand, QgsProcessingParameterEnum, QgsProcessingParameterRasterLayer

from . import inputs, tables
from .algorithm import FusionAlgorithm
from .job import Job
from .options import EVALUATE, METRICS
from .parameters import names_of


class EvaluateAlgorithm(FusionAlgorithm):
    name_ = "evaluate"
    title = "Evaluate"
    summary = "Measures the quality of a pan-sharpened image against both its inputs."
    help = "<p>Entropies, statistics of the bands, signal-to-noise, gradients: one figure for each pair of bands.</p>"
    tags_ = ("quality", "entropy", "psnr", "correlation")
    options = EVALUATE

    def initAlgorithm(self, configuration=None):
        inputs.add_pair(self)
        self.addParameter(
            QgsProcessingParameterRasterLayer("FUSED", "Pan-sharpened image, on the pixels of the panchromatic one")
        )
        self.addParameter(
            QgsProcessingParameterBand(
                "FUSED_BANDS", "Pan-sharpened bands (none: all)", None, "FUSED", optional=True, allowMultiple=True
            )
        )
        self.addParameter(
            QgsProcessingParameterEnum(
                "METRIC", "Metrics (none: all)", list(METRICS), allowMultiple=True, optional=True
            )
        )
        self.add_options()
        self.add_findings()

    def processAlgorithm(self, parameters, context, feedback):
        pan, ms, bands = inputs.pair_of(self, parameters, context)
        fused = inputs.file_of(self.parameterAsRasterLayer(parameters, "FUSED", context))
        options = {
            **self.values(parameters, context),
            **bands,
            "fused-bands": inputs.bands_of(self, parameters, "FUSED_BANDS", context),
            "metric": names_of(self, METRICS, parameters, "METRIC", context),
        }
        outcome = self.run_job(Job("evaluate", pan, ms, [fused], options=options), feedback)
        return {} if outcome is None else self.write_findings(parameters, context, outcome, tables.evaluation)
