#!/usr/bin/python3
"""Pan, upsampled multispectral and fused image side by side as one PNG, for looking at a result.

usage: side_by_side.py PAN MS FUSED OUT.png [--title TEXT] [--rgb 3,2,1] [--window XOFF,YOFF,XSIZE,YSIZE] [--zoom N]

The window counts in pixels of the fused image. Both colour panels have one stretch, each band's from its 2nd to its
98th percentile in the multispectral panel, so that another colour in the fused image is seen as such.
"""
import argparse

import numpy as np
from osgeo import gdal
from PIL import Image, ImageDraw, ImageFont

gdal.UseExceptions()

GAP = 4
TITLE_HEIGHT = 15


def window_of(path, bounds, size, crs, bands, resampling):
    """The bands of a raster on the fused image's grid, as an array of (rows, columns, bands)."""
    options = {"format": "MEM", "width": size[0], "height": size[1], "resampleAlg": resampling, "outputBounds": bounds}
    if crs:
        options["dstSRS"] = crs
    data = gdal.Warp("", path, **options)
    return np.dstack([data.GetRasterBand(b).ReadAsArray().astype(float) for b in bands])


def limits_of(image):
    """The 2nd and the 98th percentile of each band."""
    return np.nanpercentile(image, (2, 98), axis=(0, 1))


def stretch(image, limits):
    """To 0..255 between the limits of each band."""
    low, high = limits
    scaled = (image - low) / np.maximum(high - low, 1e-12) * 255.0
    return np.clip(np.nan_to_num(scaled), 0, 255).astype(np.uint8)


def draw(panels, titles, zoom):
    """The panels in a row on white, each enlarged by whole pixels, under its title."""
    height, width = panels[0].shape[:2]
    picture = Image.new("RGB", (len(panels) * (width + GAP) - GAP, height + TITLE_HEIGHT), "white")
    writer = ImageDraw.Draw(picture)
    for i, (panel, title) in enumerate(zip(panels, titles)):
        left = i * (width + GAP)
        picture.paste(Image.fromarray(panel), (left, TITLE_HEIGHT))
        writer.text((left + 2, 2), title, fill="black", font=ImageFont.load_default())
    return picture.resize((picture.width * zoom, picture.height * zoom), Image.NEAREST)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("pan", "ms", "fused", "out"):
        parser.add_argument(name)
    parser.add_argument("--title", default="fused", help="of the fused panel")
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

    pan = window_of(args.pan, bounds, size, crs, [1], "near").repeat(3, axis=2)
    ms = window_of(args.ms, bounds, size, crs, rgb, "cubic")
    result = np.dstack([fused.GetRasterBand(b).ReadAsArray(xoff, yoff, xsize, ysize).astype(float) for b in rgb])
    colours = limits_of(ms)
    panels = [stretch(pan, limits_of(pan)), stretch(ms, colours), stretch(result, colours)]
    draw(panels, ["pan", "multispectral", args.title], args.zoom).save(args.out)


if __name__ == "__main__":
    main()
