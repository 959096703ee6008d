"""What a built site gets wrong: links and anchors that lead nowhere, and sources that a browser would fetch from elsewhere."""
import html.parser
import os
import re
import urllib.parse

# Attributes that a browser follows by itself; a plain link to elsewhere waits for the reader.
FETCHED = {("script", "src"), ("img", "src"), ("link", "href"), ("iframe", "src"), ("source", "src"), ("object", "data"),
           ("video", "src"), ("audio", "src"), ("embed", "src")}
ELSEWHERE = re.compile(r"^(?:https?:)?//")
# url(...) and @import of style sheets.
STYLE_SOURCE = re.compile(r"url\(\s*['\"]?([^'\")]+)|@import\s+['\"]([^'\"]+)")
# Doxygen leads to it from summaries of classes where it then writes no such list.
MISSING = {"nested-classes"}


class Page(html.parser.HTMLParser):
    """The anchors of a page, and what it refers to: (target, whether a browser fetches it)."""

    def __init__(self, text):
        super().__init__()
        self.anchors, self.targets = set(), []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name == "id" or (tag == "a" and name == "name"):
                self.anchors.add(value)
            elif value and name in ("href", "src", "data"):
                fetched = (tag, name) in FETCHED and ("rel", "canonical") not in attributes
                self.targets.append((value, fetched))


def faults(site):
    pages = {path: Page(path.read_text(encoding="utf-8")) for path in sorted(site.rglob("*.html"))}
    found = []
    for path, page in pages.items():
        for target, fetched in page.targets:
            name = f"{path.relative_to(site)}: {target}"
            if ELSEWHERE.match(target):
                if fetched:
                    found.append(f"{name} is fetched from elsewhere")
                continue
            parts = urllib.parse.urlsplit(target)
            if parts.scheme:
                continue
            # The page for what is not found does not know where it will lie, and begins at the top.
            start = site if parts.path.startswith("/") else path.parent
            other = path if not parts.path else start / urllib.parse.unquote(parts.path).lstrip("/")
            other = type(path)(os.path.normpath(other))
            if not other.exists():
                found.append(f"{name} leads nowhere")
                continue
            anchors = pages[other].anchors | MISSING if other in pages else {parts.fragment}
            if parts.fragment and urllib.parse.unquote(parts.fragment) not in anchors:
                found.append(f"{name} has no such anchor")
    for path in sorted(site.rglob("*.css")):
        for groups in STYLE_SOURCE.findall(path.read_text(encoding="utf-8")):
            source = "".join(groups)
            if ELSEWHERE.match(source):
                found.append(f"{path.relative_to(site)}: {source} is fetched from elsewhere")
    return found
