"""Carries out jobs: by the Python module rsfusion where there is one, else by the command."""
import importlib
import shutil


class RunFailed(Exception):
    """In the words of the library."""


class RunCancelled(Exception):
    pass


def find(command=""):
    """What runs jobs: an object with run(job, watcher), which gives what the command's JSON tells, and told(job).

    A command that is named is taken before all else, the module before a command that is found. A LookupError where
    there is nothing.
    """
    # Not before they are needed: both take the failures from here.
    from .command_runner import CommandRunner
    from .module_runner import ModuleRunner

    if command:
        found = shutil.which(command)
        if not found:
            raise LookupError(f"The command fusion that the settings name is no program: {command}")
        return CommandRunner(found)
    try:
        return ModuleRunner(importlib.import_module("rsfusion"))
    except (ImportError, OSError):
        # It, or the library behind it, is not installed.
        pass
    found = shutil.which("fusion")
    if found:
        return CommandRunner(found)
    raise LookupError(
        "There is neither the Python module rsfusion nor the command fusion; install the package fusion-tools, or name "
        "the command in Settings, Options, Processing, Providers."
    )
