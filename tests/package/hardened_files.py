"""hardened_files.py PROGRAM LIBRARY [MODULE]: whether the built files carry what they are to be hardened with."""
import re
import subprocess
import sys

files = [argument for argument in sys.argv[1:] if argument]


def readelf(*arguments):
    return subprocess.run(["readelf", "--wide", *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout


def lacks(path):
    headers, dynamic, symbols = readelf("--program-headers", path), readelf("--dynamic", path), readelf("--dyn-syms", path)
    stack = re.search(r"^ *GNU_STACK +(?:0x[0-9a-f]+ +){5}(\S+)", headers, re.MULTILINE)
    return [what for what, there in {
        "read-only relocations (GNU_RELRO)": "GNU_RELRO" in headers,
        "binding before the first call (NOW)": re.search(r"\bNOW\b", dynamic),
        "a stack that is not executed": stack and "E" not in stack.group(1),
        "guarded stacks (__stack_chk_fail)": "__stack_chk_fail" in symbols,
        "checked functions (as __memcpy_chk)": re.search(r"\b__\w+_chk\b", symbols),
        "a place that changes (PIE)": "Type:                              DYN" in readelf("--file-header", path),
        "a text without relocations": "TEXTREL" not in dynamic,
    }.items() if not there]


wrong = [f"{path} lacks {what}" for path in files for what in lacks(path)]
print("\n".join(wrong) or "hardened")
sys.exit(1 if wrong else 0)
