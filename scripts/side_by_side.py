#!/usr/bin/python3
"""Pan, upsampled multispectral and fused image side by side as one PNG, for looking at a result.

usage: side_by_side.py PAN MS FUSED OUT.png [--rgb 3,2,1] [--window XOFF,YOFF,XSIZE,YSIZE] [--zoom N]

The window counts in pixels of the fused image. Each panel is stretched between its own 2nd and 98th percentiles.
"""
import argparse

import numpy as np
from osgeo import gdal

gdal.UseExceptions()


def window_of(path, bounds, size, crs, bands, resampling):
    """The bands of a raster on the fused image's grid, as an array of (rows, columns, bands)."""
    options = {"format": "MEM", "width": size[0], "height": size[1], "resampleAlg": resampling, "outputBounds": bounds}
    if crs:
        options["dstSRS"] = crs
    data = gdal.Warp("", path, **options)
    return np.dstack([data.GetRasterBand(b).ReadAsArray().astype(float) for b in bands])


def stretch(image):
    """To 0..255 between the 2nd and 98th percentile of each band."""
    out = np.empty(image.shape, np.uint8)
    for b in range(image.shape[2]):
        low, high = np.nanpercentile(image[..., b], (2, 98))
        scaled = (image[..., b] - low) / max(high - low, 1e-12) * 255.0
        out[..., b] = np.clip(np.nan_to_num(scaled), 0, 255).astype(np.uint8)
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("pan", "ms", "fused", "out"):
        parser.add_argument(name)
    parser.add_argument("--rgb", default="3,2,1", help="bands of the colours, counted from 1")
    parser.add_argument("--window", help="pixels of the fused image; default: a square in the middle")
    parser.add_argument("--zoom", type=int, default=2)
    args = parser.parse_args()

    fused = gdal.Open(args.fused)
    rgb = [int(b) for b in args.rgb.split(",")]
    if args.window:
        xoff, yoff, xsize, ysize = (int(v) for v in args.window.split(","))
    else:
        xsize = min(fused.RasterXSize, 320)
        ysize = min(fused.RasterYSize, 320)
        xoff = (fused.RasterXSize - xsize) // 2
        yoff = (fused.RasterYSize - ysize) // 2
    gt = fused.GetGeoTransform()
    bounds = (gt[0] + xoff * gt[1], gt[3] + (yoff + ysize) * gt[5], gt[0] + (xoff + xsize) * gt[1], gt[3] + yoff * gt[5])
    crs = fused.GetProjection()
    size = (xsize, ysize)

    panels = [
        np.repeat(stretch(window_of(args.pan, bounds, size, crs, [1], "near")), 3, axis=2),
        stretch(window_of(args.ms, bounds, size, crs, rgb, "cubic")),
        stretch(np.dstack([fused.GetRasterBand(b).ReadAsArray(xoff, yoff, xsize, ysize).astype(float) for b in rgb])),
    ]
    gap = np.full((ysize, 4, 3), 255, np.uint8)
    picture = np.hstack([panels[0], gap, panels[1], gap, panels[2]])
    picture = picture.repeat(args.zoom, axis=0).repeat(args.zoom, axis=1)

    memory = gdal.GetDriverByName("MEM").Create("", picture.shape[1], picture.shape[0], 3, gdal.GDT_Byte)
    for b in range(3):
        memory.GetRasterBand(b + 1).WriteArray(picture[..., b])
    gdal.SetConfigOption("GDAL_PAM_ENABLED", "NO")
    gdal.GetDriverByName("PNG").CreateCopy(args.out, memory)
    print(args.out)


if __name__ == "__main__":
    main()
