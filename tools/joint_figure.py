"""A figure with a pair of axes for each joint: a quantity above, its error below."""

import matplotlib
import numpy as np

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

from arm_facts import JOINT_COUNT  # noqa: E402

REFERENCE, RESULT, ERROR = "#9aa5b1", "#1768ac", "#d1495b"  # the first is drawn wide, beneath
COLUMNS = 3
plt.rcParams.update({"font.size": 9, "axes.spines.top": False, "axes.spines.right": False})


def joint_figure(title, quantity, error):
    """The figure, and the upper and lower axes of each joint; two labels for the vertical axes."""
    rows = -(-JOINT_COUNT // COLUMNS)
    figure, grid = plt.subplots(
        2 * rows, COLUMNS, figsize=(13, 4 * rows), sharex=True, squeeze=False,
        gridspec_kw={"height_ratios": [3, 1.2] * rows},
    )
    tops, bottoms = grid[::2].flatten(), grid[1::2].flatten()
    pairs = list(zip(tops, bottoms))[:JOINT_COUNT]
    for top, bottom in pairs[::COLUMNS]:
        top.set_ylabel(quantity)
        bottom.set_ylabel(error)
    for _, bottom in pairs:
        bottom.axhline(0, color="black", lw=0.4)
    for _, bottom in pairs[-COLUMNS:]:
        bottom.set_xlabel("time [s]")
    figure.suptitle(title)
    return figure, pairs


def break_lines(rows, longest_gap_s):
    """The rows, time first, with a row of NaN amid each longer gap: no line crosses it."""
    times = rows[:, 0]
    gaps = np.flatnonzero(np.diff(times) > longest_gap_s)
    breaks = np.full((len(gaps), rows.shape[1]), np.nan)
    breaks[:, 0] = (times[gaps] + times[gaps + 1]) / 2
    return np.insert(rows, gaps + 1, breaks, axis=0)


def save_joint_figure(figure, pairs, path):
    lines = pairs[0][0].get_legend_handles_labels()
    figure.legend(*lines, frameon=False, loc="upper right", ncol=len(lines[1]))
    figure.tight_layout()
    figure.savefig(path, dpi=110)
