"""Runs jobs by the command."""
import codecs
import json
import os
import queue
import shlex
import signal
import subprocess
import threading
import time

from .job import arguments
from .progress import ProgressReader, Watcher
from .runner import RunCancelled, RunFailed

PREFIX = "fusion: "
# check has something to warn of.
WARNINGS = 3


class _Lines(Watcher):
    """Keeps the failure apart from the notices."""

    def __init__(self, watcher):
        self.stage, self.progress = watcher.stage, watcher.progress
        self._watcher = watcher
        self.failure = ""

    def notice(self, text):
        if text.startswith(PREFIX):
            self.failure = text.split(PREFIX, 1)[1]
        else:
            self._watcher.notice(text)


class CommandRunner:
    patience = 60.0  # seconds that a run has for its end once it is cancelled
    pause = 0.1

    def __init__(self, program):
        self.program = program

    def told(self, job):
        """The command line, for a shell."""
        return " ".join(shlex.quote(word) for word in self._command_line(job))

    def _command_line(self, job):
        return [self.program, *arguments(job)]

    def run(self, job, watcher):
        lines = _Lines(watcher)
        process = _start(self._command_line(job))
        said = queue.Queue()
        answer = []
        readers = [
            threading.Thread(target=_read, args=(process.stderr, said.put), daemon=True),
            threading.Thread(target=_read, args=(process.stdout, answer.append), daemon=True),
        ]
        for reader in readers:
            reader.start()
        try:
            asked = self._follow(process, said, ProgressReader(lines), watcher)
        except BaseException:
            self._end(process)
            raise
        finally:
            for reader in readers:
                reader.join()
            status = process.wait()
            process.stderr.close()
            process.stdout.close()
        if asked and status != 0:
            raise RunCancelled()
        return _outcome(status, "".join(text for text in answer if text), lines.failure)

    def _end(self, process):
        _ask_to_end(process)
        try:
            process.wait(self.patience)
        except subprocess.TimeoutExpired:
            process.kill()

    def _follow(self, process, said, progress, watcher):
        """Hands on what the command says until it says no more. Answers whether it was asked to end."""
        asked = None
        while True:
            try:
                text = said.get(timeout=self.pause)
                if text is None:
                    progress.end()
                    return asked is not None
                progress.feed(text)
            except queue.Empty:
                pass
            if asked is None and watcher.cancelled():
                asked = time.monotonic()
                _ask_to_end(process)
            elif asked is not None and time.monotonic() - asked > self.patience:
                process.kill()


def _start(command_line):
    # A group of its own, where a Ctrl-C of the terminal that QGIS was started from does not reach it twice.
    options = {"start_new_session": True}
    if os.name == "nt":
        options = {"creationflags": subprocess.CREATE_NEW_PROCESS_GROUP | subprocess.CREATE_NO_WINDOW}
    try:
        return subprocess.Popen(
            command_line, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options
        )
    except OSError as problem:
        raise RunFailed(f"{command_line[0]} cannot be started: {problem.strerror}.") from problem


def _ask_to_end(process):
    """In order, which leaves nothing behind."""
    if process.poll() is not None:
        return
    try:
        process.send_signal(signal.CTRL_BREAK_EVENT if os.name == "nt" else signal.SIGTERM)
    except OSError:
        # Without a console there is no such event. What is left goes with the next run.
        process.terminate()


def _read(stream, take):
    """Hands on texts as they come, and None at the end."""
    decoder = codecs.getincrementaldecoder("utf-8")(errors="replace")
    try:
        while True:
            piece = os.read(stream.fileno(), 65536)
            text = decoder.decode(piece, final=not piece)
            if text:
                take(text)
            if not piece:
                break
    finally:
        take(None)


def _outcome(status, answer, failure):
    try:
        outcome = json.loads(answer) if answer else {}
    except ValueError:
        outcome = {}
    if status in (0, WARNINGS):
        return outcome
    raise RunFailed(outcome.get("message") or failure or f"The command ended with status {status} and without a word.")
