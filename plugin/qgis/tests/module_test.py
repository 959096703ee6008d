#!/usr/bin/python3
"""How the plugin runs the module rsfusion. Needs no QGIS; where there is the module itself, it is held against the
command, which the environment's FUSION_COMMAND names."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import types
import unittest

sys.dont_write_bytecode = True
sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent), str(pathlib.Path(__file__).resolve().parent)]
from command_test import Listener  # noqa: E402
from rsfusion_processing import module_runner, runner  # noqa: E402
from rsfusion_processing.job import Job, arguments  # noqa: E402
from rsfusion_processing.module_runner import ModuleRunner  # noqa: E402

try:
    import rsfusion
except ImportError:
    rsfusion = None
FUSION = os.environ.get("FUSION_COMMAND")


class FusionError(Exception):
    pass


class Cancelled(FusionError):
    pass


class Module:
    """Has the module's functions; does what is told to be done with the progress and gives what is told."""

    FusionError, Cancelled = FusionError, Cancelled

    def __init__(self, result=None, work=lambda progress: None):
        self.result, self.work, self.calls = result or {}, work, []

    def __getattr__(self, name):
        def function(*files, progress, **options):
            self.calls.append((name, files, options))
            self.work(progress)
            return types.SimpleNamespace(as_dict=lambda: self.result)

        return function


class Calls(unittest.TestCase):
    def called(self, job):
        module = Module()
        ModuleRunner(module).run(job, Listener())
        return module.calls

    def test_files_and_options_are_arguments(self):
        options = {"kernel-size": 7, "bands": [3, 1], "rgb": "", "nodata": 0.0, "co": ("A=1", "B=2"), "stretch": True}
        job = Job("fuse", "p", ["m", "n"], out="o", options=options)
        named = {"kernel_size": 7, "bands": [3, 1], "nodata": 0.0, "co": ["A=1", "B=2"], "stretch": True}
        self.assertEqual(self.called(job), [("fuse", ("p", ["m", "n"], "o"), named)])

    def test_every_function_has_its_files(self):
        self.assertEqual(self.called(Job("check", "p", ["m"])), [("check", ("p", ["m"]), {})])
        self.assertEqual(self.called(Job("evaluate", "p", ["m"], ["f"])), [("evaluate", ("p", ["m"], "f"), {})])
        self.assertEqual(
            self.called(Job("report", "p", ["m"], ["f", "g"], "r")), [("report", ("p", ["m"], ["f", "g"], "r"), {})]
        )
        self.assertEqual(self.called(Job("sample", out="d")), [("sample", ("d",), {})])

    def test_the_call_is_told_as_it_is_written(self):
        job = Job("check", "p", ["m"], options={"pan-band": 2})
        self.assertEqual(ModuleRunner(Module()).told(job), "rsfusion.check('p', ['m'], pan_band=2)")

    def test_stages_progress_and_notices_are_told(self):
        def work(progress):
            for stage, percent in (
                ("hpf", 0),
                ("hpf", 50),
                ("hpf", 100),
                ("hpf", 0),
                ("quicklook", 0),
                ("quicklook", 9),
            ):
                self.assertIs(progress(stage, percent), True)

        listener = Listener()
        outcome = ModuleRunner(Module({"method": "hpf", "notices": ["One."]}, work)).run(
            Job("fuse", "p", ["m"]), listener
        )
        self.assertEqual(outcome["method"], "hpf")
        self.assertEqual(listener.of("stage"), ["hpf", "hpf", "quicklook"])
        self.assertEqual(listener.of("progress"), [0, 50, 100, 0, 0, 9])
        self.assertEqual(listener.of("notice"), ["One."])

    def test_undefined_figures_are_those_of_json(self):
        nan, inf = float("nan"), float("inf")
        outcome = ModuleRunner(Module({"a": [nan, {"b": inf}], "c": -inf, "d": 1.5})).run(
            Job("check", "p", ["m"]), Listener()
        )
        self.assertEqual(outcome, {"a": [None, {"b": "inf"}], "c": "-inf", "d": 1.5})

    def test_a_cancelled_run_is_told_to_end(self):
        def work(progress):
            self.assertIs(progress("hpf", 0), True)
            self.assertIs(progress("hpf", 10), False)
            raise Cancelled

        with self.assertRaises(runner.RunCancelled):
            ModuleRunner(Module(work=work)).run(Job("fuse", "p", ["m"]), Listener(end_at=10))

    def test_failures_have_the_modules_words(self):
        for kind in (FusionError, ValueError, TypeError):

            def work(progress):
                raise kind("In its own words.")

            with self.assertRaisesRegex(runner.RunFailed, "^In its own words.$"):
                ModuleRunner(Module(work=work)).run(Job("fuse", "p", ["m"]), Listener())

    def test_who_waits_for_another_run_may_want_out(self):
        listener = Listener()
        listener.ended = True
        with module_runner.TURN:
            with self.assertRaises(runner.RunCancelled):
                ModuleRunner(Module()).run(Job("fuse", "p", ["m"]), listener)

    def test_a_failed_run_lets_the_next_one_begin(self):
        def work(progress):
            raise FusionError

        module = Module(work=work)
        for _ in range(2):
            self.assertRaises(runner.RunFailed, ModuleRunner(module).run, Job("fuse", "p", ["m"]), Listener())
        self.assertEqual(len(module.calls), 2)


@unittest.skipUnless(rsfusion and FUSION, "there is no module rsfusion, or FUSION_COMMAND names no command")
class TheModule(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(temporary.cleanup)
        cls.folder = pathlib.Path(temporary.name)
        os.environ["SOURCE_DATE_EPOCH"] = "1700000000"
        cls.runner = ModuleRunner(rsfusion)
        cls.runner.run(Job("sample", out=str(cls.folder), options={"size": "256"}), Listener())
        cls.pair = [str(cls.folder / "pan.tif"), [str(cls.folder / "ms.tif")]]

    def test_gives_what_the_command_gives(self):
        out = str(self.folder / "fused.tif")
        for job in (
            Job(
                "fuse",
                *self.pair,
                out=out,
                options={"method": "hpf", "kernel-size": 7, "bands": [3, 1], "overwrite": True},
            ),
            Job(
                "fuse",
                *self.pair,
                out=out,
                options={"method": "bayesian", "window": [10, 20, 90, 80], "overwrite": True},
            ),
            Job("check", *self.pair, options={"bands": [1, 2]}),
            Job("evaluate", *self.pair, [str(self.folder / "truth.tif")], options={"metric": ["snr", "statistics"]}),
            Job("assess", *self.pair, options={"methods": ["brovey", "ihs"], "bands": [1, 2], "protocol": "wald"}),
        ):
            outcome = self.runner.run(job, Listener())
            made = pathlib.Path(out).read_bytes() if job.out else None
            said = subprocess.run([FUSION, *arguments(job)], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            told = json.loads(said.stdout)
            self.assertEqual(made, pathlib.Path(out).read_bytes() if job.out else None)
            for found in (outcome, told):
                for own in ("seconds", "error_type", "message"):
                    found.pop(own, None)
            self.assertEqual(outcome, told)

    def test_ends_a_run_that_is_cancelled_and_leaves_nothing(self):
        folder = self.folder / "cancelled"
        folder.mkdir()
        job = Job("fuse", *self.pair, out=str(folder / "fused.tif"), options={"threads": 1})
        with self.assertRaises(runner.RunCancelled):
            self.runner.run(job, Listener(end_at=10))
        self.assertEqual(list(folder.iterdir()), [])

    def test_runs_beside_others_one_after_another(self):
        outs = [str(self.folder / f"{number}.tif") for number in range(3)]
        threads = [
            threading.Thread(
                target=self.runner.run, args=(Job("fuse", *self.pair, out=out, options={"method": "pca"}), Listener())
            )
            for out in outs
        ]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        pixels = {pathlib.Path(out).read_bytes() for out in outs}
        self.assertEqual(len(pixels), 1)

    def test_fails_in_words(self):
        job = Job("fuse", *self.pair, out=str(self.folder / "no.tif"), options={"method": "pca", "kernel-size": 5})
        with self.assertRaisesRegex(runner.RunFailed, "no effect on method pca"):
            self.runner.run(job, Listener())


if __name__ == "__main__":
    unittest.main()
