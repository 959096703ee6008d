"""Reads what the command writes where no terminal is: "title 0...10...20" to "100 - done.", and notices between."""
import os
import re


class Watcher:
    """Who wants to know how a run goes, and may end it."""

    def stage(self, title):
        """A part of the run has begun."""

    def progress(self, percent):
        """Of the stage."""

    def notice(self, text):
        """The run has something to say."""

    def cancelled(self):
        return False


def _scale():
    """The marks, one every 2.5 percent, and at which length of them how much is done."""
    marks, done = "", {0: 0.0}
    for mark in range(41):
        marks += str(mark * 10 // 4) if mark % 4 == 0 else "."
        done[len(marks)] = mark * 2.5
    return marks, done


MARKS, DONE = _scale()
END = " - done."
# A number in a notice, "a weight of 0.33", begins no stage, nor does one at its end.
BEGUN = re.compile(r"(.+?) (?=0(?:\.\.\.|$))")
WHOLE = re.compile(r"(.+?) (?=0(?:\.\.\.|\.{0,2} - done\.$))")


class ProgressReader:
    def __init__(self, watcher):
        self._watcher = watcher
        self._line = ""
        self._title = None  # of the open stage
        self._start = 0  # where its marks begin in the line
        self._seen = 0  # how many characters of marks stood in the lines before

    def feed(self, text):
        """Takes the next piece, wherever it ends."""
        for piece in text.splitlines(keepends=True):
            self._line += piece
            ended = piece[-1] in "\r\n"
            self._take(self._line.rstrip("\r\n"), ended)
            if ended:
                self._line = ""

    def end(self):
        # A mark cut off by the end of a program is none.
        if self._line and self._title is None:
            self.feed("\n")

    def _take(self, line, ended):
        if self._title is None:
            self._begin((WHOLE if ended else BEGUN).match(line))
        if self._title is None:
            if ended and line:
                self._watcher.notice(line)
            return
        rest, seen = self._marks(line)
        self._watcher.progress(DONE[seen])
        if not ended:
            return
        if rest == END:
            self._title = None
            return
        if rest:
            self._watcher.notice(rest)
        self._start, self._seen = 0, seen

    def _begin(self, found):
        if found:
            self._title, self._start, self._seen = found[1], found.end(), 0
            self._watcher.stage(self._title)

    def _marks(self, line):
        """What follows the marks, and how many characters of them there have been."""
        start, seen = self._start, self._seen
        length = len(os.path.commonprefix([line[start:], MARKS[seen:]]))
        # "2" of "20" is none yet, or the begin of a notice.
        while seen + length not in DONE:
            length -= 1
        behind = start + length
        return line[behind:], seen + length
