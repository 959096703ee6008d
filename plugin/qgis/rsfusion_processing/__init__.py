"""Pan-sharpening for the Processing toolbox of QGIS."""


def classFactory(iface):
    # Not before QGIS asks: what needs no QGIS is tested without it.
    from .plugin import FusionPlugin

    return FusionPlugin()
