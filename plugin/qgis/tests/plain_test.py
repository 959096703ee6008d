#!/usr/bin/python3
"""What else of the plugin needs no QGIS: bands, windows, pages, and the options of the dialogs.

The environment's FUSION_COMMAND is the command that the options are held against.
"""
import importlib.util
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import zipfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import make_zip  # noqa: E402
from rsfusion_processing import colours, ground, options, tables  # noqa: E402

FUSION = os.environ.get("FUSION_COMMAND")


class Colours(unittest.TestCase):
    def test_what_the_file_says_is_first(self):
        self.assertEqual(colours.natural_bands(["", "blue", "red", "green"], ["red", "green", "blue", ""]), [2, 3, 1])

    def test_then_the_names(self):
        names = ["Band 1: Blue", "Band 2: red edge", "Band 3: red", "Band 4: near infrared", "Band 5: green (Gray)"]
        self.assertEqual(colours.natural_bands([""] * 5, names), [2, 4, 0])

    def test_then_the_usual_order(self):
        for count, bands in ((1, [0]), (2, [0, 1, 1]), (3, [0, 1, 2]), (4, [2, 1, 0]), (8, [2, 1, 0])):
            self.assertEqual(colours.natural_bands([""] * count, ["infrared"] * count), bands)

    def test_two_colours_are_not_enough(self):
        self.assertEqual(colours.natural_bands(["red", "green", ""], ["", "", ""]), [0, 1, 2])


class Ground(unittest.TestCase):
    NORTH_UP = (1000.0, 0.5, 0.0, 2000.0, 0.0, -0.5)

    def test_an_extent_takes_every_pixel_that_it_touches(self):
        # Columns (1010.4 - 1000) / 0.5 = 20.8 to 40.2, rows (2000 - 1990.3) / 0.5 = 19.4 to 60.2.
        self.assertEqual(ground.window_of((1010.4, 1969.9, 1020.1, 1990.3), self.NORTH_UP), [20, 19, 21, 42])

    def test_an_extent_of_pixel_edges_takes_no_more(self):
        pixel = 0.3
        transform = (100.1, pixel, 0.0, 200.7, 0.0, -pixel)
        extent = (100.1 + 7 * pixel, 200.7 - 9 * pixel, 100.1 + 11 * pixel, 200.7 - 4 * pixel)
        self.assertEqual(ground.window_of(extent, transform), [7, 4, 4, 5])

    def test_it_may_begin_outside_and_be_a_point(self):
        self.assertEqual(ground.window_of((995.0, 1990.0, 1005.0, 2010.0), self.NORTH_UP), [-10, -20, 20, 40])
        self.assertEqual(ground.window_of((1010.0, 1990.0, 1010.0, 1990.0), self.NORTH_UP), [20, 20, 1, 1])

    def test_rows_may_go_up(self):
        self.assertEqual(
            ground.window_of((1010.0, 2010.0, 1020.0, 2015.0), (1000.0, 0.5, 0.0, 2000.0, 0.0, 0.5)), [20, 20, 20, 10]
        )

    def test_a_turned_image_has_no_windows(self):
        self.assertRaisesRegex(ValueError, "turned", ground.window_of, (0, 0, 1, 1), (0.0, 1.0, 0.1, 0.0, 0.1, -1.0))


class Pages(unittest.TestCase):
    def test_the_entropies_of_both_images_have_rows_of_their_own(self):
        page = tables.evaluation({"entropy": {"m_pEntropy": [1.0, 2.0, 3.0, 4.0], "m_pJointEntropy": [5.0, None]}})
        self.assertEqual(
            re.findall("<t[dh]>(.*?)</t[dh]>", page),
            [
                "",
                "band 1",
                "band 2",
                "m_pEntropy (multispectral)",
                "1",
                "2",
                "m_pEntropy (fused)",
                "3",
                "4",
                "m_pJointEntropy",
                "5",
                "-",
            ],
        )

    def test_texts_are_shown_as_texts(self):
        image = {
            "size": [1, 2],
            "bands": 1,
            "type": "uint8",
            "pixel": [1.0, 1.0],
            "coordinate_system": "<b>",
            "overlap": 1.0,
        }
        page = tables.check(
            {
                "fine": False,
                "pan": image,
                "ms": image,
                "ratio": [1.0, 1.0],
                "notes": [{"text": "<i>"}],
                "bands": [],
                "warnings": [{"name": "a", "text": "<script>", "advice": "&"}],
            }
        )
        self.assertFalse({"<script>", "<i>"} & set(re.findall("<[a-z]+>", page)))
        self.assertIn("<b>&lt;script&gt;</b> &amp;", page)
        self.assertIn("<td>&lt;b&gt;</td>", page)

    def test_the_best_of_an_assessment_has_a_star(self):
        page = tables.assessment(
            {
                "advice": "Take hpf.",
                "failures": [{"method": "ihs", "message": "Two bands."}],
                "wald": {
                    "rows": [
                        {"method": "hpf", "ERGAS": 1.25, "SAM": 2.0},
                        {"method": "pca", "ERGAS": 3.0, "SAM": "inf"},
                    ],
                    "best": {"ERGAS": "hpf", "SAM": None},
                },
            }
        )
        self.assertEqual(re.findall("<td>(.*?)</td>", page), ["hpf", "1.25*", "2", "pca", "3", "inf"])
        self.assertIn("ihs is left out: Two bands.", page)
        self.assertNotIn("<h2>full</h2>", page)


class WithoutQgis(unittest.TestCase):
    def test_what_needs_it_is_skipped_with_a_word(self):
        for name in ("qgis_test.py", "qgis_runs_test.py"):
            path = str(make_zip.HERE / "tests" / name)
            code = (
                "import runpy, sys; sys.modules.update(qgis=None, processing=None);"
                f"sys.path.insert(0, {os.path.dirname(path)!r}); runpy.run_path({path!r}, run_name='__main__')"
            )
            run = subprocess.run([sys.executable, "-c", code], stdout=subprocess.PIPE, encoding="utf-8")
            self.assertEqual((run.returncode, "is not tried in QGIS" in run.stdout), (77, True))


class Package(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.archive = pathlib.Path(temporary.name) / "plugin.zip"
        make_zip.make(self.archive)

    def test_holds_the_plugin_with_its_licence_and_texts_alone(self):
        with zipfile.ZipFile(self.archive) as packed:
            names = packed.namelist()
            texts = {name: packed.read(name).decode("utf-8") for name in names}
        self.assertEqual({name.split("/")[0] for name in names}, {"rsfusion_processing"})
        for name in ("__init__.py", "metadata.txt", "LICENSE", "icon.svg", "plugin.py"):
            self.assertIn(f"rsfusion_processing/{name}", names)
        self.assertFalse([name for name in names if not re.search(r"/(\w+\.(py|svg|txt)|LICENSE)$", name)])
        self.assertFalse([name for name, text in texts.items() if "\0" in text])
        self.assertIn("Apache License", texts["rsfusion_processing/LICENSE"])

    def test_has_the_same_bytes_every_time(self):
        again = self.archive.with_name("again.zip")
        make_zip.make(again)
        self.assertEqual(self.archive.read_bytes(), again.read_bytes())

    def test_tells_what_the_site_of_plugins_asks_for(self):
        told = make_zip.metadata()
        for name in ("name", "description", "about", "version", "qgisMinimumVersion", "author", "email", "tracker",
                     "repository"):  # fmt: skip
            self.assertTrue(told.get(name), name)
        self.assertRegex(told["version"], r"^\d+\.\d+\.\d+$")
        self.assertEqual(told["hasProcessingProvider"], "yes")
        self.assertTrue((make_zip.PLUGIN / told["icon"]).is_file())

    @unittest.skipUnless(importlib.util.find_spec("flake8"), "flake8 is not installed")
    def test_has_nothing_that_flake8_finds(self):
        command = [sys.executable, "-m", "flake8", str(make_zip.HERE)]
        run = subprocess.run(command, cwd=make_zip.HERE, stdout=subprocess.PIPE, encoding="utf-8")
        self.assertEqual((run.stdout, run.returncode), ("", 0))


@unittest.skipUnless(FUSION, "FUSION_COMMAND names no command")
class TheCommand(unittest.TestCase):
    # What dialogs ask for in ways of their own, and what is not for them.
    OWN = {
        "fuse": "out ms bands pan-band window aoi co quicklook overwrite json",
        "check": "ms bands pan-band json",
        "evaluate": "ms bands fused-bands pan-band metric json",
        "assess": "ms bands pan-band methods picture overwrite json",
        "report": "out ms bands pan-band overwrite json",
        "sample": "",
    }
    LEFT_OUT = {
        "fuse": "compress dry-run repeat quiet log rows survey",
        "check": "quiet",
        "evaluate": "quiet",
        "assess": "quiet report keep extra",
        "report": "quiet fused-bands",
        "sample": "quiet",
    }
    TABLES = {
        "fuse": options.FUSE,
        "check": options.CHECK,
        "evaluate": options.EVALUATE,
        "assess": options.ASSESS,
        "report": options.REPORT,
        "sample": options.SAMPLE,
    }

    def test_has_the_version_of_the_plugin(self):
        self.assertEqual(self.said("--version").split()[1], make_zip.metadata()["version"])

    def said(self, *words):
        return subprocess.run(
            [FUSION, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8"
        ).stdout

    def test_has_the_options_that_the_dialogs_have_and_no_more(self):
        for command, table in self.TABLES.items():
            help_text = self.said(command, "--help")
            offered = set(re.findall(r"^ +(?:-\w,)?--([a-z-]+)", help_text, re.MULTILINE)) - {"help"}
            asked = [option.name for option in table] + self.OWN[command].split()
            self.assertEqual(len(asked), len(set(asked)), command)
            self.assertFalse(set(asked) & set(self.LEFT_OUT[command].split()), command)
            self.assertEqual(offered - set(self.LEFT_OUT[command].split()), set(asked), command)

    def test_has_the_choices_that_the_dialogs_have(self):
        seen = 0
        for command, table in self.TABLES.items():
            shapes = dict(re.findall(r"--([a-z-]+) ([a-z|]+\|[a-z]+)", self.said(command, "--help")))
            for option in table:
                if option.name in shapes and option.kind == options.CHOICE:
                    self.assertEqual(set(option.choices), set(shapes[option.name].split("|")), option.name)
                    seen += 1
        self.assertGreater(seen, 10)

    def test_has_the_methods_and_metrics_that_the_dialogs_have(self):
        self.assertEqual(list(options.METHODS), [*self.said("methods", "--names").split(), "best"])
        self.assertIn(", ".join(options.METRICS), " ".join(self.said("evaluate", "--help").split()))

    def test_knows_the_types_and_formats(self):
        with tempfile.TemporaryDirectory() as folder:
            self.said("sample", folder, "--size", "64")
            plan = [
                "fuse",
                f"{folder}/pan.tif",
                f"{folder}/ms.tif",
                f"{folder}/x.tif",
                "--method",
                "brovey",
                "--dry-run",
            ]
            for name in options.TYPES:
                self.assertIn(name, self.said(*plan, "--type", name))
            for name in filter(None, options.FORMATS):
                self.assertNotIn("Unknown format", self.said(*plan, "--format", name))
            self.assertIn("Unknown format", self.said(*plan, "--format", "none"))


if __name__ == "__main__":
    unittest.main()
