#!/usr/bin/python3
"""How far fused images are from the truth, as one table.

usage: compare_with_truth.py TRUTH FUSED... --ratio N

TRUTH and FUSED have the same grid and bands; N is the pixel of the multispectral image over that of the pan image. A
row of the table is named after its file.
"""
import argparse
import os
import sys

import numpy as np


def ergas(truth, fused, ratio):
    """Relative global error, 0 where the images are equal: 100 / ratio x root of the mean over the bands of
    (RMSE / mean of the truth)^2.

    L. Wald, Quality of high resolution synthesised images: is there a simple criterion?, 2000.
    """
    errors = np.sqrt(((fused - truth) ** 2).mean(axis=(1, 2)))
    return 100.0 / ratio * np.sqrt(((errors / truth.mean(axis=(1, 2))) ** 2).mean())


def sam(truth, fused):
    """Spectral angle in degrees, 0 where the bands of every pixel have the same proportions: the mean over the pixels
    of the angle between both as vectors of their bands. A pixel that is 0 in all bands of either has no direction and
    does not count.

    R. H. Yuhas, A. F. H. Goetz, J. W. Boardman, Discrimination among semi-arid landscape endmembers using the spectral
    angle mapper algorithm, 1992.
    """
    lengths = np.sqrt((truth**2).sum(axis=0) * (fused**2).sum(axis=0))
    counts = lengths > 0.0
    cosines = (truth * fused).sum(axis=0)[counts] / lengths[counts]
    return np.degrees(np.arccos(np.clip(cosines, -1.0, 1.0))).mean()


def window_sums(values, size):
    """Sums over all windows of size x size that lie in a matrix wholly."""
    for _ in range(2):
        sums = np.cumsum(values, axis=0)
        values = sums[size - 1 :].copy()
        values[1:] -= sums[:-size]
        values = values.T
    return values


def quality_index(truth, fused, size=8):
    """Universal image quality index of one band, 1 where both are equal: the mean over all windows of size x size of
    [2 cov / (var + var)] x [2 mean mean / (mean^2 + mean^2)], where a factor that is 0 / 0 counts as 1.

    Z. Wang, A. C. Bovik, A universal image quality index, 2002.
    """
    n = size * size
    # Differences from a value in the middle keep the digits of the squares.
    middle = np.floor(truth.mean())
    t, f = truth - middle, fused - middle
    mean_t, mean_f = window_sums(t, size) / n, window_sums(f, size) / n
    covariance = window_sums(t * f, size) / n - mean_t * mean_f
    variances = window_sums(t * t + f * f, size) / n - mean_t**2 - mean_f**2
    # What cancels out to less than the rounding of its terms is 0.
    nothing = 1e-12 * (mean_t**2 + mean_f**2)
    variances[variances <= nothing] = 0.0
    covariance[variances == 0.0] = 0.0
    mean_t, mean_f = mean_t + middle, mean_f + middle

    def factor(product, squares):
        return np.divide(2.0 * product, squares, out=np.ones_like(squares), where=squares != 0.0)

    return (factor(covariance, variances) * factor(mean_t * mean_f, mean_t**2 + mean_f**2)).mean()


def q(truth, fused):
    """The mean of quality_index over the bands."""
    return np.mean([quality_index(t, f) for t, f in zip(truth, fused)])


def read(path):
    """A raster as an array of (bands, rows, columns)."""
    from osgeo import gdal

    gdal.UseExceptions()
    values = gdal.Open(path).ReadAsArray().astype(float)
    return values if values.ndim == 3 else values[np.newaxis]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("truth")
    parser.add_argument("fused", nargs="+")
    parser.add_argument("--ratio", type=float, required=True)
    args = parser.parse_args()

    truth = read(args.truth)
    print(f"{'':16}{'ERGAS':>8}{'SAM':>8}{'Q':>8}")
    for path in args.fused:
        fused = read(path)
        if fused.shape != truth.shape:
            sys.exit(f"{path} has not the size and bands of {args.truth}")
        name = os.path.splitext(os.path.basename(path))[0]
        print(f"{name:16}{ergas(truth, fused, args.ratio):8.3f}{sam(truth, fused):8.3f}{q(truth, fused):8.4f}")
    print("Of ERGAS and SAM (in degrees) less is better, 0 is the truth; of Q more, 1 is the truth.")


if __name__ == "__main__":
    main()
