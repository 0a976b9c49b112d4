# SPDX-License-Identifier: MIT
"""Lays the base mesh onto a second space of head shapes, so that the renderer can draw people from it.

The second space (vertices, identity and expression components over a mesh of its own) has no skin,
hair or brows; the base mesh has. So its neutral head is registered once: a smooth warp by landmarks,
then steps towards the closest surface, each smoothed over the mesh. Every point of the base mesh
thereby lies in a triangle of the other mesh, and takes over the triangle's components. Points that
have no counterpart (the inside of the mouth, helper geometry of hair) follow their neighbours.

Expressions go over in the same way, but for the lips: they touch, and what lies closest may be the other
lip. There the closest place counts that drops with the jaw as far as the base mesh's own does.

Writes, for `facegen --shapes`: points.npy (numbers of the base mesh's points), neutral.npy (where they
lie on the neutral head), components.npy (how each component moves them, in its deviation), and
expressions.npy with expressions.txt, one name a line (how each expression moves them at full strength).
"""
import argparse
import gzip
import json
from pathlib import Path

import numpy as np

LOWEST = 4.9  # decimetres: below, the base mesh stays as it is
LOWER_TEETH = 19247  # the other head's first vertex of the lower row
ASYMMETRIC_SHARE = 0.5  # half the asymmetry of scans comes from how people held their faces

# Places of the base mesh, on the person's left or in the middle, and landmarks of the other mesh.
LANDMARKS = [
    ((0.437, 7.282, 1.355), ["left_eye_outer"]),
    ((0.168, 7.276, 1.392), ["left_eye_inner"]),
    ((0.311, 7.330, 1.410), [3751, 3756]),
    ((0.331, 7.235, 1.402), [3725, 3732]),
    ((0.0, 7.310, 1.506), ["nose_root"]),
    ((0.0, 7.120, 1.575), ["nose_bridge"]),
    ((0.0, 6.930, 1.681), ["nose_tip"]),
    ((0.0, 6.795, 1.566), ["nose_base"]),
    ((0.151, 6.837, 1.488), ["left_nostril_base"]),
    ((0.266, 6.603, 1.418), ["left_mouth_corner"]),
    ((0.0, 6.710, 1.585), ["upper_lip_top"]),
    ((0.0, 6.608, 1.553), ["upper_lip_inner"]),
    ((0.0, 6.601, 1.540), ["lower_lip_inner"]),
    ((0.0, 6.470, 1.525), ["lower_lip_bottom"]),
    ((0.0, 6.300, 1.490), ["chin_front"]),
    ((0.0, 6.168, 1.378), ["chin_bottom"]),
    ((0.712, 7.109, 0.654), ["left_ear_tragus"]),
    ((0.728, 6.823, 0.579), ["left_ear_lobe_bottom"]),
    ((0.670, 6.838, 0.683), ["left_ear_lobe_attachment"]),
    ((0.770, 7.445, 0.540), ["left_ear_top"]),
    ((0.868, 7.250, 0.370), ["left_ear_rear"]),
    ((0.0, 8.485, 0.600), ["crown"]),
]


def read_base(path):
    """Points, and {group: faces}, of the base mesh."""
    points, groups, group = [], {}, None
    for line in path.read_text().splitlines():
        words = line.split()
        if not words:
            continue
        if words[0] == "v":
            points.append([float(word) for word in words[1:4]])
        elif words[0] == "g":
            group = groups.setdefault(words[1], [])
        elif words[0] == "f":
            group.append([int(word.split("/")[0]) - 1 for word in words[1:5]])
    return np.array(points), {name: np.array(faces) for name, faces in groups.items()}


def triangles_of(faces):
    """Triangles of faces of three (their fourth index is -1) or four corners, and their faces."""
    number = np.arange(len(faces))
    square = faces[:, 3] >= 0
    return (
        np.concatenate([faces[:, [0, 1, 2]], faces[square][:, [0, 2, 3]]]),
        np.concatenate([number, number[square]]),
    )


def normals_of(points, triangles):
    corners = points[triangles]
    area = np.cross(corners[:, 1] - corners[:, 0], corners[:, 2] - corners[:, 0])
    normals = np.zeros_like(points)
    for corner in range(3):
        np.add.at(normals, triangles[:, corner], area)
    return normals / np.maximum(np.linalg.norm(normals, axis=1, keepdims=True), 1e-12)


def nearest(queries, points, count):
    """Numbers of the `count` nearest points of each query, the nearest first."""
    found = []
    for begin in range(0, len(queries), 256):
        some = queries[begin : begin + 256]
        distance = (points**2).sum(1) - 2 * some @ points.T
        few = np.argpartition(distance, count - 1, axis=1)[:, :count]
        order = np.argsort(np.take_along_axis(distance, few, 1), axis=1, kind="stable")
        found.append(np.take_along_axis(few, order, 1))
    return np.concatenate(found)


def smooth_warp(sources, goals):
    """A warp that takes sources to goals and bends as little as it can in between."""
    count = len(sources)
    kernel = np.linalg.norm(sources[:, None] - sources[None], axis=2) + 1e-4 * np.eye(count)
    linear = np.concatenate([np.ones((count, 1)), sources], axis=1)
    system = np.block([[kernel, linear], [linear.T, np.zeros((4, 4))]])
    answer = np.linalg.solve(system, np.concatenate([goals, np.zeros((4, 3))]))

    def warp(points):
        far = np.linalg.norm(points[:, None] - sources[None], axis=2)
        return far @ answer[:count] + np.concatenate([np.ones((len(points), 1)), points], 1) @ answer[count:]

    return warp


class Surface:
    """The other space's neutral mesh, to be asked for the closest place."""

    def __init__(self, points, triangles, outside):
        self.points, self.triangles, self.outside = points, triangles, outside
        self.used = np.unique(triangles)
        self.normals = normals_of(points, triangles)
        around = [[] for _ in range(len(points))]
        for number, triangle in enumerate(triangles):
            for corner in triangle:
                around[corner].append(number)
        most = max(map(len, around))
        self.around = np.array([(a * most)[:most] if a else [0] * most for a in around])

    def closest(self, queries):
        """For each query the triangle, its corners' shares and the place."""
        candidates = self.around[self.used[nearest(queries, self.points[self.used], 4)]]
        candidates = candidates.reshape(len(queries), -1)
        a, b, c = (self.points[self.triangles[candidates, i]] for i in range(3))
        u, v, w = b - a, c - a, queries[:, None] - a
        uu, uv, vv = (u * u).sum(2), (u * v).sum(2), (v * v).sum(2)
        wu, wv = (w * u).sum(2), (w * v).sum(2)
        area = np.maximum(uu * vv - uv * uv, 1e-18)
        second, third = (vv * wu - uv * wv) / area, (uu * wv - uv * wu) / area
        shares = np.stack([1 - second - third, second, third], axis=2).clip(0)
        shares /= shares.sum(2, keepdims=True)
        places = shares[..., :1] * a + shares[..., 1:2] * b + shares[..., 2:] * c
        best = ((places - queries[:, None]) ** 2).sum(2).argmin(1)
        row = np.arange(len(queries))
        return candidates[row, best], shares[row, best], places[row, best]


class Mesh:
    """Which points of the base mesh are joined by an edge."""

    def __init__(self, faces, count):
        edges = np.concatenate([faces[:, [i, (i + 1) % 4]] for i in range(4)])
        edges = np.unique(np.concatenate([edges, edges[:, ::-1]]), axis=0)
        self.start, self.end, self.count = edges[:, 0], edges[:, 1], count
        self.degree = np.bincount(self.start, minlength=count).astype(float)

    def mean_around(self, values, weights):
        """The weighted mean over neighbours, and the sum of weights."""
        total = np.zeros_like(values)
        np.add.at(total, self.start, values[self.end] * weights[self.end, None])
        weight = np.bincount(self.start, weights[self.end], minlength=self.count)
        return total / np.maximum(weight, 1e-9)[:, None], weight


def symmetric_pairs(landmarks, points_of):
    """Sources and goals on both sides of the face."""
    sources, goals = [], []
    for place, names in landmarks:
        goal = np.mean([points_of(name) for name in names], axis=0)
        sources.append(place)
        goals.append(goal)
        if place[0] > 0:
            sources.append((-place[0], *place[1:]))
            goals.append(goal * (-1, 1, 1))
    return np.array(sources), np.array(goals)


def register(base, skin, surface, warp):
    """Where the base mesh's points lie on the other head, and which of them have a counterpart."""
    moved = warp(base)
    mesh = Mesh(skin, len(base))
    on_skin = np.zeros(len(base), bool)
    on_skin[np.unique(skin)] = True
    on_skin &= base[:, 1] > LOWEST
    asked = np.flatnonzero(on_skin)
    square_triangles, _ = triangles_of(skin)
    for smoothing in (40, 30, 20, 12, 8, 5, 3, 2):
        normals = normals_of(moved, square_triangles)
        triangle, shares, places = surface.closest(moved[asked])
        facing = surface.normals[surface.triangles[triangle, 0]]
        fits = (
            surface.outside[triangle]
            & ((normals[asked] * facing).sum(1) > 0.5)
            & (np.linalg.norm(places - moved[asked], axis=1) < 0.12)
        )
        fitting = np.zeros(len(base), bool)
        fitting[asked[fits]] = True
        step = np.zeros_like(base)
        step[asked[fits]] = places[fits] - moved[asked[fits]]
        weight = fitting.astype(float)
        for _ in range(smoothing):
            around, known = mesh.mean_around(step, np.maximum(weight, 1e-3))
            step = np.where((known > 0)[:, None], 0.5 * step + 0.5 * around, step)
        moved = moved + step
    return moved, fitting


def spread(base, known, skin):
    """For each point that is not known its nearest known ones and their shares."""
    unknown = np.flatnonzero(~known)
    sources = np.flatnonzero(known)
    near = sources[nearest(base[unknown], base[sources], 16)]
    far = np.linalg.norm(base[near] - base[unknown][:, None], axis=2)
    shares = 1 / (far + 0.02) ** 2
    return unknown, near, shares / shares.sum(1, keepdims=True)


def read_target(path, count):
    """How far a morph target moves each point."""
    shift = np.zeros((count, 3))
    for line in gzip.decompress(path.read_bytes()).decode().splitlines():
        if line and not line.startswith("#"):
            number, *values = line.split()
            shift[int(number)] = [float(value) for value in values]
    return shift


def drop_of(shift):
    """How far points drop with the jaw: 1 where most do."""
    far = np.linalg.norm(shift, axis=1)
    return far / np.quantile(far[far > 0.1 * far.max()], 0.9)


def near_mouth(base):
    """About the lips and the mouth's inside."""
    return (np.abs(base[:, 0]) < 0.34) & (base[:, 1] > 6.35) & (base[:, 1] < 6.85) & (base[:, 2] > 1.0)


def match_lips(queries, drop, points, points_drop):
    """For each query the point that lies near it and drops with the jaw as it does."""
    near = nearest(queries, points, 48)
    far = np.linalg.norm(points[near] - queries[:, None], axis=2) / 0.03
    other = (points_drop[near] - drop[:, None]) / 0.2
    return near[np.arange(len(near)), (far**2 + other**2).argmin(1)]


def carry_expressions(base, groups, moved, fitting, surface, triangles, scan_here, deltas, jaw, base_jaw, parts):
    """How expressions move the base mesh's points; see the module's text."""
    moves = np.zeros((len(deltas), len(base), 3), np.float32)
    asked = np.flatnonzero(fitting)
    triangle, shares, _ = surface.closest(moved[asked])
    for corner in range(3):
        moves[:, asked] += deltas[:, triangles[triangle, corner]] * shares[:, corner, None].astype(np.float32)
    lips = np.flatnonzero(fitting & near_mouth(base))
    outer = np.arange(parts["face"]["vertex_count"])
    scan_drop = drop_of(deltas[jaw])
    moves[:, lips] = deltas[:, outer[match_lips(moved[lips], drop_of(base_jaw)[lips], scan_here[outer], scan_drop[outer])]]

    # Over the mesh, on which the lips meet at the mouth's corners alone: evened out, then carried inwards.
    skin = groups["body"]
    mesh = Mesh(skin, len(base))
    on_skin = np.zeros(len(base), bool)
    on_skin[np.unique(skin)] = True
    carried = on_skin & (base[:, 1] > LOWEST - 0.4)
    even = np.isin(np.arange(len(base)), lips)[:, None]
    for move in moves:
        for _ in range(2):
            around, _ = mesh.mean_around(move, fitting.astype(float))
            move[:] = np.where(even, 0.5 * move + 0.5 * around, move)
        known = fitting.copy()
        for _ in range(60):
            around, weight = mesh.mean_around(move, known.astype(float))
            inner = carried & ~fitting & (weight > 0)
            move[inner] = around[inner]
            known |= inner

    # Teeth and the tongue as the other head's nearest teeth; eyeballs are turned by whoever draws them.
    first, count = parts["teeth"]["first_vertex"], parts["teeth"]["vertex_count"]
    upper = np.arange(first, LOWER_TEETH)
    lower = np.arange(LOWER_TEETH, first + count)
    for group, own in (("helper-upper-teeth", upper), ("helper-lower-teeth", lower), ("helper-tongue", lower)):
        points = np.unique(groups[group])
        moves[:, points] = deltas[:, own[nearest(moved[points], scan_here[own], 1)[:, 0]]]
    still = np.unique(np.concatenate([groups[g].ravel() for g in ("helper-l-eye", "helper-r-eye")]))
    rest = ~carried
    for group in ("helper-upper-teeth", "helper-lower-teeth", "helper-tongue"):
        rest[np.unique(groups[group])] = False
    rest[still] = False
    rest &= base[:, 1] > LOWEST
    queries, sources = np.flatnonzero(rest), np.flatnonzero(fitting)
    near = sources[nearest(base[queries], base[sources], 3)]
    far = np.linalg.norm(base[near] - base[queries][:, None], axis=2)
    weights = (1 / (far + 0.02) ** 2).astype(np.float32)
    weights /= weights.sum(1, keepdims=True)
    moves[:, queries] = sum(moves[:, near[:, i]] * weights[:, i, None] for i in range(3))
    return moves


def main():
    parser = argparse.ArgumentParser(
        prog="python3 -m training.data.register_shapes",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("--assets", type=Path, required=True, help="folder with the base mesh")
    parser.add_argument("--shapes", type=Path, required=True, help="folder with the second space")
    parser.add_argument("--out", type=Path, required=True)
    args = parser.parse_args()
    args.out.mkdir(parents=True, exist_ok=True)

    base, groups = read_base(args.assets / "base" / "base.obj")
    skin = groups["body"]
    load = lambda name: np.load(args.shapes / f"{name}.npy")
    scan = load("vertices").astype(float)
    marks = json.loads((args.shapes / "landmarks.json").read_text())
    parts = {part["name"]: part for part in json.loads((args.shapes / "parts.json").read_text())["parts"]}
    eyes = {side: np.unique(groups[f"helper-{side[0]}-eye"]) for side in ("left", "right")}

    # From centimetres about its own origin to the base mesh's units, eye on eye.
    def eye_middle(points, side):
        eye = marks["eyes"][side]
        apex, back = points[..., eye["cornea_apex"], :], points[..., eye["eyeball_back"], :]
        return apex + eye["centre_share"] * (back - apex)

    def eye_size(points, side):
        eye = marks["eyes"][side]
        apex, back = points[..., eye["cornea_apex"], :], points[..., eye["eyeball_back"], :]
        return np.linalg.norm(apex - back, axis=-1) / 2

    both = np.mean([base[eyes[side]].mean(0) for side in eyes], axis=0)
    shift = both - np.mean([eye_middle(scan, side) for side in eyes], axis=0) / 10
    scan_here = scan / 10 + shift

    def landmark(name):
        return scan_here[name if isinstance(name, int) else marks["points"][name]]

    warp = smooth_warp(*symmetric_pairs(LANDMARKS, landmark))
    last = parts["eye socket right"]
    faces = load("faces")[: last["first_face"] + last["face_count"]]
    triangles, face_of = triangles_of(faces)
    head = parts["head and neck"]
    outside = face_of < head["first_face"] + head["face_count"]
    surface = Surface(scan_here, triangles, outside)
    near_head = base[:, 1] > LOWEST - 0.4
    kept = np.flatnonzero(near_head)
    moved, fitting = register(base, skin, surface, warp)

    # The shift fades out on the way down the neck, where the other head ends.
    deltas = load("identity_deltas").astype(np.float32) * (load("identity_scales") / 10)[:, None, None]
    names = np.arange(len(deltas))
    mirrored = np.abs(deltas[:, marks["points"]["nose_tip"], 0]) > np.abs(
        deltas[:, marks["points"]["nose_tip"], 1:]
    ).max(1)
    components = np.zeros((len(deltas), len(base), 3), np.float32)
    asked = np.flatnonzero(fitting)
    triangle, shares, _ = surface.closest(moved[asked])
    for corner in range(3):
        components[:, asked] += deltas[:, triangles[triangle, corner]] * shares[:, corner, None].astype(np.float32)
    unknown, near, near_shares = spread(base, fitting, skin)
    wanted = near_head[unknown]
    unknown, near, near_shares = unknown[wanted], near[wanted], near_shares[wanted]
    own_shift = moved - base
    for i in range(near.shape[1]):
        components[:, unknown] += components[:, near[:, i]] * near_shares[:, i, None].astype(np.float32)
    far_shift = np.einsum("nk,nkx->nx", near_shares, own_shift[near])
    helper = ~np.isin(unknown, np.unique(skin))
    moved[unknown[helper]] = base[unknown[helper]] + far_shift[helper]

    moves = load("expression_deltas").astype(np.float32) * (load("expression_scales") / 10)[:, None, None]
    expressions = json.loads((args.shapes / "names.json").read_text())["expressions"]
    base_jaw = read_target(args.assets / "targets/expression/units/caucasian/mouth-open.target.gz", len(base))
    moves = carry_expressions(
        base, groups, moved, fitting, surface, triangles, scan_here, moves,
        expressions.index("jawOpen"), base_jaw, parts,
    )  # fmt: skip

    # Eyeballs move as a whole and keep their form.
    for side, points in eyes.items():
        middle, size = base[points].mean(0), np.linalg.norm(base[points] - base[points].mean(0), axis=1).max()
        own = eye_middle(scan_here, side)
        grown = eye_size(scan_here, side) / size if size > 0 else 1
        moved[points] = own + (base[points] - middle) * min(grown, 1.0)
        for number, delta in enumerate(deltas):
            components[number, points] = eye_middle(delta.astype(float), side)
    weight = np.clip((base[:, 1] - LOWEST) / 0.7, 0, 1)
    weight = (weight * weight * (3 - 2 * weight))[:, None]
    neck = np.array([0.0, *(moved - base)[fitting & (base[:, 1] < 5.9)].mean(0)[1:]])
    moved = base + weight * (moved - base) + (1 - weight) * neck
    components *= weight.astype(np.float32)
    moves *= weight.astype(np.float32)
    components[mirrored] *= ASYMMETRIC_SHARE

    np.save(args.out / "points.npy", kept.astype(np.int32))
    np.save(args.out / "neutral.npy", moved[kept].astype(np.float32))
    np.save(args.out / "components.npy", np.ascontiguousarray(components[:, kept]))
    np.save(args.out / "expressions.npy", np.ascontiguousarray(moves[:, kept]))
    (args.out / "expressions.txt").write_text("".join(f"{name}\n" for name in expressions))
    gap = np.linalg.norm(surface.closest(moved[asked])[2] - moved[asked], axis=1)
    print(
        f"{len(asked)} points on the other head, {len(kept)} in all, {len(names)} components of which "
        f"{int(mirrored.sum())} one-sided; distance {10 * gap.mean():.3f} cm, at most {10 * gap.max():.2f} cm"
    )


if __name__ == "__main__":
    main()
