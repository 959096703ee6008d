"""The pages of the site: the documents of the tree with their links, and those that are made of what is said elsewhere."""
import json
import os
import pathlib
import re
import shutil
import subprocess

# Documents outside docs/, and what the site calls them.
OTHERS = {"README.md": "index.md", "CONTRIBUTING.md": "contributing.md", "SECURITY.md": "security-policy.md",
          "CHANGELOG.md": "changelog.md", "LICENSE": "LICENSE.txt"}
LINK = re.compile(r"\]\(([^)#:\s]+)(#[^)\s]*)?\)")
PICTURE = re.compile(r"<!-- picture (\S+): (.+?) -->", re.DOTALL)


class Site:
    def __init__(self, root, pages):
        self.root, self.pages = root, pages
        self.places = {**OTHERS, **{f"docs/{path.name}": path.name for path in (root / "docs").glob("*.md")},
                       **{f"examples/{path.name}": f"examples.md#{path.name}" for path in (root / "examples").iterdir()}}

    def add(self, name, text):
        path = self.pages / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def add_documents(self):
        for source, name in self.places.items():
            if name.endswith(".md"):
                self.add(name, self.page_of(source, (self.root / source).read_text(encoding="utf-8")))
        shutil.copy(self.root / "LICENSE", self.pages / OTHERS["LICENSE"])

    def page_of(self, source, text):
        """A document's text as the site's Markdown has it, which is older than that of forges."""
        def link(match):
            target = os.path.normpath(os.path.join(os.path.dirname(source), match[1]))
            # What is unknown stays, and is a dead link that mkdocs tells of.
            return f"]({self.places.get(target, match[1])}{match[2] or ''})"

        def picture(match):
            caption = " ".join(match[2].split())
            return f"![{caption}](pictures/{match[1]})\n\n*{caption[0].upper()}{caption[1:]}.*"

        return for_mkdocs(PICTURE.sub(picture, LINK.sub(link, text)))

    def add_pictures(self, folder):
        (self.pages / "pictures").mkdir()
        for picture in folder.glob("*.png"):
            shutil.copy(picture, self.pages / "pictures")

    def add_examples(self):
        text = "# Examples\n\nWhole programs, those in C and C++ with their `CMakeLists.txt`; an install of the Debian package `libfusion-dev`" \
               " has them in\n`/usr/share/doc/libfusion-dev/examples`.\n"
        for folder in sorted((self.root / "examples").iterdir()):
            text += f"\n## {folder.name}\n"
            for source in sorted(folder.glob("main.*")):
                language = {".c": "c", ".py": "python"}.get(source.suffix, "cpp")
                text += f"\n```{language}\n{source.read_text(encoding='utf-8')}```\n"
        self.add("examples.md", text)

    def add_methods(self, methods):
        index = "# Methods\n\nWhich of them to take, [another page](../which-method.md) tells.\n\n| method | what it does |\n|---|---|\n"
        options, ergas = self.options(), self.ergas()
        for method in methods:
            name = method["name"]
            index += f"| [{name}]({name}.md) | {method['summary']}{', the default' if method['default'] else ''} |\n"
            rows = "".join(f"| `{option}` | {options[option]} |\n" for option in method["options"])
            self.add(f"methods/{name}.md", f"""# {name}

{sentence(method['summary'])}{' It is the default.' if method['default'] else ''}

`fusion fuse pan.tif ms.tif fused.tif{'' if method['default'] else ' --method ' + name}`

![pan, the upsampled bands and the result of {name}](../pictures/{name}.png)

*Pan, the upsampled bands and the result on the scene of `fusion sample`: the whole of it, and a detail.*

## Formula

{sentence(method['formula'])}

## Source

{sentence(method['source'])}

## Take it for

{sentence(method['suits'])}

## Leave it

{sentence(method['spares'])}

## Options

Those that not every method takes; [usage](../usage.md#options) has the others.

| option | meaning |
|---|---|
{rows}
## On real scenes

Error at reduced resolution, without a fusion, by this method and by the best one; smaller is better. [Quality](../quality.md)
tells how it is measured.

| scene | upsampled | {name} | the best |
|---|---|---|---|
{ergas(name)}""")
        self.add("methods/index.md", index)

    def options(self):
        """Meanings of options by their names, from the table of fuse; those of guards from their own."""
        meanings = {}
        usage = (self.root / "docs/usage.md").read_text(encoding="utf-8")
        guards = (self.root / "docs/guards.md").read_text(encoding="utf-8")
        for cells in rows(usage.split("\n## fuse\n")[1].split("\n## ")[0]):
            for name in re.findall(r"`(--[a-z-]+)", cells[0]):
                meanings[name] = cells[1]
        for cells in rows(guards):
            for name in re.findall(r"`(--[a-z-]+)", cells[1]):
                if name != "--resample":
                    meanings[name] = f"[guard](../guards.md): {cells[0]}. Without it: {cells[3]}"
        return {name: re.sub(r"\]\((#[^)]*)\)", r"](../usage.md\1)", re.sub(r"\]\(([a-z]+\.md)", r"](../\1", meaning))
                for name, meaning in meanings.items()}

    def ergas(self):
        table = list(rows((self.root / "docs/quality.md").read_text(encoding="utf-8")))
        head = table[0]
        scenes = table[1:next(i for i, cells in enumerate(table) if i and cells[0] == "blur")]

        def of(method):
            column, plain = head.index(method), head.index("upsampled")
            best = [next(i for i, cell in enumerate(cells) if cell.startswith("**")) for cells in scenes]
            return "".join(f"| {cells[0]} | {cells[plain]} | {cells[column]} | {head[i]} {cells[i]} |\n"
                           for cells, i in zip(scenes, best))
        return of

    def add_reference(self):
        self.add("reference.md", "# Public headers\n\nAll classes, functions and records that a program may use, as the headers"
                 " tell of them: [the reference](api/index.html). `#include <fusion_api.h>` has all of C++,"
                 " `#include <fusion_c.h>` is the interface of C.\n\nWhat keeps its meaning between versions,"
                 " [the binary interface](abi.md) tells.\n")


def sentence(text):
    return text[0].upper() + text[1:] + "."


def rows(text):
    """The cells of a document's tables, row by row, without the lines below their heads."""
    for line in text.splitlines():
        if line.startswith("| "):
            yield [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]


def for_mkdocs(text):
    """Lists begin behind an empty line, their inner lists four columns in, and bars in a table's code stand for themselves."""
    lines, fenced = [], False
    for line in text.splitlines():
        if line.lstrip().startswith("```"):
            fenced = not fenced
        if not fenced:
            if re.match(r"- |1\. ", line) and lines and lines[-1].strip() and not re.match(r"- |\d+\. |  ", lines[-1]):
                lines.append("")
            if line.startswith("|"):
                line = re.sub(r"`[^`]*`", lambda code: code[0].replace("\\|", "|"), line)
        lines.append(line)
    return "\n".join(lines) + "\n"


def write(root, pages, site, command):
    """Writes the pages and the site's configuration, and returns the latter's name."""
    import yaml  # Which comes with mkdocs, and may not have been there before.

    methods = json.loads(subprocess.run([command, "methods", "--json"], check=True, stdout=subprocess.PIPE, text=True).stdout)
    pages_of = Site(root, pages)
    pages_of.add_documents()
    pages_of.add_pictures(root / "demo")
    pages_of.add_examples()
    pages_of.add_methods(methods)
    pages_of.add_reference()

    config = yaml.safe_load((root / "docs/mkdocs.yml").read_text(encoding="utf-8"))
    listed = [{"Which method?": "which-method.md"}, {"All of them": "methods/index.md"}] + [{method["name"]: f"methods/{method['name']}.md"} for method in methods]
    config["nav"] = [{"Methods": listed} if "Methods" in entry else entry for entry in config["nav"]]
    # The pages work as files, too.
    config |= {"docs_dir": str(pages), "site_dir": str(site), "use_directory_urls": False}
    name = pathlib.Path(pages).parent / "mkdocs.yml"
    name.write_text(yaml.safe_dump(config, sort_keys=False), encoding="utf-8")
    return name
