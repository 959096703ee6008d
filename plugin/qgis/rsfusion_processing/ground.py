"""Which pixels of an image an extent covers."""
import math

# An extent that was made of pixels' edges takes no further row for a rounding.
SLACK = 1e-6


def window_of(extent, transform):
    """[xoff, yoff, xsize, ysize] of the pixels that (xmin, ymin, xmax, ymax) touches, by GDAL's six numbers.

    A ValueError where the image is turned, so that an extent is no window of it.
    """
    xmin, ymin, xmax, ymax = extent
    left, width, row_shift, top, column_shift, height = transform
    if row_shift or column_shift or not width or not height:
        raise ValueError("The pan image is turned: an extent is no window of it. Give an area of interest instead.")
    columns = sorted(((xmin - left) / width, (xmax - left) / width))
    rows = sorted(((ymin - top) / height, (ymax - top) / height))
    first = [math.floor(side[0] + SLACK) for side in (columns, rows)]
    behind = [math.ceil(side[1] - SLACK) for side in (columns, rows)]
    return [*first, *(max(1, end - begin) for begin, end in zip(first, behind))]
