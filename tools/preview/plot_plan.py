#!/usr/bin/env python3
"""Draws a plan: joint angles, velocities and accelerations, and the tool's path.

usage: plot_plan.py PLAN.csv PICTURE.png [--config FILE]

PLAN.csv is written by examples/preview: a header, then rows of time_s, for each joint q_N (rad), dq_N
(rad/s) and ddq_N (rad/s²), and the tool's x, y, z (m). Velocities and accelerations are drawn as
fractions of the limits of waypoint moves and plans in the settings file.
"""

import argparse
import sys
from pathlib import Path

import numpy as np
import yaml

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from arm_facts import JOINT_COUNT, SETTINGS_PATH, read_settings  # noqa: E402
from joint_figure import ERROR, plt  # noqa: E402

JOINTS = range(1, JOINT_COUNT + 1)


def read_plan(path):
    """The table, with a field for each column."""
    try:
        table = np.genfromtxt(path, delimiter=",", names=True)
    except ValueError:  # its text lists every line
        raise ValueError("not a table of a plan") from None
    if table.dtype.names is None or table.ndim != 1 or len(table) < 2:
        raise ValueError("expected a header and at least two rows")
    joint_columns = {f"{kind}_{joint}" for kind in ("q", "dq", "ddq") for joint in JOINTS}
    missing = {"time_s", "x", "y", "z", *joint_columns} - set(table.dtype.names)
    if missing:
        raise ValueError(f"no column {sorted(missing)[0]}")
    return table


def plot_joints(axes, plan, kind, scales, title, label):
    for joint, scale, colour in zip(JOINTS, scales, joint_colours()):
        axes.plot(plan["time_s"], plan[f"{kind}_{joint}"] / scale, color=colour, lw=1.4, label=f"joint {joint}")
    axes.set(xlabel="time [s]", ylabel=label)
    axes.set_title(title, loc="left", fontweight="bold")


def joint_colours():
    return plt.cm.viridis(np.linspace(0.0, 0.95, JOINT_COUNT))


def mark_limits(axes):
    for limit in (-1, 1):
        axes.axhline(limit, color=ERROR, lw=1, ls="--")


def plot_path(axes, plan):
    """The tool's path; dots every tenth of a second show its speed."""
    dots = np.searchsorted(plan["time_s"], np.arange(0, plan["time_s"][-1], 0.1))
    points = np.array([plan[axis] for axis in "xyz"])
    axes.plot(*points, color="black", lw=1)
    axes.scatter(*points[:, dots], c=plan["time_s"][dots], cmap="viridis", s=14, depthshade=False)
    axes.set(xlabel="x [m]", ylabel="y [m]", zlabel="z [m]")
    axes.set_aspect("equal")
    axes.locator_params(nbins=4)
    axes.view_init(elev=24, azim=-60)
    axes.set_title("The tool, a dot every 0.1 s", loc="left", fontweight="bold")


def plot_plan(plan, limits, path):
    figure = plt.figure(figsize=(13, 9))
    angles, velocities, accelerations = (figure.add_subplot(2, 2, place) for place in (1, 2, 4))
    plot_joints(angles, plan, "q", np.ones(JOINT_COUNT), "Angles", "angle [rad]")
    angles.legend(frameon=False, ncol=2)
    for axes, kind, key, title in (
        (velocities, "dq", "max_vel_limits", "Velocities"),
        (accelerations, "ddq", "max_acc_limits", "Accelerations"),
    ):
        plot_joints(axes, plan, kind, limits[key], title, "fraction of the limit")
        mark_limits(axes)
    plot_path(figure.add_subplot(2, 2, 3, projection="3d"), plan)
    figure.tight_layout()
    figure.savefig(path, dpi=110)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("plan")
    parser.add_argument("picture")
    parser.add_argument("--config", default=SETTINGS_PATH)
    arguments = parser.parse_args()
    try:
        plan = read_plan(arguments.plan)
        limits = read_settings(arguments.config)["joint_trajectory"]
        plot_plan(plan, limits, arguments.picture)
    except (OSError, KeyError, ValueError, yaml.YAMLError) as error:
        sys.exit(f"plot_plan: {error}")


if __name__ == "__main__":
    main()
