"""Pictures of a recorded motion."""

import os

import numpy as np

from arm_facts import JOINT_COUNT
from joint_figure import (
    ERROR,
    REFERENCE,
    RESULT,
    break_lines,
    joint_figure,
    plt,
    save_joint_figure,
)
from urdf_chain import base_radius, joint_points, read_chain

MARGIN_M = 0.1  # around the arm
LONGEST_GAP_S = 0.25  # between samples that a line connects
PATH_HZ = 100  # points per second of the tool's path


def plot_all(record, report, urdf, tool, folder, bodies=()):
    """Writes tracking.png, arm.png and tool.png; `tool` is the tool's place in the last link."""
    chain = read_chain(urdf)
    angles = joint_angles(record)
    plot_tracking(angles, report, os.path.join(folder, "tracking.png"))
    plot_arm(angles, chain, tool, base_radius(urdf), os.path.join(folder, "arm.png"), bodies)
    plot_tool(record, angles, report, chain, tool, os.path.join(folder, "tool.png"))


def joint_angles(record):
    """Per joint, rows (t, measured, commanded), rad; NaN: not commanded, or a gap in the log."""
    joints = []
    for replies, floating in zip(record.replies, record.floating):
        uncommanded = np.full(len(floating), np.nan)
        rows = np.vstack([replies[:, [0, 1, 4]], np.c_[floating[:, :2], uncommanded]])
        joints.append(break_lines(rows[np.argsort(rows[:, 0], kind="stable")], LONGEST_GAP_S))
    return joints


def plot_tracking(angles, report, path):
    """Commanded and measured angle of each joint over time, and their difference below."""
    lead = ", planned ones commanded ahead" if report["leads"] else ""
    figure, pairs = joint_figure(
        f"Tracking in {report['mode']} mode; moves shaded{lead}", "angle [rad]", "error [mrad]"
    )
    for joint, ((top, bottom), rows) in enumerate(zip(pairs, angles), 1):
        times, measured, commanded = rows.T
        top.plot(times, commanded, color=REFERENCE, lw=3.5, label="commanded")
        top.plot(times, measured, color=RESULT, lw=1.1, label="measured")
        top.set_title(f"joint {joint}", loc="left", fontweight="bold")
        bottom.plot(times, 1000 * (commanded - measured), color=ERROR, lw=0.8)
        for move in report["moves"]:
            for axes in (top, bottom):
                axes.axvspan(move["begin"], move["end"], color="#eef2f6", zorder=0)
    save_joint_figure(figure, pairs, path)


def interpolate(rows_per_joint, column, times):
    """One column of every joint's rows at common times, one row per instant; NaN in gaps."""
    return np.array([np.interp(times, rows[:, 0], rows[:, column]) for rows in rows_per_joint]).T


def plot_arm(angles, chain, tool, radius, path, bodies):
    """The arm and the bodies at several instants, with the tool's path; a ring marks the base."""
    times = np.linspace(angles[0][0, 0], angles[0][-1, 0], 600)
    measured = interpolate(angles, 1, times)
    points = np.array([joint_points(chain, q, tool) for q in measured])
    # Instants evenly spaced along the path, not in time: the arm rests for long. None in a gap.
    known = np.flatnonzero(np.isfinite(measured).all(axis=1))
    steps = np.linalg.norm(np.diff(measured[known], axis=0), axis=1)
    way = np.concatenate([[0], np.cumsum(steps)])
    shown = known[np.searchsorted(way, np.linspace(0, way[-1], 10)).clip(0, len(known) - 1)]

    figure = plt.figure(figsize=(9, 7.5))
    axes = figure.add_subplot(projection="3d")
    colours = plt.cm.viridis(np.linspace(0.05, 0.95, len(shown)))
    for colour, index in zip(colours, shown):
        axes.plot(*points[index].T, color=colour, lw=4, alpha=0.55, solid_capstyle="round")
        axes.scatter(*points[index][1:-1].T, color=colour, s=14, alpha=0.8)
        for line in (line for body in bodies for line in body.lines_at(times[index])):
            axes.plot(*line.T, color=colour, lw=1.2)
    axes.plot(*points[:, -1].T, color=ERROR, lw=1.6, label="path of the tool")
    ring = np.linspace(0, 2 * np.pi, 60)
    axes.plot(radius * np.cos(ring), radius * np.sin(ring), 0 * ring, color="black", lw=1)
    set_space(axes, points, radius)
    axes.view_init(elev=22, azim=-112)
    axes.legend(frameon=False, loc="upper left", bbox_to_anchor=(0.1, 0.85))
    scale = figure.colorbar(
        plt.cm.ScalarMappable(plt.Normalize(times[shown[0]], times[shown[-1]]), "viridis"),
        ax=axes, shrink=0.6, pad=0.1,
    )
    scale.set_label("time [s]")
    axes.set_title("The arm as its motors report it", y=0.95)
    label = axes.zaxis.label  # the tight box leaves it out otherwise
    figure.savefig(path, dpi=110, bbox_inches="tight", bbox_extra_artists=[label])


def set_space(axes, points, radius):
    """Limits around all points and the base, in equal scales."""
    low = np.minimum(np.nanmin(points, axis=(0, 1)), [-radius, -radius, 0]) - MARGIN_M
    high = np.maximum(np.nanmax(points, axis=(0, 1)), [radius, radius, 0]) + MARGIN_M
    axes.set(xlim=(low[0], high[0]), ylim=(low[1], high[1]), zlim=(low[2], high[2]))
    axes.set_box_aspect(high - low, zoom=1.15)
    axes.set(xlabel="x [m]", ylabel="y [m]")
    axes.zaxis.set_rotate_label(False)  # it would read downwards
    axes.set_zlabel("z [m]", rotation=90)


def plot_tool(record, angles, report, chain, tool, path):
    """The tool's path from above and from the side, the floating arm, and the jaws."""
    begin, end = angles[0][[0, -1], 0]
    times = np.linspace(begin, end, 1 + round((end - begin) * PATH_HZ))
    paths = {
        name: np.array(
            [joint_points(chain, q, tool)[-1] for q in interpolate(angles, column, times)]
        )
        for name, column in (("commanded", 2), ("measured", 1))
    }
    figure, ((above, side), (floating, jaws)) = plt.subplots(2, 2, figsize=(13, 10))
    for axes, (x, y), title in ((above, (0, 1), "from above"), (side, (0, 2), "from the side")):
        axes.plot(*paths["commanded"][:, (x, y)].T, color=REFERENCE, lw=3, label="commanded")
        axes.plot(*paths["measured"][:, (x, y)].T, color=RESULT, lw=1, label="measured")
        axes.set(xlabel=f"{'xyz'[x]} [m]", ylabel=f"{'xyz'[y]} [m]", aspect="equal")
        axes.set_title(f"The tool {title}", loc="left", fontweight="bold")
        axes.legend(frameon=False)
    plot_floating(record, report["floating"], floating)
    plot_jaws(record.jaws, jaws)
    figure.tight_layout()
    figure.savefig(path, dpi=110)


def plot_jaws(rows, axes):
    axes.plot(rows[:, 0], rows[:, 1], color=REFERENCE, lw=3, label="commanded")
    axes.plot(rows[:, 0], rows[:, 2], color=RESULT, lw=1, label="measured")
    axes.set(xlabel="time [s]", ylabel="motor angle [rad], 0 closed")
    title = "The gripper" if len(rows) else "The gripper: none"
    axes.set_title(title, loc="left", fontweight="bold")


def plot_floating(record, floating, axes):
    """The joint angles of the floating arm, relative to those at the start of floating."""
    title = "Floating" if floating else "Floating: did not occur"
    axes.set_title(title, loc="left", fontweight="bold")
    axes.set(xlabel="time [s]", ylabel="angle since the start [rad]")
    if not floating:
        return
    colours = plt.cm.viridis(np.linspace(0.05, 0.9, JOINT_COUNT))
    for joint, (rows, colour) in enumerate(zip(record.floating, colours), 1):
        axes.plot(rows[:, 0], rows[:, 1] - rows[0, 1], color=colour, lw=1.2, label=f"joint {joint}")
    axes.legend(frameon=False, ncol=2)
