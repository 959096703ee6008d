#!/usr/bin/env python3
"""Packs the plugin as QGIS installs it: make_zip.py FILE.zip [VERSION]; a VERSION must be that of metadata.txt."""
import configparser
import pathlib
import sys
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
PLUGIN = HERE / "rsfusion_processing"
LICENSE = HERE.parent.parent / "LICENSE"
# What the plugins' site demands of metadata.txt.
REQUIRED = (
    "name description about version qgisMinimumVersion author email homepage tracker repository license tags icon"
).split()
KINDS = {".py", ".svg", ".txt"}


def metadata():
    parser = configparser.ConfigParser()
    parser.optionxform = str
    parser.read(PLUGIN / "metadata.txt", encoding="utf-8")
    return dict(parser["general"])


def files():
    """The files by their names in the archive. Texts alone, in the plugin's folder."""
    found = {f"{PLUGIN.name}/LICENSE": LICENSE}
    for path in sorted(PLUGIN.rglob("*")):
        if path.is_file() and "__pycache__" not in path.parts:
            if path.suffix not in KINDS:
                raise ValueError(f"{path} does not belong into a plugin")
            found[f"{PLUGIN.name}/{path.relative_to(PLUGIN).as_posix()}"] = path
    return found


def make(archive):
    missing = [name for name in REQUIRED if not metadata().get(name)]
    if missing:
        raise ValueError(f"metadata.txt has no {', '.join(missing)}")
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as packed:
        for name, path in files().items():
            # Of one time and mode, so that the same files give the same bytes.
            entry = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))
            entry.external_attr = 0o100644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            packed.writestr(entry, path.read_bytes())


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    if sys.argv[2:] and sys.argv[2] != metadata()["version"]:
        sys.exit(f"metadata.txt has the version {metadata()['version']}, not {sys.argv[2]}")
    make(sys.argv[1])
    print(sys.argv[1])
