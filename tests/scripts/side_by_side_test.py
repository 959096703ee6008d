#!/usr/bin/python3
"""The picture that scripts/side_by_side.py draws of images with known colours."""
import os
import subprocess
import sys
import tempfile
import unittest

try:
    import numpy as np
    from osgeo import gdal
    from PIL import Image
except ImportError as missing:
    print("skipped:", missing)
    sys.exit(77)

gdal.UseExceptions()
SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "side_by_side.py")
SIZE = 101


def write(path, bands):
    file = gdal.GetDriverByName("GTiff").Create(path, SIZE, SIZE, len(bands), gdal.GDT_Float64)
    file.SetGeoTransform((0, 1, 0, SIZE, 0, -1))
    for i, values in enumerate(bands):
        file.GetRasterBand(i + 1).WriteArray(values)


class SideBySide(unittest.TestCase):
    def test_both_colour_panels_have_the_stretch_of_the_multispectral_one(self):
        # From 0 on the left to 100 on the right: 2 is black, 98 white.
        ramp = np.tile(np.arange(SIZE, dtype=float), (SIZE, 1))
        with tempfile.TemporaryDirectory() as folder:
            pan, ms, fused, out = (os.path.join(folder, name) for name in ("pan.tif", "ms.tif", "fused.tif", "out.png"))
            write(pan, [10.0 * ramp])
            write(ms, [ramp, ramp, ramp])
            write(fused, [ramp, ramp + 24.0, ramp - 24.0])
            command = [sys.executable, SCRIPT, pan, ms, fused, out, "--rgb", "1,2,3", "--zoom", "1", "--title", "x"]
            subprocess.run(command, check=True)
            picture = np.asarray(Image.open(out)).astype(int)
        title = picture.shape[0] - SIZE
        self.assertGreater(title, 8)
        self.assertEqual(picture.shape[1], 3 * SIZE + 2 * 4)
        for i in range(3):
            left = i * (SIZE + 4)
            self.assertTrue((picture[:title, left : left + SIZE] < 128).any(), "a title on each panel")
            self.assertEqual(picture[title:, left : left + SIZE].shape[:2], (SIZE, SIZE))

        def shown(value):
            return int(np.clip((value - 2.0) / 96.0, 0.0, 1.0) * 255.0)

        column = 50
        panels = [picture[title + 7, i * (SIZE + 4) + column].tolist() for i in range(3)]
        self.assertEqual(panels[0], [shown(50)] * 3)
        self.assertEqual(panels[1], [shown(50)] * 3)
        self.assertEqual(panels[2], [shown(50), shown(74), shown(26)])


if __name__ == "__main__":
    unittest.main()
