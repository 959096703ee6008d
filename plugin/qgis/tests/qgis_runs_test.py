#!/usr/bin/python3
"""What the plugin's algorithms do in QGIS."""
import importlib.util
import json
import os
import pathlib
import unittest

from in_qgis import FUSION, PAIR, PLUGIN, SCENE, Case, ProcessingConfig, fusion, gdal, main, processing
from osgeo import osr
from qgis.core import (
    QgsFeature,
    QgsGeometry,
    QgsPointXY,
    QgsProcessingContext,
    QgsProcessingException,
    QgsProcessingFeatureSourceDefinition,
    QgsProcessingFeedback,
    QgsProject,
    QgsVectorLayer,
)

from rsfusion_processing import options


class Feedback(QgsProcessingFeedback):
    def __init__(self, log):
        super().__init__(log)
        self.warnings, self.infos, self.commands = [], [], []

    def pushWarning(self, text):
        self.warnings.append(text)

    def setProgressText(self, text):
        self.infos.append(text)

    def pushCommandInfo(self, text):
        self.commands.append(text)


class PanSharpen(Case):
    def test_the_result_is_that_of_the_command(self):
        for number, method in enumerate(options.METHODS):
            out, expected = self.folder / f"{method}.tif", self.folder / "expected.tif"
            results = self.run_algorithm("pansharpen", {**PAIR, "METHOD": number, "OUTPUT": str(out)})
            self.assertEqual(results["OUTPUT"], str(out))
            fusion("fuse", *PAIR.values(), expected, "--method", method, "--overwrite", "--quiet")
            self.assert_same_bytes(out, expected)
            if method != "best":
                self.assertEqual(results["METHOD_TAKEN"], method)

    @unittest.skipUnless(importlib.util.find_spec("rsfusion"), "there is no module rsfusion")
    def test_the_result_of_the_module_is_that_of_the_command(self):
        self.addCleanup(ProcessingConfig.setSettingValue, "FUSION_COMMAND", FUSION)
        ProcessingConfig.setSettingValue("FUSION_COMMAND", "")
        out, expected = self.folder / "out.tif", self.folder / "expected.tif"
        said = Feedback(False)
        self.run_algorithm("pansharpen", {**PAIR, "METHOD": "hpf", "OUTPUT": str(out)}, said)
        self.assertTrue(said.commands[0].startswith("rsfusion.fuse("), said.commands)
        fusion("fuse", *PAIR.values(), expected, "--method", "hpf", "--quiet")
        self.assert_same_bytes(out, expected)

    def test_options_reach_the_command(self):
        out, expected = self.folder / "out.tif", self.folder / "expected.tif"
        self.run_algorithm("pansharpen", {
            **PAIR, "METHOD": "hpf", "BANDS": [3, 1], "KERNEL_SIZE": 7, "DETAIL_WEIGHT": 0.25, "EDGES": 1,
            "NODATA": 0, "NO_OVERVIEWS": True, "CO": "COMPRESS=DEFLATE|TILED=YES", "THREADS": 1, "OUTPUT": str(out),
        })  # fmt: skip
        words = "--method hpf --bands 3,1 --kernel-size 7 --detail-weight 0.25 --edges off --nodata 0 --no-overviews"
        fusion("fuse", *PAIR.values(), expected, *words.split(), "--co", "COMPRESS=DEFLATE", "--co", "TILED=YES")
        self.assert_same_bytes(out, expected)
        self.assertEqual(gdal.Open(str(out)).RasterCount, 2)

    def test_bands_may_lie_in_files_of_their_own(self):
        files = []
        for band in (3, 2, 1):
            files.append(str(self.folder / f"band{band}.tif"))
            gdal.Translate(files[-1], PAIR["MS"], bandList=[band])
        out, expected = self.folder / "out.tif", self.folder / "expected.tif"
        self.run_algorithm("pansharpen", {"PAN": PAIR["PAN"], "MS": files[0], "MORE_MS": files[1:], "OUTPUT": str(out)})
        fusion("fuse", PAIR["PAN"], *files, expected, "--quiet")
        self.assert_same_bytes(out, expected)

    def test_an_extent_is_a_window_of_pan(self):
        # Pan begins at (440000, 4475000) and has pixels of 0.5.
        out, expected = self.folder / "out.tif", self.folder / "expected.tif"
        extent = "440010,440050,4474900,4474950 [EPSG:32630]"
        self.run_algorithm("pansharpen", {**PAIR, "METHOD": "pca", "EXTENT": extent, "OUTPUT": str(out)})
        fusion("fuse", *PAIR.values(), expected, "--method", "pca", "--window", "20,100,80,100", "--quiet")
        self.assert_same_bytes(out, expected)

    def test_an_extent_may_have_another_system(self):
        utm, world = osr.SpatialReference(), osr.SpatialReference()
        utm.ImportFromEPSG(32630)
        world.ImportFromEPSG(4326)
        world.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)
        carried = osr.CoordinateTransformation(utm, world)
        corners = [carried.TransformPoint(x, y)[:2] for x in (440010.0, 440050.0) for y in (4474900.0, 4474950.0)]
        x, y = zip(*corners)
        out = self.folder / "out.tif"
        self.run_algorithm("pansharpen", {
            **PAIR, "METHOD": "pca", "EXTENT": f"{min(x)},{max(x)},{min(y)},{max(y)} [EPSG:4326]", "OUTPUT": str(out),
        })  # fmt: skip
        made = gdal.Open(str(out))
        left, _, _, top, _, _ = made.GetGeoTransform()
        # The rectangle around a turned one: all of it, and little more.
        for begin, end, size in ((left - 440000.0, 50.0, made.RasterXSize), (4475000.0 - top, 100.0, made.RasterYSize)):
            self.assertLessEqual(begin, end - 40.0)
            self.assertGreaterEqual(begin + size * 0.5, end)
            self.assertLess(size * 0.5, 56.0)

    TRIANGLES = [
        [[440010.0, 4474980.0], [440080.0, 4474975.0], [440040.0, 4474920.0], [440010.0, 4474980.0]],
        [[440090.0, 4474900.0], [440120.0, 4474900.0], [440120.0, 4474880.0], [440090.0, 4474900.0]],
    ]

    def area(self):
        """Both triangles, in memory."""
        layer = QgsVectorLayer("Polygon?crs=EPSG:32630&field=name:string", "areas", "memory")
        for ring in self.TRIANGLES:
            feature = QgsFeature(layer.fields())
            feature.setGeometry(QgsGeometry.fromPolygonXY([[QgsPointXY(*corner) for corner in ring]]))
            layer.dataProvider().addFeature(feature)
        return layer

    def file_of(self, name, ring):
        """One triangle, by hand."""
        file = self.folder / name
        file.write_text(json.dumps({
            "type": "FeatureCollection", "crs": {"type": "name", "properties": {"name": "EPSG:32630"}},
            "features": [{"type": "Feature", "properties": {}, "geometry": {"type": "Polygon", "coordinates": [ring]}}],
        }))  # fmt: skip
        return str(file)

    def assert_inside_the_first(self, area):
        out, expected = self.folder / "out.tif", self.folder / "expected.tif"
        self.run_algorithm("pansharpen", {**PAIR, "METHOD": "brovey", "AOI": area, "OUTPUT": str(out)})
        first = self.file_of("first.geojson", self.TRIANGLES[0])
        fusion("fuse", *PAIR.values(), expected, "--method", "brovey", "--aoi", first, "--quiet")
        self.assert_same_pixels(out, expected)
        made = gdal.Open(str(out))
        self.assertEqual(made.GetRasterBand(1).GetNoDataValue(), 0)

    def test_an_area_of_interest_may_be_a_layer_in_memory_and_a_selection(self):
        layer = self.area()
        layer.selectByIds([next(layer.getFeatures()).id()])
        QgsProject.instance().addMapLayer(layer)
        self.assert_inside_the_first(QgsProcessingFeatureSourceDefinition(layer.id(), selectedFeaturesOnly=True))

    def test_an_area_of_interest_may_be_one_of_several_layers_in_a_file(self):
        package = str(self.folder / "areas.gpkg")
        for mode, name, ring in ((None, "other", self.TRIANGLES[1]), ("update", "meant", self.TRIANGLES[0])):
            gdal.VectorTranslate(package, self.file_of(f"{name}.geojson", ring), layerName=name, accessMode=mode)
        self.assert_inside_the_first(package + "|layername=meant")

    def test_an_area_of_interest_in_a_file_goes_by_its_name(self):
        layer = self.area()
        area = str(self.folder / "area.geojson")
        processing.run("native:savefeatures", {"INPUT": layer, "OUTPUT": area})
        out = self.folder / "out.tif"
        self.run_algorithm("pansharpen", {**PAIR, "METHOD": "brovey", "AOI": area, "OUTPUT": str(out)})
        self.assertIn(area, fusion("info", out))

    def test_a_failure_has_the_commands_own_sentence(self):
        words = "--method pca --kernel-size 5".split()
        told = fusion("fuse", *PAIR.values(), self.folder / "x.tif", *words, status=2)
        with self.assertRaises(QgsProcessingException) as failure:
            self.run_algorithm(
                "pansharpen", {**PAIR, "METHOD": "pca", "KERNEL_SIZE": 5, "OUTPUT": str(self.folder / "x.tif")}
            )
        self.assertEqual(f"fusion: {failure.exception}\n", told)
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_notices_are_warnings(self):
        feedback = Feedback(False)
        self.run_algorithm("pansharpen", {**PAIR, "METHOD": "hpf", "OUTPUT": str(self.folder / "x.tif")}, feedback)
        told = json.loads(fusion("fuse", *PAIR.values(), self.folder / "y.tif", "--method", "hpf", "--json"))
        self.assertEqual(feedback.warnings, told["notices"])
        self.assertGreater(len(told["notices"]), 0)
        self.assertEqual(feedback.infos[-2:], ["Filtering", "Hpf"])

    def test_a_cancelled_run_leaves_nothing(self):
        fusion("sample", self.folder / "large", "--size", "3000")
        pan, ms = (str(self.folder / "large" / name) for name in ("pan.tif", "ms.tif"))
        out = self.folder / "out" / "fused.tif"
        out.parent.mkdir()
        feedback = QgsProcessingFeedback(False)
        reached = []

        def cancel(percent):
            reached.append(percent)
            if percent >= 10:
                feedback.cancel()

        feedback.progressChanged.connect(cancel)
        algorithm = PLUGIN.provider.algorithm("pansharpen").create()
        results, _ = algorithm.run(
            {"PAN": pan, "MS": ms, "THREADS": 1, "OUTPUT": str(out)}, QgsProcessingContext(), feedback
        )
        self.assertEqual(results, {})
        self.assertEqual(list(out.parent.iterdir()), [])
        self.assertLess(max(reached), 100)


class Others(Case):
    def told(self, *words):
        told = json.loads(fusion(*words, "--json", "--quiet"))
        told.pop("seconds", None)
        return told

    def read(self, path):
        found = json.loads(pathlib.Path(path).read_text(encoding="utf-8"))
        found.pop("seconds", None)
        return found

    def outputs(self):
        return {"HTML": str(self.folder / "a.html"), "JSON": str(self.folder / "a.json")}

    def test_check(self):
        results = self.run_algorithm("check", {**PAIR, **self.outputs()})
        self.assertEqual(self.read(results["JSON"]), self.told("check", *PAIR.values()))
        self.assertEqual((results["FINE"], results["WARNINGS"]), (True, 0))
        self.assertIn("Nothing stands against", pathlib.Path(results["HTML"]).read_text())

    def test_check_tells_what_stands_against_a_pair(self):
        swapped = {"PAN": PAIR["MS"], "MS": PAIR["PAN"]}
        results = self.run_algorithm("check", {**swapped, **self.outputs()})
        self.assertFalse(results["FINE"])
        names = [warning["name"] for warning in self.read(results["JSON"])["warnings"]]
        self.assertIn("order", names)
        self.assertEqual(results["WARNINGS"], len(names))

    def test_evaluate(self):
        fused = self.folder / "fused.tif"
        fusion("fuse", *PAIR.values(), fused, "--bands", "2,3", "--quiet")
        both = {"FUSED": str(fused), "BANDS": [2, 3], "FUSED_BANDS": [1, 2], **self.outputs()}
        results = self.run_algorithm("evaluate", {**PAIR, **both})
        words = ["evaluate", *PAIR.values(), fused, "--bands", "2,3", "--fused-bands", "1,2"]
        self.assertEqual(self.read(results["JSON"]), self.told(*words))
        results = self.run_algorithm("evaluate", {**PAIR, **both, "METRIC": [1, 2]})
        self.assertEqual(list(self.read(results["JSON"])), ["statistics", "snr"])

    def test_assess(self):
        picture = self.folder / "a.png"
        results = self.run_algorithm("assess", {
            **PAIR, "METHODS": [1, 5], "PROTOCOL": "wald", "PICTURE": str(picture), **self.outputs(),
        })  # fmt: skip
        told = self.told("assess", *PAIR.values(), "--methods", "brovey,pca", "--protocol", "wald")
        self.assertEqual(self.read(results["JSON"]), told)
        self.assertEqual(results["BEST"], told["best"])
        self.assertTrue(picture.read_bytes().startswith(b"\x89PNG"))

    def test_report(self):
        fused = [str(self.folder / name) for name in ("a.tif", "b.tif")]
        for file, method in zip(fused, ("brovey", "pca")):
            fusion("fuse", *PAIR.values(), file, "--method", method, "--quiet")
        out = self.folder / "report.html"
        self.run_algorithm("report", {**PAIR, "FUSED": fused, "TITLE": "Two of them", "OUTPUT": str(out)})
        page = out.read_text(encoding="utf-8")
        self.assertIn("<title>Two of them</title>", page)
        self.assertTrue("brovey" in page and "pca" in page)

    def test_sample(self):
        folder = str(self.folder / "made")
        results = self.run_algorithm("sample", {"SIZE": "256", "FOLDER": folder})
        for name, file in (("PAN", "pan.tif"), ("MS", "ms.tif"), ("TRUTH", "truth.tif")):
            self.assertEqual(results[name], os.path.join(folder, file))
            self.assert_same_bytes(results[name], SCENE / file)
        with self.assertRaisesRegex(QgsProcessingException, "--overwrite"):
            self.run_algorithm("sample", {"SIZE": "256", "FOLDER": folder})


if __name__ == "__main__":
    main()
