"""exported_symbols.py LIBRARY SOURCE HEADER...: whether the library shows just what its public headers mark as public."""
import pathlib
import re
import subprocess
import sys

library, source, headers = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3:]

MARKED = re.compile(r"(?:\b(?:class|struct)\s+FUSION_API\s+(\w+))|(?:\bFUSION_API\s+[^;{]*?(\w+)\()")
NAMED = re.compile(r"^(?:vtable for |typeinfo (?:name )?for |(?:non-virtual|virtual) thunk to )?(?:(?:fusion|platform|quality)::)?(\w+)")

marked = set()
for header in headers:
    text = re.sub(r"//[^\n]*", "", (source / header).read_text(encoding="utf-8"))
    text = re.sub(r"#define FUSION_API.*", "", text)
    marked |= {name for groups in MARKED.findall(text) for name in groups if name}

listing = subprocess.run(["nm", "-DC", "--defined-only", library], check=True, stdout=subprocess.PIPE, text=True).stdout
shown = {}
for line in listing.splitlines():
    symbol = line.split(" ", 2)[2]
    shown.setdefault(NAMED.match(symbol).group(1) if NAMED.match(symbol) else symbol, symbol)

wrong = [f"shown, but not marked in a public header: {shown[name]}" for name in sorted(set(shown) - marked)]
wrong += [f"marked in a public header, but not shown: {name}" for name in sorted(marked - set(shown))]
print("\n".join(wrong))
print(f"{len(listing.splitlines())} symbols of {len(marked)} classes and functions")
sys.exit(1 if wrong or not marked else 0)
