"""exported_symbols.py LIBRARY SOURCE HEADER... [--like LIBRARY]: whether the library shows just what its public headers
mark as public, and, of a DLL, whether it shows all that the library named, one for Linux, does."""
import pathlib
import re
import subprocess
import sys

arguments = sys.argv[1:]
like = None
if "--like" in arguments:
    like = arguments[arguments.index("--like") + 1]
    del arguments[-2:]
library, source, headers = arguments[0], pathlib.Path(arguments[1]), arguments[2:]

MARKED = re.compile(r"(?:\b(?:class|struct)\s+FUSION_API\s+(\w+))|(?:\bFUSION_API\s+[^;{]*?(\w+)\()")
TABLE = "[Ordinal/Name Pointer]"
NAMED = re.compile(r"^(?:vtable for |typeinfo (?:name )?for |(?:non-virtual|virtual) thunk to )?(?:(?:fusion|platform|quality)::)?(\w+)")
EXPORTED = re.compile(r"^\s*\[ *\d+\](?: \+base\[ *\d+\])? +(?:[0-9a-f]+ )?([A-Za-z_?]\S*)$", re.M)
# What passes messages on inside the process, where the system does not.
LINUX_ALONE = {"RegisterWindowProcedure", "SendMessageW"}


def symbols(file):
    """What a library shows, as C++ writes it."""
    if not file.endswith(".dll"):
        lines = subprocess.run(["nm", "-DC", "--defined-only", file], check=True, stdout=subprocess.PIPE, text=True).stdout
        return [line.split(" ", 2)[2] for line in lines.splitlines()]
    table = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", file], check=True, stdout=subprocess.PIPE, text=True).stdout
    names = "\n".join(EXPORTED.findall(table[table.index(TABLE):]))
    return subprocess.run(["c++filt"], check=True, stdout=subprocess.PIPE, text=True, input=names).stdout.split("\n")


def plain(symbol):
    """Without parameters, whose types have other names on other systems."""
    return symbol.split("(")[0].split("[abi")[0]


def of_class(symbol):
    return NAMED.match(symbol).group(1) if NAMED.match(symbol) else symbol


marked = set()
for header in headers:
    text = re.sub(r"//[^\n]*", "", (source / header).read_text(encoding="utf-8"))
    text = re.sub(r"#define FUSION_API.*", "", text)
    marked |= {name for groups in MARKED.findall(text) for name in groups if name}
if library.endswith(".dll"):
    marked -= LINUX_ALONE

listing = symbols(library)
shown = {}
for symbol in listing:
    shown.setdefault(of_class(symbol), symbol)

wrong = [f"shown, but not marked in a public header: {shown[name]}" for name in sorted(set(shown) - marked)]
wrong += [f"marked in a public header, but not shown: {name}" for name in sorted(marked - set(shown))]
if like:
    # The names of types are not exported apart from what is told of them there.
    missing = {plain(symbol) for symbol in symbols(like) if not symbol.startswith("typeinfo name for ")}
    missing -= {plain(symbol) for symbol in listing}
    wrong += [f"shown on Linux alone: {name}" for name in sorted(missing) if name not in LINUX_ALONE]
print("\n".join(wrong))
print(f"{len(listing)} symbols of {len(marked)} classes and functions")
sys.exit(1 if wrong or not marked else 0)
