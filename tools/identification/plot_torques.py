#!/usr/bin/env python3
"""Draws measured and predicted joint torques, and their difference.

usage: plot_torques.py TORQUES.csv PICTURE.png

TORQUES.csv is written by examples/identify_parameters: a header, then rows of time_s, and for each
joint measured_N and predicted_N in N·m.
"""

import sys
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from arm_facts import JOINT_COUNT  # noqa: E402
from joint_figure import (  # noqa: E402
    ERROR,
    REFERENCE,
    RESULT,
    break_lines,
    joint_figure,
    save_joint_figure,
)

LONGEST_GAP_S = 0.02  # between rows that a line connects


def read_torques(path):
    with open(path, encoding="utf-8") as file:
        lines = file.readlines()
    if len(lines) < 3:
        raise ValueError("expected a header and at least two rows")
    try:
        table = np.genfromtxt(lines, delimiter=",", names=True)
    except ValueError:  # its text lists every line
        raise ValueError("not a table of torques") from None
    joints = range(1, JOINT_COUNT + 1)
    names = [f"{kind}_{joint}" for kind in ("measured", "predicted") for joint in joints]
    if table.ndim != 1 or table.dtype.names is None:
        raise ValueError("not a table of torques")
    missing = {"time_s", *names} - set(table.dtype.names)
    if missing:
        raise ValueError(f"no column {sorted(missing)[0]}")
    torques = np.array([table[name] for name in names]).reshape(2, JOINT_COUNT, -1)
    return table["time_s"], torques[0], torques[1]


def plot_torques(time, measured, predicted, path):
    figure, pairs = joint_figure(
        "Torques of the validation motion, which the estimate does not use",
        "torque [N·m]",
        "error [N·m]",
    )
    for joint, (top, bottom) in enumerate(pairs):
        error = measured[joint] - predicted[joint]
        explained = 100 * (1 - np.mean(error**2) / np.var(measured[joint]))
        rows = np.column_stack([time, measured[joint], predicted[joint], error])
        times, reference, result, difference = break_lines(rows, LONGEST_GAP_S).T
        top.plot(times, reference, color=REFERENCE, lw=3.5, label="measured")
        top.plot(times, result, color=RESULT, lw=1.1, label="predicted")
        title = f"joint {joint + 1}: {explained:.1f} % of the variance explained"
        top.set_title(title, loc="left", fontweight="bold")
        bottom.plot(times, difference, color=ERROR, lw=0.8)
    save_joint_figure(figure, pairs, path)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    try:
        plot_torques(*read_torques(sys.argv[1]), sys.argv[2])
    except OSError as problem:
        sys.exit(f"plot_torques: {problem.filename}: {problem.strerror}")
    except ValueError as problem:
        sys.exit(f"plot_torques: {sys.argv[1]}: {problem}")
