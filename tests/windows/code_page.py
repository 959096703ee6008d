"""code_page.py IN_WINE WINE_FOLDER TEST_PROGRAM: narrow text and Chinese names where the code page is 936, and where 1252.

Wine takes the code page from the locale; one for Chinese is made here, for which nobody need be an administrator.
"""
import os
import shutil
import subprocess
import sys
import tempfile

in_wine, wine_folder, program = sys.argv[1:4]
if not os.path.exists(program):
    print(f"{program} is not built")
    sys.exit(77)
if not shutil.which("localedef"):
    print("no locale can be made here")
    sys.exit(77)
with tempfile.TemporaryDirectory() as locales:
    made = subprocess.run(["localedef", "--no-archive", "-i", "zh_CN", "-f", "UTF-8", f"{locales}/zh_CN.UTF-8"], check=False)
    if made.returncode != 0:
        print("there is no source for the locale zh_CN here")
        sys.exit(77)
    for locale in "zh_CN.UTF-8", "C.UTF-8":
        done = subprocess.run([in_wine, wine_folder, program, "--gtest_filter=TextConversion.*:TempFiles.*:Files.*"],
                              env=dict(os.environ, LC_ALL=locale, LOCPATH=locales), stdout=subprocess.PIPE, text=True,
                              encoding="utf-8", errors="replace", check=False)
        print(f"{locale}: {done.returncode}\n{done.stdout}")
        if done.returncode != 0 or "[       OK ] TextConversion.NarrowTextIsInTheActiveCodePage" not in done.stdout:
            sys.exit(1)
