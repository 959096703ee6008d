"""documented_commands.py DOCUMENT FUSION [SCENES]: whether the commands of a document run.

Every section's blocks of "sh" run in order; one that makes a scene first does so in a folder of its own. With SCENES, a folder of folders
with pan.tif and ms.tif, sections named below take a real scene in the place of the made-up one. Ends with 77, which
counts as skipped, where GDAL's programs are not installed."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

document, fusion = pathlib.Path(sys.argv[1]), os.path.abspath(sys.argv[2])
scenes = pathlib.Path(sys.argv[3]).resolve() if len(sys.argv) > 3 and sys.argv[3] != "--show" else None

REAL = {"Landsat 8 and 9": "l8_momotombo_4band", "WorldView and its like": "wv2_rotterdam_r4",
        "Swaths with no data around them": "l8_madrid_3band", "Different coordinate systems": "l8_madrid_3band"}
# A check that warns has done its work.
SHELL = f"""set -euo pipefail
fusion() {{
  if [ "$1" = sample ] && [ -n "${{SCENE:-}}" ]; then mkdir "$2" && cp "$SCENE"/pan.tif "$SCENE"/ms.tif "$2"; return; fi
  "{fusion}" "$@" || [ "$1:$?" = check:3 ]
}}
"""


def blocks(section):
    return re.findall(r"^```sh\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)


if not all(map(shutil.which, ("gdal_translate", "gdalwarp", "ogr2ogr"))):
    print("GDAL's programs are not installed: the commands are not tried")
    sys.exit(77)

if scenes and not scenes.is_dir():
    print(f"{scenes} is not there: the commands are not tried on real scenes")
    sys.exit(77)

faults, count, folder = [], 0, None
for section in re.split(r"^## ", document.read_text(encoding="utf-8"), flags=re.MULTILINE):
    title, commands = section.split("\n", 1)[0], blocks(section)
    if not commands:
        continue
    real = scenes / REAL[title] if scenes and title in REAL else None
    if scenes and not (real and real.exists()):
        continue
    count += 1
    if "fusion sample" in commands[0]:
        folder = tempfile.TemporaryDirectory()
    run = subprocess.run(["bash", "-c", SHELL + "\n".join(commands)], cwd=folder.name, text=True, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, env={**os.environ, "SCENE": str(real) if real else ""})
    if "--show" in sys.argv:
        print(f"== {title}\n{run.stdout}")
    if run.returncode:
        faults.append(f"{document.name}, {title}: status {run.returncode}\n{run.stdout}")
    faults += [f"{document.name}, {title}: {line}" for line in run.stdout.splitlines() if line.startswith("ERROR")]

print("\n".join(faults) or f"the commands of {count} sections run")
sys.exit(1 if faults or not count else 0)
