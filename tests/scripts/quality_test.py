#!/usr/bin/python3
"""The tables that scripts/quality writes, from reports made up here."""
import importlib.machinery
import importlib.util
import os
import sys
import unittest

sys.dont_write_bytecode = True
SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "quality")
loader = importlib.machinery.SourceFileLoader("quality_tables", SCRIPT)
quality = importlib.util.module_from_spec(importlib.util.spec_from_loader("quality_tables", loader))
loader.exec_module(quality)


def report(values, best, failures=()):
    rows = [{"method": name, "ERGAS": value, "band_rmse": [1.0]} for name, value in values.items()]
    protocol = {"rows": rows, "best": {"ERGAS": best}}
    return {"wald": protocol, "full": protocol, "advice": "Take it.", "failures": list(failures)}


class Quality(unittest.TestCase):
    def test_a_table_has_a_row_for_each_method_and_the_best_in_bold(self):
        table = quality.table(report({"brovey": 1.23456, "hpf": 2.0, "ihs": None}, "brovey"), "wald")
        self.assertEqual(
            table.splitlines(),
            ["| wald | ERGAS |", "|---|---|", "| brovey | **1.235** |", "| hpf | 2 |", "| ihs | - |"],
        )

    def test_the_overview_has_a_row_for_each_scene(self):
        reports = {
            "a": report({"hpf": 1.0, "brovey": 2.0, "upsampled": 3.0}, "hpf"),
            "b": report({"upsampled": 1.0, "brovey": 2.0, "gdal_pansharpen": 4.0}, "upsampled"),
        }
        self.assertEqual(
            quality.overview(reports, ["brovey", "hpf"]).splitlines(),
            [
                "| ERGAS | brovey | hpf | upsampled | gdal_pansharpen |",
                "|---|---|---|---|---|",
                "| a | 2 | **1** | 3 | - |",
                "| b | 2 | - | **1** | 4 |",
            ],
        )

    def test_a_section_tells_what_is_left_out_and_the_advice(self):
        section = quality.section("scene", report({"hpf": 1.0}, "hpf", [{"method": "ihs", "message": "No hues."}]))
        self.assertTrue(section.startswith("### scene\n\n| wald | ERGAS |"))
        self.assertTrue(section.endswith("`ihs` is left out: No hues.\n\nTake it."))

    def test_filters_are_told_with_what_they_change(self):
        known = {**report({"hpf": 1.0, "ihs": 2.0}, "hpf"), "mtf": 0.2816, "full_mtf": 0.35, "mtf_source": "estimated"}
        known["blur"] = {"width": 0.94, "apart": 0.0104, "score": 0.8}
        known["published"] = report({"ihs": 0.5}, "ihs")["wald"]
        untold = {**known, "mtf_source": "published", "blur": None}
        self.assertEqual(
            quality.filters({"a": known, "b": untold}).splitlines()[2:],
            [
                "| a | 0.940 | 0.010 | 0.800 | 0.282 | 0.350 | ihs 0.5 | hpf 1 |",
                "| b | - | - | - | published | published | ihs 0.5 | hpf 1 |",
            ],
        )

    def test_files_of_a_folder_that_goes_are_named_without_it(self):
        failure = {"method": "ihs", "message": os.path.join("some", "folder", "full_1", "ihs.tif") + " is odd."}
        found = quality.without(os.path.join("some", "folder"), report({"hpf": 1.0}, "hpf", [failure]))
        self.assertEqual(found["failures"][0]["message"], os.path.join("full_1", "ihs.tif") + " is odd.")


if __name__ == "__main__":
    unittest.main()
