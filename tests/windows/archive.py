"""archive.py CPACK BUILD IN_WINE FOLDER: whether the archive that cpack makes runs where there is nothing else.

It is unpacked into a folder with Chinese letters on the disk C: of a Windows of its own, which has no other disk: neither
the build tree nor the stage can be reached. There every method fuses an image in degrees with one in metres, for which the
projections' database must be found.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import zipfile

cpack, build, in_wine, place = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3], pathlib.Path(sys.argv[4])
shutil.rmtree(place, ignore_errors=True)
place.mkdir(parents=True)
subprocess.run([cpack, "-G", "ZIP", "-B", place], cwd=build, check=True, stdout=subprocess.DEVNULL)
archive = next(place.glob("fusion-*-win64.zip"))
print(f"{archive.name}: {archive.stat().st_size} bytes")

# Nothing of the user's, nothing of the tests'.
environment = {name: value for name, value in os.environ.items()
               if name in ("PATH", "HOME", "LANG") or name.startswith("LC_")}
environment["WINEPATH"] = ""
wine = place / "wine"


def run(*command):
    done = subprocess.run([in_wine, wine, *command], cwd=wine / "drive_c" if wine.exists() else place, env=environment,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    out, err = done.stdout.decode("utf-8"), done.stderr.decode("utf-8", "replace")
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} ended with {done.returncode}: {out}{err}")
    return out


run("wineboot", "-i")
for disk in (wine / "dosdevices").iterdir():
    if disk.name != "c:":
        disk.unlink()
folder = wine / "drive_c" / "影像 工具"
with zipfile.ZipFile(archive) as packed:
    packed.extractall(folder)
program = next(folder.glob("*/bin/fusion.exe"))
if b"longPathAware" not in program.read_bytes():
    sys.exit("the command does not say that it can have long paths")
inside = "C:\\影像 工具\\" + "\\".join(program.relative_to(folder).parts)
print(run(inside, "--version").strip())
run(inside, "sample", "C:\\景", "--size", "256", "--quiet")
scene = wine / "drive_c" / "景"
subprocess.run(["gdalwarp", "-q", "-t_srs", "EPSG:4326", scene / "ms.tif", scene / "degrees.tif"], check=True)
for method in run(inside, "methods", "--names").split():
    run(inside, "fuse", "C:\\景\\pan.tif", "C:\\景\\degrees.tif", f"C:\\景\\{method}.tif", "--method", method, "--quiet")
    if not (scene / f"{method}.tif").stat().st_size > 256 * 256 * 3:
        sys.exit(f"{method} left no image")
subprocess.run(["/usr/lib/wine/wineserver", "-k"], env=dict(environment, WINEPREFIX=str(wine)), check=False)
shutil.rmtree(wine)
print("every method of an image in degrees")
