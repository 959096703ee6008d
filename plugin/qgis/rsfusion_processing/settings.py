"""What carries out the runs: what the settings of QGIS name, else what is found."""
from processing.core.ProcessingConfig import ProcessingConfig

from . import runner

COMMAND_SETTING = "FUSION_COMMAND"


def find_runner():
    """A LookupError where there is none."""
    return runner.find(ProcessingConfig.getSetting(COMMAND_SETTING))
