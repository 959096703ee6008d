from qgis.core import QgsProcessingOutputBoolean, QgsProcessingOutputNumber

from . import inputs, tables
from .algorithm import FusionAlgorithm
from .job import Job
from .options import CHECK


class CheckAlgorithm(FusionAlgorithm):
    name_ = "check"
    title = "Check"
    summary = "Looks at a pair of images before they are fused, and warns of what would spoil the result."
    help = (
        "<p>Do both show the same ground, do they lie on each other, are their values whole, does the panchromatic "
        "image see what the bands show? Warnings say what is wrong and what to do about it.</p>"
    )
    tags_ = ("shift", "registration", "overlap")
    options = CHECK

    def initAlgorithm(self, configuration=None):
        inputs.add_pair(self)
        self.add_options()
        self.add_findings()
        self.addOutput(QgsProcessingOutputBoolean("FINE", "Nothing stands against fusing them"))
        self.addOutput(QgsProcessingOutputNumber("WARNINGS", "Number of warnings"))

    def processAlgorithm(self, parameters, context, feedback):
        pan, ms, bands = inputs.pair_of(self, parameters, context)
        job = Job("check", pan, ms, options={**self.values(parameters, context), **bands})
        outcome = self.run_job(job, feedback)
        if outcome is None:
            return {}
        for warning in outcome["warnings"]:
            feedback.pushWarning(f"{warning['text']} {warning['advice']}")
        if outcome["fine"]:
            feedback.pushInfo("Nothing stands against fusing them.")
        return {
            "FINE": outcome["fine"],
            "WARNINGS": len(outcome["warnings"]),
            **self.write_findings(parameters, context, outcome, tables.check),
        }
