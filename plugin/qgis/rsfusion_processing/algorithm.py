"""What the algorithms have in common."""
import json

from qgis.core import QgsProcessingAlgorithm, QgsProcessingException, QgsProcessingParameterFileDestination
from qgis.PyQt.QtGui import QIcon

from . import parameters as as_parameters
from .progress import Watcher
from .runner import RunCancelled, RunFailed
from .settings import find_runner


class FeedbackWatcher(Watcher):
    """A run as Processing shows it: each stage from 0 to 100."""

    def __init__(self, feedback, notice):
        self._feedback = feedback
        self.cancelled, self.progress, self.notice = feedback.isCanceled, feedback.setProgress, notice

    def stage(self, title):
        self._feedback.setProgressText(title[:1].upper() + title[1:])
        self._feedback.setProgress(0)


class FusionAlgorithm(QgsProcessingAlgorithm):
    """Has name_, title, summary, help, tags_, and the options of its command that have a parameter each."""

    name_ = title = summary = help = ""
    tags_ = ()
    options = ()

    def createInstance(self):
        return type(self)()

    def name(self):
        return self.name_

    def displayName(self):
        return self.title

    def shortDescription(self):
        return self.summary

    def shortHelpString(self):
        lines = "".join(f"<li>{option.title}: {option.help}</li>" for option in self.options if option.help)
        return f"<p>{self.summary}</p>{self.help}" + (f"<ul>{lines}</ul>" if lines else "")

    def tags(self):
        return ["pan-sharpening", "pansharpening", "fusion", "satellite", *self.tags_]

    def icon(self):
        return self.provider().icon() if self.provider() else QIcon()

    def svgIconPath(self):
        return self.provider().svgIconPath() if self.provider() else ""

    def canExecute(self):
        try:
            find_runner()
            return True, ""
        except LookupError as missing:
            return False, str(missing)

    def checkParameterValues(self, parameters, context):
        return super().checkParameterValues(as_parameters.with_numbers(self.options, parameters), context)

    def add_options(self):
        for option in self.options:
            self.addParameter(as_parameters.parameter_of(option))

    def add_file(self, name, title, kind, by_default=True):
        """A file of text that is not asked for by everybody."""
        self.addParameter(
            QgsProcessingParameterFileDestination(
                name, title, f"{kind.upper()} files (*.{kind})", optional=True, createByDefault=by_default
            )
        )

    def values(self, parameters, context):
        return as_parameters.values_of(self, self.options, parameters, context)

    def notice_of(self, feedback):
        """What takes the run's notices."""
        return feedback.pushWarning

    def run_job(self, job, feedback):
        """What the command would tell. Nothing where the run was cancelled."""
        try:
            runner = find_runner()
            feedback.pushCommandInfo(runner.told(job))
            outcome = runner.run(job, FeedbackWatcher(feedback, self.notice_of(feedback)))
        except RunCancelled:
            feedback.pushInfo("Cancelled; no output was left.")
            return None
        except (RunFailed, LookupError) as failure:
            raise QgsProcessingException(str(failure)) from failure
        feedback.setProgress(100)
        return outcome

    def write(self, parameters, name, context, text):
        """A text output, where it is wanted, as a part of the results."""
        path = self.parameterAsFileOutput(parameters, name, context)
        if not path:
            return {}
        try:
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        except OSError as problem:
            raise QgsProcessingException(f"{path} cannot be written: {problem.strerror}.") from problem
        return {name: path}

    def write_findings(self, parameters, context, outcome, page):
        """HTML, for the results, and JSON, for programs."""
        return {
            **self.write(parameters, "HTML", context, page(outcome)),
            **self.write(parameters, "JSON", context, json.dumps(outcome, indent=2, ensure_ascii=False) + "\n"),
        }

    def add_findings(self):
        self.add_file("HTML", "Results", "html")
        self.add_file("JSON", "Results for programs", "json", by_default=False)
