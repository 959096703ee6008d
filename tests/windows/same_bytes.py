"""same_bytes.py LINUX_COMMAND IN_WINE WINE_FOLDER WINDOWS_COMMAND: whether every method makes the same of the same images.

The command for Linux makes a scene and fuses it, the one for Windows fuses the same scene. Files must be the same byte for
byte; of formats whose files are packed by another version of a library, the pixels, as GDAL on Linux reads them.
"""
import hashlib
import os
import pathlib
import subprocess
import sys
import tempfile

linux, in_wine, wine_folder, windows = map(os.path.abspath, sys.argv[1:5])
if not os.access(linux, os.X_OK):
    print(f"{linux} is not built, which the outputs are compared with")
    sys.exit(77)

FORMATS = {"GeoTIFF": ("tif", [], False), "Imagine": ("img", [], False), "ENVI": ("dat", [], False),
           "GeoTIFF with DEFLATE": ("tif", ["--co", "COMPRESS=DEFLATE"], True)}
METHODS = 8
# Outputs tell when they were made.
environment = dict(os.environ, SOURCE_DATE_EPOCH="1700000000")
wrong = []


def run(*command, folder):
    done = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", check=False)
    if done.returncode != 0:
        wrong.append(f"{' '.join(map(str, command))} ended with {done.returncode}: {done.stdout}")
    return done.stdout


def content(file, pixels):
    if not pixels:
        return hashlib.sha256(file.read_bytes()).hexdigest() if file.exists() else f"no {file.name}"
    return [line for line in run("gdalinfo", "-checksum", file.name, folder=file.parent).splitlines() if "Checksum" in line]


with tempfile.TemporaryDirectory(prefix="fusion_same_") as name:
    folder = pathlib.Path(name)
    run(linux, "sample", ".", "--size", "200", "--quiet", folder=folder)
    methods = run(linux, "methods", "--names", folder=folder).split()
    if len(methods) != METHODS:
        wrong.append(f"{len(methods)} methods")
    for title, (extension, options, pixels) in FORMATS.items():
        same = 0
        for method in methods:
            contents = []
            # Under one name in one folder, since outputs tell what they were made by.
            for command in [linux], [in_wine, wine_folder, windows]:
                run(*command, "fuse", "pan.tif", "ms.tif", f"out.{extension}", "--method", method, "--quiet",
                    "--overwrite", *options, folder=folder)
                contents.append(content(folder / f"out.{extension}", pixels))
            same += contents[0] == contents[1]
            if contents[0] != contents[1]:
                wrong.append(f"{title} by {method}: {contents[0]} on Linux, {contents[1]} on Windows")
        print(f"{title}: the same {'pixels' if pixels else 'bytes'} by {same} of {len(methods)} methods")
print("\n".join(wrong))
sys.exit(1 if wrong else 0)
