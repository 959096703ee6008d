"""Fuses a pair of images as NumPy arrays, and says how well: main.py [FOLDER]"""
import sys
import tempfile

import rsfusion

folder = sys.argv[1] if len(sys.argv) > 1 else tempfile.mkdtemp()
rsfusion.sample(folder, size=512, overwrite=True)
pan, ms = f"{folder}/pan.tif", f"{folder}/ms.tif"

for warning in rsfusion.check(pan, ms).warnings:
    print(warning.text, warning.advice)

best = rsfusion.assess(pan, ms, protocol="wald").best
fused = rsfusion.fuse(pan, ms, method=best)  # (bands, rows, columns)
print(best, fused.shape, fused.dtype)

report = rsfusion.fuse(pan, ms, f"{folder}/fused.tif", method=best, overwrite=True)
figures = rsfusion.evaluate(pan, ms, report.output, metric="statistics").statistics
for band, correlation in enumerate(figures.m_pCorrelation, 1):
    print(f"band {band}: correlation {correlation:.3f} with the multispectral one")
