from qgis.core import QgsProcessingOutputString, QgsProcessingParameterEnum, QgsProcessingParameterFileDestination

from . import inputs, tables
from .algorithm import FusionAlgorithm
from .job import Job
from .options import ASSESS, METHODS
from .parameters import names_of

METHOD_NAMES = [name for name in METHODS if name != "best"]


class AssessAlgorithm(FusionAlgorithm):
    name_ = "assess"
    title = "Assess"
    summary = "Compares the methods on a pair of images, and says which to take."
    help = (
        "<p>Both images are degraded, so that the multispectral one is what a fusion has to give back (wald), or "
        "measured as they are, without a truth (full). Of large scenes some parts are looked at.</p>"
    )
    tags_ = ("quality", "ergas", "sam", "qnr", "compare")
    options = ASSESS

    def initAlgorithm(self, configuration=None):
        inputs.add_pair(self)
        self.addParameter(
            QgsProcessingParameterEnum(
                "METHODS", "Methods (none: all)", METHOD_NAMES, allowMultiple=True, optional=True
            )
        )
        self.add_options()
        self.add_findings()
        self.addParameter(
            QgsProcessingParameterFileDestination(
                "PICTURE", "Picture of every result", "PNG files (*.png)", optional=True, createByDefault=False
            )
        )
        self.addOutput(QgsProcessingOutputString("BEST", "The best method"))

    def processAlgorithm(self, parameters, context, feedback):
        pan, ms, bands = inputs.pair_of(self, parameters, context)
        picture = self.parameterAsFileOutput(parameters, "PICTURE", context)
        options = {
            **self.values(parameters, context),
            **bands,
            "picture": picture,
            "overwrite": bool(picture),
            "methods": names_of(self, METHOD_NAMES, parameters, "METHODS", context),
        }
        outcome = self.run_job(Job("assess", pan, ms, options=options), feedback)
        if outcome is None:
            return {}
        feedback.pushInfo(outcome["advice"])
        results = {
            "BEST": outcome["best"] or "",
            **self.write_findings(parameters, context, outcome, tables.assessment),
        }
        return {**results, "PICTURE": picture} if picture else results
