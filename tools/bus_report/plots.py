"""Pictures of a recorded motion."""

import xml.etree.ElementTree as ElementTree

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

COMMANDED, MEASURED, ERROR = "#9aa5b1", "#1768ac", "#d1495b"
plt.rcParams.update({"font.size": 9, "axes.spines.top": False, "axes.spines.right": False})


def plot_tracking(record, report, path):
    """Commanded and measured angle of each joint over time, and their difference below."""
    figure, grid = plt.subplots(
        4, 3, figsize=(13, 8), sharex=True, gridspec_kw={"height_ratios": [3, 1.2, 3, 1.2]}
    )
    for joint in range(6):
        row, column = 2 * (joint // 3), joint % 3
        top, bottom = grid[row][column], grid[row + 1][column]
        replies = record.replies[joint]
        top.plot(replies[:, 0], replies[:, 4], color=COMMANDED, lw=3.5, label="commanded")
        top.plot(replies[:, 0], replies[:, 1], color=MEASURED, lw=1.1, label="measured")
        top.set_title(f"joint {joint + 1}", loc="left", fontweight="bold")
        bottom.plot(replies[:, 0], 1000 * (replies[:, 4] - replies[:, 1]), color=ERROR, lw=0.8)
        bottom.axhline(0, color="black", lw=0.4)
        for move in report["moves"]:
            for axes in (top, bottom):
                axes.axvspan(move["begin"], move["end"], color="#eef2f6", zorder=0)
        if column == 0:
            top.set_ylabel("angle [rad]")
            bottom.set_ylabel("error [mrad]")
        if row == 2:
            bottom.set_xlabel("time [s]")
    grid[0][0].legend(frameon=False, loc="upper left")
    figure.suptitle(f"Tracking in {report['mode']} mode; moves shaded")
    figure.tight_layout()
    figure.savefig(path, dpi=110)


def read_chain(urdf):
    """Origin, axis and limits of each joint of a chain whose frames are parallel at zero."""
    chain = []
    for joint in ElementTree.parse(urdf).getroot().findall("joint"):
        origin = np.array(joint.find("origin").get("xyz").split(), float)
        axis = np.array(joint.find("axis").get("xyz").split(), float)
        chain.append((origin, axis))
    return chain


def rotation(axis, angle):
    x, y, z = axis
    K = np.array([[0, -z, y], [z, 0, -x], [-y, x, 0]])
    return np.eye(3) + np.sin(angle) * K + (1 - np.cos(angle)) * K @ K


def joint_points(chain, angles, tool=(0.13, 0.0, 0.0)):
    """The joints' places and the tool's, from the base outward."""
    R, p, points = np.eye(3), np.zeros(3), [np.zeros(3)]
    for (origin, axis), angle in zip(chain, angles):
        p = p + R @ origin
        points.append(p)
        R = R @ rotation(axis, angle)
    points.append(p + R @ np.array(tool))
    return np.array(points)


def plot_arm(record, urdf, path):
    """The arm at several instants, with the path of its tool."""
    chain = read_chain(urdf)
    times = np.linspace(record.replies[0][0, 0], record.replies[0][-1, 0], 600)
    angles = np.array([np.interp(times, rows[:, 0], rows[:, 1]) for rows in record.replies]).T
    tool = np.array([joint_points(chain, q)[-1] for q in angles])
    # Instants evenly along the way, not along the time: the arm rests for long.
    way = np.concatenate([[0], np.cumsum(np.linalg.norm(np.diff(angles, axis=0), axis=1))])
    shown = np.searchsorted(way, np.linspace(0, way[-1], 10)).clip(0, len(times) - 1)

    figure = plt.figure(figsize=(9, 7.5))
    axes = figure.add_subplot(projection="3d")
    colours = plt.cm.viridis(np.linspace(0.05, 0.95, len(shown)))
    for colour, index in zip(colours, shown):
        points = joint_points(chain, angles[index])
        axes.plot(*points.T, color=colour, lw=4, alpha=0.55, solid_capstyle="round")
        axes.scatter(*points[1:-1].T, color=colour, s=14, alpha=0.8)
    axes.plot(*tool.T, color=ERROR, lw=1.6, label="path of the tool")
    reach = 0.55
    ring = np.linspace(0, 2 * np.pi, 60)
    axes.plot(0.07 * np.cos(ring), 0.07 * np.sin(ring), 0 * ring, color="black", lw=1)
    axes.set(xlim=(-0.2, 0.75), ylim=(-0.475, 0.475), zlim=(0, reach + 0.1))
    axes.set_box_aspect((0.95, 0.95, reach + 0.1), zoom=1.15)
    axes.set(xlabel="x [m]", ylabel="y [m]", zlabel="z [m]")
    axes.view_init(elev=22, azim=-112)
    axes.legend(frameon=False, loc="upper left", bbox_to_anchor=(0.1, 0.85))
    scale = figure.colorbar(
        plt.cm.ScalarMappable(plt.Normalize(times[shown[0]], times[shown[-1]]), "viridis"),
        ax=axes, shrink=0.6, pad=0.1,
    )
    scale.set_label("time [s]")
    axes.set_title("The arm as its motors report it", y=0.95)
    figure.savefig(path, dpi=110, bbox_inches="tight")


def plot_tool(record, report, urdf, path):
    """The tool's path from above and from the side, the floating arm, and the jaws."""
    chain = read_chain(urdf)
    replies = record.replies
    times = np.arange(replies[0][0, 0], replies[0][-1, 0], 0.01)
    paths = {}
    for name, column in (("commanded", 4), ("measured", 1)):
        angles = np.array([np.interp(times, rows[:, 0], rows[:, column]) for rows in replies]).T
        paths[name] = np.array([joint_points(chain, q)[-1] for q in angles])
    figure, ((above, side), (floating, jaws)) = plt.subplots(2, 2, figsize=(13, 10))
    for axes, (x, y), title in ((above, (0, 1), "from above"), (side, (0, 2), "from the side")):
        axes.plot(*paths["commanded"][:, (x, y)].T, color=COMMANDED, lw=3, label="commanded")
        axes.plot(*paths["measured"][:, (x, y)].T, color=MEASURED, lw=1, label="measured")
        axes.set(xlabel=f"{'xyz'[x]} [m]", ylabel=f"{'xyz'[y]} [m]", aspect="equal")
        axes.set_title(f"The tool {title}", loc="left", fontweight="bold")
        axes.legend(frameon=False)
    plot_floating(record, report["floating"], floating)
    jaws.plot(record.jaws[:, 0], record.jaws[:, 1], color=COMMANDED, lw=3, label="commanded")
    jaws.plot(record.jaws[:, 0], record.jaws[:, 2], color=MEASURED, lw=1, label="measured")
    jaws.set(xlabel="time [s]", ylabel="motor angle [rad], 0 closed")
    jaws.set_title("The gripper" + ("" if len(record.jaws) else ": none"), loc="left",
                   fontweight="bold")
    figure.tight_layout()
    figure.savefig(path, dpi=110)


def plot_floating(record, floating, axes):
    """How far each joint of the floating arm is from where it began to float."""
    title = "Floating" if floating else "Floating: it did not"
    axes.set_title(title, loc="left", fontweight="bold")
    axes.set(xlabel="time [s]", ylabel="angle since it floats [rad]")
    if not floating:
        return
    colours = plt.cm.viridis(np.linspace(0.05, 0.9, 6))
    for joint, (rows, colour) in enumerate(zip(record.floating, colours), 1):
        axes.plot(rows[:, 0], rows[:, 1] - rows[0, 1], color=colour, lw=1.2, label=f"joint {joint}")
    axes.legend(frameon=False, ncol=2)
