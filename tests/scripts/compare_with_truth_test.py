#!/usr/bin/python3
"""The measures of scripts/compare_with_truth.py on tiny images, worked out by hand."""
import importlib.util
import math
import os
import sys
import unittest

try:
    import numpy as np
except ImportError:
    print("skipped: numpy is not installed")
    sys.exit(77)

SCRIPTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts")


def load(name):
    spec = importlib.util.spec_from_file_location(name, os.path.join(SCRIPTS, name + ".py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


measures = load("compare_with_truth")


def image(*bands):
    return np.array(bands, float)


class CompareWithTruth(unittest.TestCase):
    def test_an_image_is_its_own_truth(self):
        truth = np.arange(2 * 9 * 10, dtype=float).reshape(2, 9, 10) + 5.0
        self.assertEqual(measures.ergas(truth, truth, 4), 0.0)
        self.assertAlmostEqual(measures.sam(truth, truth), 0.0, places=5)
        self.assertAlmostEqual(measures.q(truth, truth), 1.0, places=12)

    def test_ergas_weighs_each_band_by_its_mean(self):
        # RMSE 3 of a mean of 10 and 4 of 20: the mean of 0.09 and 0.04 is 0.065.
        truth = image([[10, 10], [10, 10]], [[10, 30], [30, 10]])
        fused = image([[13, 7], [13, 7]], [[14, 26], [34, 6]])
        self.assertAlmostEqual(measures.ergas(truth, fused, 4), 25.0 * math.sqrt(0.065), places=12)
        self.assertAlmostEqual(measures.ergas(truth, fused, 2), 50.0 * math.sqrt(0.065), places=12)

    def test_sam_is_the_mean_angle(self):
        # A right angle, 45 degrees, none (twice as bright), and a pixel without a direction.
        truth = image([[1, 1, 3, 0]], [[0, 0, 4, 0]])
        fused = image([[0, 2, 6, 1]], [[5, 2, 8, 1]])
        self.assertAlmostEqual(measures.sam(truth, fused), (90.0 + 45.0 + 0.0) / 3.0, places=5)

    def test_quality_index_of_one_window(self):
        # Means 2.5 and 3.5, variances 1.25 and 1.25, covariance -1.25:
        # 2 x -1.25 / 2.5 = -1, times 2 x 2.5 x 3.5 / (6.25 + 12.25) = 17.5 / 18.5.
        truth = np.array([[1.0, 2.0], [3.0, 4.0]])
        fused = np.array([[5.0, 4.0], [3.0, 2.0]])
        self.assertAlmostEqual(measures.quality_index(truth, fused, 2), -17.5 / 18.5, places=12)

    def test_quality_index_is_the_mean_of_all_windows(self):
        # In the left window all is even, 10 against 20: 2 x 200 / 500 = 0.8. In the right one the means are 11 and 20;
        # the truth alone varies, so the covariance is 0.
        truth = np.array([[10.0, 10.0, 12.0], [10.0, 10.0, 12.0]])
        fused = np.full((2, 3), 20.0)
        self.assertAlmostEqual(measures.quality_index(truth, fused, 2), (0.8 + 0.0) / 2.0, places=12)

    def test_windows_are_those_of_the_definition(self):
        random = np.random.default_rng(3)
        truth = random.integers(0, 60000, (13, 17)).astype(float)
        fused = truth + random.integers(-900, 900, truth.shape)
        indices = []
        for y in range(13 - 7):
            for x in range(17 - 7):
                t, f = truth[y : y + 8, x : x + 8], fused[y : y + 8, x : x + 8]
                covariance = ((t - t.mean()) * (f - f.mean())).mean()
                indices.append(
                    4 * covariance * t.mean() * f.mean() / ((t.var() + f.var()) * (t.mean() ** 2 + f.mean() ** 2))
                )
        self.assertAlmostEqual(measures.quality_index(truth, fused), np.mean(indices), places=10)

    def test_q_is_the_mean_over_the_bands(self):
        even = np.full((8, 8), 10.0)
        self.assertAlmostEqual(measures.q(np.array([even, even]), np.array([even, 2 * even])), (1.0 + 0.8) / 2, places=12)


if __name__ == "__main__":
    unittest.main()
