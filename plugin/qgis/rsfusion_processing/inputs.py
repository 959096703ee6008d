"""Layers as the files that the library reads."""
import os

from osgeo import gdal
from qgis.core import (
    QgsFeatureSink,
    QgsProcessing,
    QgsProcessingException,
    QgsProcessingParameterBand,
    QgsProcessingParameterExtent,
    QgsProcessingParameterFeatureSource,
    QgsProcessingParameterMultipleLayers,
    QgsProcessingParameterRasterLayer,
    QgsProcessingUtils,
    QgsVectorFileWriter,
)

from .ground import window_of
from .parameters import advanced


def add_pair(algorithm):
    """Pan and multispectral image, and which of their bands."""
    for parameter in (
        QgsProcessingParameterRasterLayer("PAN", "Panchromatic image"),
        QgsProcessingParameterRasterLayer("MS", "Multispectral image"),
        QgsProcessingParameterBand(
            "BANDS", "Multispectral bands (none: all)", None, "MS", optional=True, allowMultiple=True
        ),
        advanced(QgsProcessingParameterBand("PAN_BAND", "Band of the panchromatic image", 1, "PAN", optional=True)),
        advanced(
            QgsProcessingParameterMultipleLayers(
                "MORE_MS",
                "Further bands of the multispectral image, in files of their own",
                QgsProcessing.TypeRaster,
                optional=True,
            )
        ),
    ):
        algorithm.addParameter(parameter)


def pair_of(algorithm, parameters, context):
    """Pan, the multispectral files, and the options that choose bands."""
    pan = algorithm.parameterAsRasterLayer(parameters, "PAN", context)
    ms = algorithm.parameterAsRasterLayer(parameters, "MS", context)
    for layer, name in ((pan, "PAN"), (ms, "MS")):
        if layer is None:
            raise QgsProcessingException(algorithm.invalidRasterError(parameters, name))
    more = algorithm.parameterAsLayerList(parameters, "MORE_MS", context)
    band = algorithm.parameterAsInt(parameters, "PAN_BAND", context)
    options = {"bands": bands_of(algorithm, parameters, "BANDS", context), "pan-band": band if band != 1 else None}
    return file_of(pan), [file_of(layer) for layer in (ms, *more)], options


def bands_of(algorithm, parameters, name, context):
    return algorithm.parameterAsInts(parameters, name, context) if parameters.get(name) else None


def file_of(layer):
    """What GDAL opens a raster layer by."""
    if layer.providerType() != "gdal":
        raise QgsProcessingException(f"{layer.name()} is no file that GDAL reads.")
    source = layer.source()
    # Behind the bar stand QGIS's own options.
    return source if os.path.exists(source) else source.split("|")[0]


def add_ground(algorithm):
    algorithm.addParameter(
        QgsProcessingParameterFeatureSource("AOI", "Area of interest", [QgsProcessing.TypeVectorPolygon], optional=True)
    )
    algorithm.addParameter(QgsProcessingParameterExtent("EXTENT", "Extent", optional=True))


def ground_of(algorithm, parameters, context, feedback):
    """The options that say where to fuse."""
    return {"aoi": _area(algorithm, parameters, context, feedback), "window": _window(algorithm, parameters, context)}


def _window(algorithm, parameters, context):
    if not parameters.get("EXTENT"):
        return None
    pan = algorithm.parameterAsRasterLayer(parameters, "PAN", context)
    extent = algorithm.parameterAsExtent(parameters, "EXTENT", context, pan.crs())
    dataset = gdal.Open(file_of(pan))
    transform = dataset.GetGeoTransform() if dataset else None
    if extent.isNull() or transform is None:
        return None
    try:
        return window_of((extent.xMinimum(), extent.yMinimum(), extent.xMaximum(), extent.yMaximum()), transform)
    except ValueError as refusal:
        raise QgsProcessingException(str(refusal)) from refusal


def _area(algorithm, parameters, context, feedback):
    """The file of the polygons: a layer's own where it has nothing else, else one of those that are meant."""
    if not parameters.get("AOI"):
        return None
    path, layer = algorithm.parameterAsCompatibleSourceLayerPathAndLayerName(
        parameters, "AOI", context, ["gpkg", "shp", "geojson", "json"], "gpkg", feedback
    )
    if path and not layer:
        return path
    return _polygons(algorithm.parameterAsSource(parameters, "AOI", context), context)


def _polygons(source, context):
    path = QgsProcessingUtils.generateTempFilename("aoi.gpkg")
    options = QgsVectorFileWriter.SaveVectorOptions()
    options.driverName = "GPKG"
    writer = QgsVectorFileWriter.create(
        path, source.fields(), source.wkbType(), source.sourceCrs(), context.transformContext(), options
    )
    for feature in source.getFeatures():
        if not writer.addFeature(feature, QgsFeatureSink.FastInsert):
            raise QgsProcessingException(f"The area of interest cannot be handed on: {writer.errorMessage()}")
    # Complete when it is closed.
    del writer
    return path
