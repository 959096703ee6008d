"""Carries out jobs: by the Python module rsfusion where there is one, else by the command."""
import shutil


class RunFailed(Exception):
    """In the words of the library."""


class RunCancelled(Exception):
    pass


def find(command=""):
    """What runs jobs: an object with run(job, watcher), which gives what the command's JSON would tell.

    A command that is named is taken before all else. A LookupError where there is nothing.
    """
    # Not before they are needed: both take the failures from here.
    from .command_runner import CommandRunner

    if command:
        found = shutil.which(command)
        if not found:
            raise LookupError(f"The command fusion that the settings name is no program: {command}")
        return CommandRunner(found)
    found = shutil.which("fusion")
    if found:
        return CommandRunner(found)
    raise LookupError(
        "The command fusion is not in the search path; install the package fusion-tools, or name the command in "
        "Settings, Options, Processing, Providers."
    )
