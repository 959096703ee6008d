"""debian_packages.py CPACK BUILD WORK VERSION HEADER...: whether the Debian packages of a build hold what they should.

Ends with 77, which counts as skipped, where Debian's programs for packages are not installed."""
import pathlib
import re
import shutil
import subprocess
import sys

cpack, build, work, version, headers = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]), sys.argv[4], sys.argv[5:]
major = version.split(".")[0]
faults = []

if not all(map(shutil.which, ("dpkg-deb", "dpkg-shlibdeps"))):
    print("dpkg-dev is not installed: the packages are not tried")
    sys.exit(77)


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def expect(right, sentence):
    if not right:
        faults.append(sentence)


shutil.rmtree(work, ignore_errors=True)
work.mkdir(parents=True)
run(cpack, "-G", "DEB", "--config", str(build / "CPackConfig.cmake"), "-B", str(work))
packages = {path.name.split("_")[0]: path for path in work.glob("*.deb")}
wanted = {f"libfusion{major}", "libfusion-dev", "fusion-tools"}
if list(build.glob("python/rsfusion/_core*")):
    wanted.add("python3-rsfusion")
expect(set(packages) == wanted, f"packages are {sorted(packages)}")

# What each is to hold, as patterns for whole names; every file fits one, and every pattern a file.
LIB = r"usr/lib(?:/[a-z0-9_]+-linux-[a-z0-9]+)?"


def common(package):
    return [rf"usr/share/doc/{package}/{name}" for name in (r"copyright", r"changelog\.gz", r"changelog\.Debian\.gz")] + [
        rf"usr/share/lintian/overrides/{package}"]


CONTENTS = {
    f"libfusion{major}": [rf"{LIB}/libfusion\.so\.{major}", rf"{LIB}/libfusion\.so\.{re.escape(version)}"],
    "libfusion-dev": [rf"{LIB}/libfusion\.so", rf"{LIB}/pkgconfig/fusion\.pc", rf"{LIB}/cmake/Fusion/FusionConfig\.cmake",
                      rf"{LIB}/cmake/Fusion/FusionConfigVersion\.cmake", rf"{LIB}/cmake/Fusion/FusionTargets\.cmake",
                      rf"{LIB}/cmake/Fusion/FusionTargets-[a-z]+\.cmake"]
                     + [rf"usr/include/fusion/{re.escape(header)}" for header in headers]
                     + [rf"usr/share/doc/libfusion-dev/examples/{name}/.+" for name in ("brovey", "fuse", "fuse_c", "own_method", "python")],
    "python3-rsfusion": [rf"usr/lib/python3[.0-9]*/dist-packages/rsfusion/{name}" for name in (
        r"\w+\.py", r"\w+\.pyi", r"py\.typed", r"_core\.\S+\.so")],
    "fusion-tools": [r"usr/bin/fusion", r"usr/share/man/man1/fusion\.1\.gz", r"usr/share/bash-completion/completions/fusion",
                     r"usr/share/zsh/site-functions/_fusion", r"usr/share/fish/vendor_completions\.d/fusion\.fish"],
}
# What a package is known by to others: its control fields and files.
CONTROL = {
    f"libfusion{major}": ({"Section": "libs", "Depends": r".*\blibc6 \(.*\blibgdal.*"}, {"control", "md5sums", "shlibs", "triggers"}),
    "libfusion-dev": ({"Section": "libdevel", "Depends": rf"libfusion{major} \(= {re.escape(version)}-1\)"}, {"control", "md5sums"}),
    "fusion-tools": ({"Section": "science", "Depends": r".*\blibc6 \(.*\blibgdal.*"}, {"control", "md5sums"}),
    "python3-rsfusion": ({"Section": "python",
                          "Depends": rf".*\blibc6 \(.*\bpython3 \(.*\bpython3-numpy, libfusion{major} \(= {re.escape(version)}-1\)"},
                         {"control", "md5sums", "postinst", "prerm"}),
}

for package, path in packages.items():
    root = work / package
    run("dpkg-deb", "-x", str(path), str(root))
    run("dpkg-deb", "-e", str(path), str(root / "DEBIAN"))
    for line in run("dpkg-deb", "-c", str(path)).splitlines():
        rights, owner = line.split()[:2]
        expect(owner == "root/root", f"{package}: {line} is not root's")
        expect(rights in ("drwxr-xr-x", "-rw-r--r--", "-rwxr-xr-x", "lrwxrwxrwx"), f"{package}: {line}")
    files = [str(found.relative_to(root)) for found in root.rglob("*") if found.is_symlink() or found.is_file()]
    files = [name for name in files if not name.startswith("DEBIAN/")]
    patterns = CONTENTS[package] + common(package)
    for name in files:
        expect(any(re.fullmatch(pattern, name) for pattern in patterns), f"{package} holds {name}")
    for pattern in patterns:
        expect(any(re.fullmatch(pattern, name) for name in files), f"{package} lacks {pattern}")
    for name in files:
        found = root / name
        if not found.is_symlink() and found.read_bytes()[:4] == b"\x7fELF":
            expect(".symtab" not in run("readelf", "--wide", "--sections", str(found)), f"{name} is not stripped")

    fields, control_files = CONTROL[package]
    for field, pattern in {**fields, "Version": re.escape(version) + "-1", "Maintainer": r".+ <\S+@\S+>"}.items():
        value = run("dpkg-deb", "-f", str(path), field).strip()
        expect(re.fullmatch(pattern, value), f"{package}: {field} is {value}")
    description = run("dpkg-deb", "-f", str(path), "Description").splitlines()
    expect(len(description) > 3 and max(map(len, description)) < 81, f"{package}: its description is {description}")
    found = {entry.name for entry in (root / "DEBIAN").iterdir()}
    expect(found == control_files, f"{package}: control files are {sorted(found)}")

library = work / f"libfusion{major}"
expect((library / "DEBIAN/shlibs").read_text() == f"libfusion {major} libfusion{major} (>= {version})\n", "shlibs")
for soname in library.rglob("*.so." + major):
    expect(f"[libfusion.so.{major}]" in run("readelf", "--dynamic", str(soname)), "the soname is another")

print("\n".join(faults) or f"{len(packages)} packages")
sys.exit(1 if faults else 0)
