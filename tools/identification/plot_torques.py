#!/usr/bin/env python3
"""Draws measured and predicted joint torques, and their difference.

usage: plot_torques.py TORQUES.csv PICTURE.png

TORQUES.csv is what examples/identify_parameters writes: a heading, then time_s, measured_1 to
measured_6, predicted_1 to predicted_6 in N·m.
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

MEASURED, PREDICTED, ERROR = "#9aa5b1", "#1768ac", "#d1495b"
plt.rcParams.update({"font.size": 9, "axes.spines.top": False, "axes.spines.right": False})


def read_torques(path):
    with open(path, encoding="utf-8") as file:
        lines = file.readlines()
    if len(lines) < 3:
        raise ValueError("a table of torques holds more lines")
    try:
        table = np.genfromtxt(lines, delimiter=",", names=True)
    except ValueError:  # numpy lists every line
        raise ValueError("not a table of torques") from None
    names = [f"{kind}_{joint}" for kind in ("measured", "predicted") for joint in range(1, 7)]
    if table.ndim != 1 or table.dtype.names is None:
        raise ValueError("not a table of torques")
    missing = {"time_s", *names} - set(table.dtype.names)
    if missing:
        raise ValueError(f"no column {sorted(missing)[0]}")
    torques = np.array([table[name] for name in names]).reshape(2, 6, -1)
    return table["time_s"], torques[0], torques[1]


def plot_torques(time, measured, predicted, path):
    figure, grid = plt.subplots(
        4, 3, figsize=(13, 8), sharex=True, gridspec_kw={"height_ratios": [3, 1.2, 3, 1.2]}
    )
    gaps = np.flatnonzero(np.diff(time) > 0.02) + 1  # instants left out are not drawn over
    broken = np.insert(time, gaps, np.nan)
    for joint in range(6):
        row, column = 2 * (joint // 3), joint % 3
        top, bottom = grid[row][column], grid[row + 1][column]
        error = measured[joint] - predicted[joint]
        explained = 100 * (1 - np.mean(error**2) / np.var(measured[joint]))
        for values, style in (
            (measured[joint], {"color": MEASURED, "lw": 3.5, "label": "measured"}),
            (predicted[joint], {"color": PREDICTED, "lw": 1.1, "label": "predicted"}),
        ):
            top.plot(broken, np.insert(values, gaps, np.nan), **style)
        top.set_title(
            f"joint {joint + 1}: {explained:.1f} % explained", loc="left", fontweight="bold"
        )
        bottom.plot(broken, np.insert(error, gaps, np.nan), color=ERROR, lw=0.8)
        bottom.axhline(0, color="black", lw=0.4)
        if column == 0:
            top.set_ylabel("torque [N·m]")
            bottom.set_ylabel("error [N·m]")
        if row == 2:
            bottom.set_xlabel("time [s]")
    grid[0][0].legend(frameon=False, loc="upper left")
    figure.suptitle("Torques of a motion that took no part in the identification")
    figure.tight_layout()
    figure.savefig(path, dpi=110)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    try:
        plot_torques(*read_torques(sys.argv[1]), sys.argv[2])
    except OSError as problem:
        sys.exit(f"plot_torques: {problem.filename}: {problem.strerror}")
    except ValueError as problem:
        sys.exit(f"plot_torques: {sys.argv[1]}: {problem}")
