# SPDX-License-Identifier: MIT
"""Laying one mesh onto another: the warp, the closest place, and how shifts spread over a mesh."""
import unittest

import numpy as np

from training.data.register_shapes import Mesh, Surface, nearest, smooth_warp, spread, triangles_of


def grid(side):
    """A plane of squares at z = 0, side x side points, a unit apart."""
    at = np.arange(side)
    points = np.stack([*np.meshgrid(at, at), np.zeros((side, side))], axis=2).reshape(-1, 3).astype(float)
    corner = (at[:-1, None] * side + at[None, :-1]).reshape(-1)
    return points, np.stack([corner, corner + 1, corner + side + 1, corner + side], axis=1)


class Warp(unittest.TestCase):
    def test_landmarks_go_where_they_should_and_straight_maps_stay_straight(self):
        random = np.random.default_rng(1)
        sources = random.normal(size=(12, 3))
        goals = sources + 0.1 * random.normal(size=(12, 3))
        np.testing.assert_allclose(smooth_warp(sources, goals)(sources), goals, atol=1e-3)
        turned = sources @ np.array([[0, 2, 0], [-2, 0, 0], [0, 0, 1.5]]) + (1, 2, 3)
        others = random.normal(size=(5, 3))
        expected = others @ np.array([[0, 2, 0], [-2, 0, 0], [0, 0, 1.5]]) + (1, 2, 3)
        np.testing.assert_allclose(smooth_warp(sources, turned)(others), expected, atol=1e-6)


class Closest(unittest.TestCase):
    def test_places_above_a_plane_fall_onto_it(self):
        points, faces = grid(8)
        triangles, face_of = triangles_of(faces)
        self.assertEqual(len(triangles), 2 * len(faces))
        self.assertEqual(face_of.max(), len(faces) - 1)
        surface = Surface(points, triangles, np.ones(len(triangles), bool))
        queries = np.random.default_rng(2).uniform(0.5, 6.5, (50, 3)) * (1, 1, 0.1)
        triangle, shares, places = surface.closest(queries)
        np.testing.assert_allclose(places, queries * (1, 1, 0), atol=1e-9)
        again = (points[triangles[triangle]] * shares[..., None]).sum(1)
        np.testing.assert_allclose(again, places, atol=1e-9)

    def test_a_triangle_among_squares_is_one(self):
        triangles, face_of = triangles_of(np.array([[0, 1, 2, 3], [1, 4, 2, -1]]))
        self.assertEqual(triangles.tolist(), [[0, 1, 2], [1, 4, 2], [0, 2, 3]])
        self.assertEqual(face_of.tolist(), [0, 1, 0])

    def test_the_nearest_come_first(self):
        points, _ = grid(5)
        found = nearest(np.array([[1.1, 2.0, 0.3]]), points, 2)
        self.assertEqual(points[found[0, 0]].tolist(), [1, 2, 0])
        self.assertEqual(points[found[0, 1]].tolist(), [2, 2, 0])


class Spreading(unittest.TestCase):
    def test_unknown_points_take_shares_that_sum_to_one(self):
        points, faces = grid(6)
        known = np.ones(len(points), bool)
        known[7] = False
        unknown, near, shares = spread(points, known, faces)
        self.assertEqual(unknown.tolist(), [7])
        self.assertNotIn(7, near[0])
        self.assertAlmostEqual(shares.sum(), 1)

    def test_the_mean_around_is_weighted(self):
        points, faces = grid(3)
        mesh = Mesh(faces, len(points))
        values = np.zeros((9, 3))
        values[1] = (4, 0, 0)
        weights = np.ones(9)
        weights[3] = 3
        mean, weight = mesh.mean_around(values, weights)
        # The corner's neighbours: 1, which counts once, and 3, which counts three times.
        self.assertAlmostEqual(mean[0, 0], 1.0)
        self.assertAlmostEqual(weight[0], 4.0)


if __name__ == "__main__":
    unittest.main()
