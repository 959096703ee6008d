#!/usr/bin/python3
"""How the plugin runs the command: arguments, progress, outcomes, failures, cancelling. Needs no QGIS."""
import os
import pathlib
import signal
import stat
import sys
import tempfile
import time
import unittest
import unittest.mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from rsfusion_processing import runner  # noqa: E402
from rsfusion_processing.command_runner import CommandRunner  # noqa: E402
from rsfusion_processing.job import Job, arguments  # noqa: E402
from rsfusion_processing.progress import ProgressReader, Watcher  # noqa: E402


class Listener(Watcher):
    """Writes down what it is told, and ends the run at a percentage."""

    def __init__(self, end_at=None):
        self.told, self.end_at, self.ended = [], end_at, False

    def stage(self, title):
        self.told.append(("stage", title))

    def progress(self, percent):
        if self.of("progress")[-1:] != [percent] or self.told[-1][0] == "stage":
            self.told.append(("progress", percent))
        self.ended = self.ended or (self.end_at is not None and percent >= self.end_at)

    def notice(self, text):
        self.told.append(("notice", text))

    def cancelled(self):
        return self.ended

    def of(self, kind):
        return [value for name, value in self.told if name == kind]


class CommandLines(unittest.TestCase):
    def test_options_stand_behind_the_files(self):
        job = Job(
            "fuse",
            "pan.tif",
            ["b.tif", "g.tif"],
            out="out.tif",
            options={
                "method": "hpf",
                "bands": [3, 2],
                "detail-weight": 0.25,
                "kernel-size": 7,
                "stretch": True,
                "window": [-10, 0, 100, 50],
                "co": ("COMPRESS=LZW", "TILED=YES"),
            },
        )
        self.assertEqual(
            arguments(job),
            [
                "fuse",
                "pan.tif",
                "b.tif",
                "g.tif",
                "--out=out.tif",
                "--method=hpf",
                "--bands=3,2",
                "--detail-weight=0.25",
                "--kernel-size=7",
                "--stretch",
                "--window=-10,0,100,50",
                "--co=COMPRESS=LZW",
                "--co=TILED=YES",
                "--json",
            ],
        )

    def test_what_is_not_given_is_left_out_but_zero_is_a_number(self):
        job = Job(
            "check",
            "p",
            ["m"],
            options={"bands": None, "rgb": "", "sync": False, "co": (), "metric": [], "nodata": 0.0},
        )
        self.assertEqual(arguments(job), ["check", "p", "m", "--nodata=0.0", "--json"])

    def test_every_command_has_its_files_where_it_looks_for_them(self):
        self.assertEqual(arguments(Job("evaluate", "p", ["m"], ["f"])), ["evaluate", "p", "m", "f", "--json"])
        self.assertEqual(
            arguments(Job("report", "p", ["m", "n"], ["f", "g"], "r.html")),
            ["report", "p", "--ms=m", "--ms=n", "f", "g", "--out=r.html", "--json"],
        )
        self.assertEqual(arguments(Job("sample", out="d", options={"seed": 2})), ["sample", "d", "--seed=2"])

    def test_a_file_is_no_option(self):
        self.assertEqual(arguments(Job("evaluate", "-p", ["-m"], ["-f"]))[1:4], ["./-p", "./-m", "./-f"])


class Progress(unittest.TestCase):
    def events(self, *pieces):
        listener = Listener()
        reader = ProgressReader(listener)
        for piece in pieces:
            reader.feed(piece)
        reader.end()
        return listener

    def test_stages_percentages_and_notices_are_told_apart(self):
        listener = self.events(
            "bayesian 0...10...20...30...40...50...60...70...80...90...100 - done.\n"
            "Detail has a weight of 0.22, its share of pan.\n"
            "quicklook 0...1"
        )
        self.assertEqual(
            listener.told,
            [
                ("stage", "bayesian"),
                ("progress", 100.0),
                ("notice", "Detail has a weight of 0.22, its share of pan."),
                ("stage", "quicklook"),
                ("progress", 7.5),
            ],
        )

    def test_progress_comes_with_each_mark(self):
        text = "hpf 0...10...20...30...40...50...60...70...80...90...100 - done.\n"
        listener = self.events("hpf ", *text[4:])
        self.assertEqual(listener.of("progress"), [mark * 2.5 for mark in range(41)])
        self.assertEqual(listener.of("stage"), ["hpf"])
        self.assertEqual(listener.of("notice"), [])

    def test_a_stage_begins_with_its_first_mark(self):
        listener = Listener()
        reader = ProgressReader(listener)
        reader.feed("assess ")
        reader.feed("0")
        self.assertEqual(listener.told, [("stage", "assess"), ("progress", 0.0)])

    def test_a_notice_may_stand_within_a_stage(self):
        listener = self.events("pca 0...10..A notice.\n", ".20...30 - done.\n", "Another one.\n")
        self.assertEqual(listener.of("notice"), ["A notice.", "Another one."])
        self.assertEqual(listener.of("progress"), [15.0, 30.0])
        self.assertEqual(listener.of("stage"), ["pca"])

    def test_a_notice_that_begins_with_digits_is_whole(self):
        listener = self.events("pca 0...10...", "Look:\n", "2 bands are empty.\n", "20...30 - done.\n")
        self.assertEqual(listener.of("notice"), ["Look:", "2 bands are empty."])
        self.assertEqual(listener.of("progress"), [17.5, 30.0])

    def test_a_number_begins_no_stage(self):
        for notice in ("A weight of 0.22.", "The values 0, 1 and 2.", "It is 0.", "Of 0.. 5."):
            for pieces in ([notice + "\n"], [notice, "\n"]):
                self.assertEqual(self.events(*pieces).told, [("notice", notice)])

    def test_text_without_an_end_of_line_is_a_notice_at_the_end(self):
        self.assertEqual(self.events("half a ", "word").told, [("notice", "half a word")])


FAKE = """#!{python}
import os, signal, sys, time
here = os.path.dirname(os.path.abspath(__file__))
def ended(number, frame):
    open(os.path.join(here, "signal"), "w").write(str(number))
    sys.stderr.write(" - done.\\nfusion: The run was cancelled.\\n")
    sys.exit(128 + number)
{body}
"""


@unittest.skipIf(os.name == "nt", "a program is no script there")
class Runs(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.folder = pathlib.Path(self.temporary.name)

    def runner(self, body):
        program = self.folder / "fusion"
        program.write_text(FAKE.format(python=sys.executable, body=body), encoding="utf-8")
        program.chmod(program.stat().st_mode | stat.S_IXUSR)
        return CommandRunner(str(program))

    def failure_of(self, body, listener=None):
        with self.assertRaises(runner.RunFailed) as failure:
            self.runner(body).run(Job("fuse", "p", ["m"]), listener or Listener())
        return str(failure.exception)

    def test_what_the_command_tells_is_the_outcome(self):
        listener = Listener()
        outcome = self.runner(
            """
sys.stderr.write("hpf 0...10 - done.\\nA notice - \u00e4.\\n")
print('{"method": "hpf", "arguments": "' + " ".join(sys.argv[1:]) + '"}')"""
        ).run(Job("fuse", "p", ["m"], out="o", options={"method": "hpf"}), listener)
        self.assertEqual(outcome, {"method": "hpf", "arguments": "fuse p m --out=o --method=hpf --json"})
        self.assertEqual(listener.told, [("stage", "hpf"), ("progress", 10.0), ("notice", "A notice - \u00e4.")])

    def test_an_outcome_may_be_longer_than_a_pipe_holds(self):
        outcome = self.runner("""print('{"text": "' + "x" * 1000000 + '"}')""").run(
            Job("check", "p", ["m"]), Listener()
        )
        self.assertEqual(len(outcome["text"]), 1000000)

    def test_warnings_of_a_check_are_no_failure(self):
        outcome = self.runner("""print('{"fine": false}'); sys.exit(3)""").run(Job("check", "p", ["m"]), Listener())
        self.assertEqual(outcome, {"fine": False})

    def test_a_failure_has_the_commands_own_sentence(self):
        listener = Listener()
        self.assertEqual(
            self.failure_of(
                """
sys.stderr.write("fusion: error 4: No such file. (short)\\n")
print('{"error_type": 4, "message": "No such file. (long)"}'); sys.exit(1)""",
                listener,
            ),
            "No such file. (long)",
        )
        self.assertEqual(listener.told, [])

    def test_without_an_object_the_last_line_is_the_sentence(self):
        self.assertEqual(
            self.failure_of("""sys.stderr.write("fusion: Wrong usage.\\n"); sys.exit(2)"""), "Wrong usage."
        )

    def test_a_command_that_dies_without_a_word_is_told_by_its_status(self):
        self.assertIn("-9", self.failure_of("os.kill(os.getpid(), signal.SIGKILL)"))

    def test_a_program_that_cannot_be_started_is_a_failure(self):
        with self.assertRaises(runner.RunFailed) as failure:
            CommandRunner(str(self.folder / "none")).run(Job("fuse", "p", ["m"]), Listener())
        self.assertIn(str(self.folder / "none"), str(failure.exception))

    def test_a_cancelled_run_is_asked_to_end_in_order(self):
        waiting = self.runner(
            """
signal.signal(signal.SIGTERM, ended)
sys.stderr.write("bayesian 0...10")
sys.stderr.flush()
time.sleep(60)"""
        )
        listener = Listener(end_at=10)
        start = time.monotonic()
        with self.assertRaises(runner.RunCancelled):
            waiting.run(Job("fuse", "p", ["m"]), listener)
        self.assertLess(time.monotonic() - start, 30)
        self.assertEqual((self.folder / "signal").read_text(), str(int(signal.SIGTERM)))
        self.assertEqual(listener.of("notice"), [])

    def test_a_run_that_does_not_end_is_killed(self):
        waiting = self.runner(
            """
signal.signal(signal.SIGTERM, signal.SIG_IGN)
sys.stderr.write("bayesian 0...10")
sys.stderr.flush()
time.sleep(60)"""
        )
        waiting.patience = 0.3
        start = time.monotonic()
        with self.assertRaises(runner.RunCancelled):
            waiting.run(Job("fuse", "p", ["m"]), Listener(end_at=10))
        self.assertLess(time.monotonic() - start, 30)

    def test_a_run_that_was_done_before_it_could_be_cancelled_has_an_outcome(self):
        late = self.runner(
            """
signal.signal(signal.SIGTERM, signal.SIG_IGN)
sys.stderr.write("hpf 0...10 - done.\\n")
sys.stderr.flush()
time.sleep(0.5)
print('{"method": "hpf"}')"""
        )
        self.assertEqual(late.run(Job("fuse", "p", ["m"]), Listener(end_at=10)), {"method": "hpf"})

    def test_a_listener_that_fails_leaves_no_process(self):
        class Failing(Listener):
            def progress(self, percent):
                raise ZeroDivisionError

        waiting = self.runner(
            """
signal.signal(signal.SIGTERM, ended)
sys.stderr.write("bayesian 0...10")
sys.stderr.flush()
time.sleep(60)"""
        )
        with self.assertRaises(ZeroDivisionError):
            waiting.run(Job("fuse", "p", ["m"]), Failing())
        self.assertTrue((self.folder / "signal").exists())

    def test_the_command_is_that_of_the_settings_else_of_the_path(self):
        self.runner("")
        named = str(self.folder / "fusion")
        # As if there were no module.
        without = unittest.mock.patch.dict(sys.modules, {"rsfusion": None})
        without.start()
        self.addCleanup(without.stop)
        self.assertEqual(runner.find(named).program, named)
        path = os.environ["PATH"]
        self.addCleanup(os.environ.__setitem__, "PATH", path)
        os.environ["PATH"] = str(self.folder)
        self.assertEqual(runner.find().program, named)
        os.environ["PATH"] = str(self.folder / "empty")
        self.assertRaisesRegex(LookupError, "fusion-tools", runner.find)
        self.assertRaisesRegex(LookupError, "nowhere", runner.find, "nowhere")

    def test_the_module_comes_before_a_command_that_nobody_named(self):
        self.runner("")
        named = str(self.folder / "fusion")
        with unittest.mock.patch.dict(sys.modules, {"rsfusion": unittest.mock.sentinel.module}):
            self.assertIs(runner.find().module, unittest.mock.sentinel.module)
            self.assertEqual(runner.find(named).program, named)


if __name__ == "__main__":
    unittest.main()
