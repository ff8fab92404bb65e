"""The bodies of a simulated scene: shapes from its file, motion from the simulation's report."""

import csv
from typing import NamedTuple

import numpy as np
import yaml

CIRCLE = np.linspace(0, 2 * np.pi, 25)


class Body(NamedTuple):
    lines: list  # of the drawing: arrays of points in the body's frame, m
    times: np.ndarray  # s, of the poses
    poses: np.ndarray  # rows x, y, z, roll, pitch, yaw: m, rad

    def lines_at(self, time):
        """The drawing's lines in the base frame; the body stays where it was last reported."""
        x, y, z, roll, pitch, yaw = self.poses[max(np.searchsorted(self.times, time, "right") - 1, 0)]
        R = _about(2, yaw) @ _about(1, pitch) @ _about(0, roll)
        return [line @ R.T + (x, y, z) for line in self.lines]


def read_bodies(report_path, scene_path, start):
    """The bodies of a scene; their times are relative to `start`, the system clock's time in s."""
    poses = {}
    with open(report_path, encoding="utf-8") as file:
        for row in csv.DictReader(file):
            values = [float(row[key]) for key in ("time_s", "x", "y", "z", "roll", "pitch", "yaw")]
            poses.setdefault(row["name"], []).append(values)
    with open(scene_path, encoding="utf-8") as file:
        scene = yaml.safe_load(file)
    bodies = []
    for entry in scene.get("bodies", []):
        rows = np.array(poses[entry["name"]])
        bodies.append(Body(_lines(entry), rows[:, 0] - start, rows[:, 1:]))
    return bodies


def _about(axis, angle):
    R = np.eye(3)
    i, j = (axis + 1) % 3, (axis + 2) % 3
    R[i, i] = R[j, j] = np.cos(angle)
    R[j, i] = np.sin(angle)
    R[i, j] = -R[j, i]
    return R


def _lines(entry):
    if entry["shape"] == "box":
        return _box_lines(*(edge / 2 for edge in entry["size"]))
    r, across = entry["radius"], np.zeros_like(CIRCLE)
    x, y = r * np.cos(CIRCLE), r * np.sin(CIRCLE)
    if entry["shape"] == "sphere":
        return [np.c_[x, y, across], np.c_[x, across, y], np.c_[across, x, y]]
    half = entry["length"] / 2
    sides = [np.array([[a, b, -half], [a, b, half]]) for a, b in ((r, 0), (0, r), (-r, 0), (0, -r))]
    return [np.c_[x, y, across - half], np.c_[x, y, across + half], *sides]


def _box_lines(x, y, z):
    corners = [(x, y), (-x, y), (-x, -y), (x, -y), (x, y)]
    rings = [np.array([(a, b, c) for a, b in corners]) for c in (-z, z)]
    return rings + [np.array([(a, b, -z), (a, b, z)]) for a, b in corners[:4]]
