#!/usr/bin/python3
"""What the plugin shows in QGIS: dialogs, styles; and how it is packed."""
import os
import sys

# Before all else of QGIS: it ends here where there is none.
from in_qgis import FUSION, PAIR, PLUGIN, Case, ProcessingConfig, gdal, main

import qgis.utils
from qgis.core import (
    QgsProcessingContext,
    QgsProcessingFeedback,
    QgsProcessingOutputLayerDefinition,
    QgsProcessingParameterDefinition,
    QgsProcessingUtils,
    QgsProject,
    QgsRasterLayer,
)

import make_zip
from rsfusion_processing import options
from rsfusion_processing.style import NATURAL_COLOURS, set_natural_colours


class Definitions(Case):
    def algorithms(self):
        return {algorithm.name(): algorithm for algorithm in PLUGIN.provider.algorithms()}

    def test_the_algorithms_are_there_with_help_and_an_icon(self):
        found = self.algorithms()
        self.assertEqual(set(found), {"pansharpen", "check", "evaluate", "assess", "report", "sample"})
        for algorithm in found.values():
            self.assertGreater(len(algorithm.shortHelpString()), 80)
            self.assertFalse(algorithm.icon().isNull())
            self.assertTrue(algorithm.canExecute()[0])
        image = PLUGIN.provider.icon().pixmap(24, 24).toImage()
        self.assertGreater(len({image.pixel(x, y) for x in range(24) for y in range(24)}), 6)

    def test_parameters_have_the_widgets_of_their_kinds(self):
        kinds = {d.name(): d.type() for d in self.algorithms()["pansharpen"].parameterDefinitions()}
        expected = {
            "PAN": "raster", "MS": "raster", "MORE_MS": "multilayer", "BANDS": "band", "PAN_BAND": "band",
            "METHOD": "enum", "AOI": "source", "EXTENT": "extent", "TYPE": "enum", "NODATA": "number",
            "KERNEL_SIZE": "number", "STRETCH": "boolean", "RGB": "string", "CO": "string",
            "OUTPUT": "rasterDestination", "QUICKLOOK": "fileDestination",
        }  # fmt: skip
        self.assertEqual({name: kinds.get(name) for name in expected}, expected)

    def test_what_most_need_is_not_advanced(self):
        for name, plain in {
            "pansharpen": {"PAN", "MS", "BANDS", "METHOD", "AOI", "EXTENT", "OUTPUT"},
            "check": {"PAN", "MS", "BANDS", "HTML", "JSON"},
            "evaluate": {"PAN", "MS", "BANDS", "FUSED", "FUSED_BANDS", "METRIC", "HTML", "JSON"},
            "assess": {"PAN", "MS", "BANDS", "METHODS", "PROTOCOL", "HTML", "JSON", "PICTURE"},
            "report": {"PAN", "MS", "BANDS", "FUSED", "TITLE", "OUTPUT"},
            "sample": {"SIZE", "SEED", "BANDS", "RATIO", "OVERWRITE", "FOLDER"},
        }.items():
            advanced = QgsProcessingParameterDefinition.FlagAdvanced
            found = {d.name() for d in self.algorithms()[name].parameterDefinitions() if not d.flags() & advanced}
            self.assertEqual(found, plain, name)

    def test_methods_are_told_with_what_they_do(self):
        shown = self.algorithms()["pansharpen"].parameterDefinition("METHOD").options()
        self.assertEqual(len(shown), len(options.METHODS))
        self.assertTrue(all(text.startswith(name + " - ") for text, name in zip(shown, options.METHODS)))

    def test_without_a_command_the_algorithms_say_so(self):
        self.addCleanup(ProcessingConfig.setSettingValue, "FUSION_COMMAND", FUSION)
        ProcessingConfig.setSettingValue("FUSION_COMMAND", PAIR["PAN"])
        can, why = self.algorithms()["check"].canExecute()
        self.assertFalse(can)
        self.assertIn(PAIR["PAN"], why)
        self.assertEqual(PLUGIN.provider.warningMessage(), why)


class Style(Case):
    COLOURS = {"blue": gdal.GCI_BlueBand, "green": gdal.GCI_GreenBand, "red": gdal.GCI_RedBand, "": gdal.GCI_Undefined}

    def layer(self, colours, names=None):
        """Band b has the values 1000 b to 1000 b + 9999, each once."""
        path = str(self.folder / "image.tif")
        image = gdal.GetDriverByName("GTiff").Create(path, 100, 100, len(colours), gdal.GDT_UInt16)
        for band, colour in enumerate(colours, 1):
            raster = image.GetRasterBand(band)
            raster.SetColorInterpretation(self.COLOURS[colour])
            if names:
                raster.SetDescription(names[band - 1])
            values = b"".join((1000 * band + n).to_bytes(2, sys.byteorder) for n in range(10000))
            raster.WriteRaster(0, 0, 100, 100, values)
        image = raster = None
        return QgsRasterLayer(path, "image")

    def bands(self, layer):
        set_natural_colours(layer)
        renderer = layer.renderer()
        return [renderer.redBand(), renderer.greenBand(), renderer.blueBand()]

    def test_bands_go_by_their_colours_names_and_order(self):
        self.assertEqual(self.bands(self.layer(["green", "blue", "", "red"])), [4, 1, 2])
        self.assertEqual(self.bands(self.layer([""] * 4, ["nir", "red", "blue", "green"])), [2, 4, 3])
        self.assertEqual(self.bands(self.layer([""] * 4)), [3, 2, 1])
        self.assertEqual(self.bands(self.layer([""] * 3)), [1, 2, 3])

    def test_a_band_alone_is_grey(self):
        layer = self.layer([""])
        set_natural_colours(layer)
        self.assertEqual(layer.renderer().type(), "singlebandgray")
        self.assertLess(abs(layer.renderer().contrastEnhancement().minimumValue() - 1200), 25)

    def test_the_stretch_goes_from_the_2nd_to_the_98th_percentile(self):
        layer = self.layer(["blue", "green", "red"])
        set_natural_colours(layer)
        renderer = layer.renderer()
        for band, stretch in ((3, renderer.redContrastEnhancement()), (1, renderer.blueContrastEnhancement())):
            # The histogram that it is taken from has some thousand bins.
            self.assertLess(abs(stretch.minimumValue() - (1000 * band + 200)), 25)
            self.assertLess(abs(stretch.maximumValue() - (1000 * band + 9800)), 25)

    def test_a_result_that_is_loaded_gets_it(self):
        context = QgsProcessingContext()
        context.setProject(QgsProject.instance())
        out = str(self.folder / "out.tif")
        definition = QgsProcessingOutputLayerDefinition(out, QgsProject.instance())
        algorithm = PLUGIN.provider.algorithm("pansharpen").create()
        parameters = {**PAIR, "METHOD": "pca", "OUTPUT": definition}
        results, fine = algorithm.run(parameters, context, QgsProcessingFeedback(False))
        self.assertTrue(fine)
        details = context.layerToLoadOnCompletionDetails(results["OUTPUT"])
        self.assertIs(details.postProcessor(), NATURAL_COLOURS)
        layer = QgsProcessingUtils.mapLayerFromString(results["OUTPUT"], context)
        details.postProcessor().postProcessLayer(layer, context, QgsProcessingFeedback(False))
        self.assertEqual([layer.renderer().redBand(), layer.renderer().blueBand()], [3, 1])


class Package(Case):
    def test_the_archive_is_a_plugin_by_qgis_own_look(self):
        from pyplugin_installer import installer_data, unzip

        archive = self.folder / "plugin.zip"
        make_zip.make(archive)
        unzip.unzip(str(archive), str(self.folder))
        name = "rsfusion_processing"
        found = installer_data.plugins.getInstalledPlugin(name, str(self.folder / name), False)
        self.assertEqual(found["error"], "")
        qgis.utils.plugin_paths.insert(0, str(self.folder))
        qgis.utils.updateAvailablePlugins()
        self.assertEqual(qgis.utils.pluginMetadata(name, "hasProcessingProvider"), "yes")
        self.assertTrue(os.path.exists(found["icon"]))
        for field in ("name", "description", "about", "author_name", "author_email", "version_installed", "tags"):
            self.assertTrue(found[field], field)


if __name__ == "__main__":
    main()
