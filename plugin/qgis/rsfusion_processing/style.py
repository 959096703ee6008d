"""How results are shown: natural colours, from the 2nd to the 98th percentile."""
from qgis.core import (
    QgsContrastEnhancement,
    QgsMultiBandColorRenderer,
    QgsProcessingLayerPostProcessorInterface,
    QgsRaster,
    QgsRasterLayer,
    QgsRasterMinMaxOrigin,
    QgsSingleBandGrayRenderer,
)

from .colours import natural_bands

LOW, HIGH = 0.02, 0.98


def bands_of(layer):
    """The layer's bands, from 1, for red, green and blue, or one of grey."""
    provider = layer.dataProvider()
    known = {QgsRaster.RedBand: "red", QgsRaster.GreenBand: "green", QgsRaster.BlueBand: "blue"}
    bands = range(1, layer.bandCount() + 1)
    colours = [known.get(provider.colorInterpretation(band), "") for band in bands]
    return [band + 1 for band in natural_bands(colours, [layer.bandName(band) for band in bands])]


def set_natural_colours(layer):
    provider, bands = layer.dataProvider(), bands_of(layer)
    if len(bands) == 1:
        renderer = QgsSingleBandGrayRenderer(provider, bands[0])
    else:
        renderer = QgsMultiBandColorRenderer(provider, *bands)
    origin = QgsRasterMinMaxOrigin()
    origin.setLimits(QgsRasterMinMaxOrigin.CumulativeCut)
    origin.setCumulativeCutLower(LOW)
    origin.setCumulativeCutUpper(HIGH)
    renderer.setMinMaxOrigin(origin)
    layer.setRenderer(renderer)
    layer.setContrastEnhancement(QgsContrastEnhancement.StretchToMinimumMaximum, QgsRasterMinMaxOrigin.CumulativeCut)
    layer.triggerRepaint()


class NaturalColours(QgsProcessingLayerPostProcessorInterface):
    def postProcessLayer(self, layer, context, feedback):
        if isinstance(layer, QgsRasterLayer) and layer.isValid():
            set_natural_colours(layer)


# The context keeps no owner of it.
NATURAL_COLOURS = NaturalColours()
