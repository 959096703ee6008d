from qgis.core import (
    QgsProcessingOutputString,
    QgsProcessingParameterFileDestination,
    QgsProcessingParameterRasterDestination,
    QgsProcessingParameterString,
)

from . import inputs
from .algorithm import FusionAlgorithm
from .job import Job
from .options import FUSE
from .parameters import advanced
from .style import NATURAL_COLOURS

# GDAL's algorithms choose creation options by this widget, which gives them with bars between them.
CREATION_OPTIONS = {
    "widget_wrapper": {"class": "processing.algs.gdal.ui.RasterOptionsWidget.RasterOptionsWidgetWrapper"}
}


class PanSharpenAlgorithm(FusionAlgorithm):
    name_ = "pansharpen"
    title = "Pan-sharpen"
    summary = "Fuses a panchromatic and a coarser multispectral image into one with the detail of the first."
    help = (
        "<p>The result has the grid of the panchromatic image, over the ground that both images cover; an area of "
        "interest or an extent makes it smaller. Images in different coordinate systems are reprojected on the way.</p>"
        "<p>Most scenes need nothing but the images. 'Check' looks at them beforehand, 'Assess' finds the method that "
        "suits them. An option without effect on the method is refused.</p>"
    )
    tags_ = ("sharpen", "resolution", "brovey", "ihs", "pca", "hpf", "bayesian")
    options = FUSE

    def initAlgorithm(self, configuration=None):
        inputs.add_pair(self)
        inputs.add_ground(self)
        self.add_options()
        creation = QgsProcessingParameterString("CO", "Creation options", "", optional=True)
        creation.setMetadata(CREATION_OPTIONS)
        self.addParameter(advanced(creation))
        self.addParameter(QgsProcessingParameterRasterDestination("OUTPUT", "Pan-sharpened image"))
        self.addParameter(
            advanced(
                QgsProcessingParameterFileDestination(
                    "QUICKLOOK",
                    "Picture of the inputs and the result",
                    "PNG files (*.png)",
                    optional=True,
                    createByDefault=False,
                )
            )
        )
        self.addOutput(QgsProcessingOutputString("METHOD_TAKEN", "Method"))

    def processAlgorithm(self, parameters, context, feedback):
        pan, ms, bands = inputs.pair_of(self, parameters, context)
        out = self.parameterAsOutputLayer(parameters, "OUTPUT", context)
        quicklook = self.parameterAsFileOutput(parameters, "QUICKLOOK", context)
        creation = self.parameterAsString(parameters, "CO", context)
        options = {
            **self.values(parameters, context),
            **bands,
            **inputs.ground_of(self, parameters, context, feedback),
            "co": tuple(part for part in creation.split("|") if part),
            "quicklook": quicklook,
            # That a file is replaced has been asked for in the dialog.
            "overwrite": True,
        }
        outcome = self.run_job(Job("fuse", pan, ms, out=out, options=options), feedback)
        if outcome is None:
            return {}
        if context.willLoadLayerOnCompletion(out):
            context.layerToLoadOnCompletionDetails(out).setPostProcessor(NATURAL_COLOURS)
        results = {"OUTPUT": out, "METHOD_TAKEN": outcome["method"]}
        return {**results, "QUICKLOOK": quicklook} if quicklook else results
