#!/usr/bin/env python3
"""Reports how well the arm followed its commands, from a candump log of the bus alone.

usage: bus_report.py LOG [--joints] [--plot DIR [--bodies FILE --scene FILE]] [--json FILE]
                     [--urdf FILE] [--config FILE]

For each move, the largest of each figure over the joints (with --joints, and in the JSON file, every
joint's): the travel, the peak error (between a commanded position and the feedback that answers the
command), the end error, and the overshoot beyond the commanded positions. In position/velocity mode
a planned move's commands lead its plan by the motors' braking distance, and the peak error includes
that. If the arm floated: its drift, how far a hand moved it, and how far it moved after the hand left
it. Then the control period as seen on the bus. --plot writes tracking.png, arm.png and tool.png; --bodies and --scene, the report
and the scene of a simulated arm, add its bodies to arm.png.
"""

import argparse
import json
import os
import sys
from pathlib import Path

import numpy as np
import yaml

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from arm_facts import SETTINGS_PATH, URDF_PATH, read_settings  # noqa: E402
from body_log import read_bodies  # noqa: E402
from bus_log import read_log  # noqa: E402

WINDOW_S = 0.05  # a joint moves while its command changes by MOVING within this time
MOVING = 0.002  # rad
REST_S = 0.2  # a rest of this length ends a move
RAMP_S = 0.2  # a move starts and ends slowly; its fast part is extended by this
HAND_SPEED = 0.05  # rad/s; a floating arm that moves faster is moved by a hand
MIN_TRAVEL = 0.01  # rad; smaller changes of all commands are no move
SILENT = "no enabled motor answered"


def moving_times(rows):
    """The times at which a joint's commanded position changes fast enough."""
    time, position = rows[:, 0], rows[:, 1]
    before = np.searchsorted(time, time - WINDOW_S)
    return time[np.abs(position - position[before]) > MOVING]


def find_moves(record):
    """Times (begin, end) of each move."""
    moves = []
    for time in np.sort(np.concatenate([moving_times(rows) for rows in record.commands])):
        if moves and time - moves[-1][1] < REST_S:
            moves[-1][1] = time
        else:
            moves.append([time, time])
    return [
        (begin - WINDOW_S - RAMP_S, end + RAMP_S)
        for begin, end in moves
        if travel(record, begin - WINDOW_S, end) > MIN_TRAVEL
    ]


def between(rows, begin, end):
    return rows[(rows[:, 0] >= begin) & (rows[:, 0] <= end)]


def travel(record, begin, end):
    parts = [between(rows, begin, end)[:, 1] for rows in record.commands]
    return max((np.ptp(part) for part in parts if len(part)), default=0.0)


def move_figures(record, begin, end, next_begin):
    """One row per joint. End error and overshoot include the rest until the next move."""
    rows = []
    for commands, replies in zip(record.commands, record.replies):
        commanded = between(commands, begin, next_begin)[:, 1]
        whole = between(replies, begin, next_begin)
        during = between(whole, begin, end)
        if not len(commanded) or not len(during):
            continue
        start, target = commanded[0], commanded[-1]
        rows.append(
            {
                "start": start,
                "target": target,
                "travel": np.ptp(commanded),
                "peak_error": np.abs(during[:, 4] - during[:, 1]).max(),
                "end_error": abs(np.median(whole[-20:, 1]) - target),
                "overshoot": max(
                    0.0, (whole[:, 1] - commanded.max()).max(), (commanded.min() - whole[:, 1]).max()
                ),
            }
        )
    return rows


def floating_figures(record):
    """The drift of a floating arm, by itself and after a hand left it; None if it did not float."""
    if min(len(rows) for rows in record.floating) < 2:
        return None
    times = record.floating[0][:, 0]
    q, dq = (
        np.array([np.interp(times, rows[:, 0], rows[:, k]) for rows in record.floating]).T
        for k in (1, 2)
    )
    moving = np.nonzero(np.abs(dq).max(axis=1) > HAND_SPEED)[0]
    untouched = slice(0, moving[0] if len(moving) else len(times))
    result = {
        "begin": times[0],
        "end": times[-1],
        "untouched_s": times[untouched][-1] - times[0],
        "drift": np.abs(q[untouched] - q[0]).max(),
    }
    if len(moving):
        left_at = q[moving[-1]]
        result["moved_by_hand"] = np.abs(left_at - q[0]).max()
        result["from_where_left"] = np.abs(q[moving[-1] :] - left_at).max()
    return result


def control_period(record):
    """Milliseconds between consecutive commands to joint 1; pauses of a second and more left out."""
    gaps = np.diff(record.rounds) * 1000
    return gaps[gaps < 1000]


def analyse(record):
    moves = find_moves(record)
    if not moves:
        sys.exit("bus_report: the log shows no move")
    ends = [begin for begin, _ in moves[1:]] + [record.duration]
    period = control_period(record)
    return {
        "moves": [
            {"begin": begin, "end": end, "joints": move_figures(record, begin, end, next_begin)}
            for (begin, end), next_begin in zip(moves, ends)
        ],
        "floating": floating_figures(record),
        "period_ms": {
            "median": float(np.median(period)),
            "p99": float(np.percentile(period, 99)),
            "max": float(period.max()),
        },
        "frames": record.frames,
        "frames_per_second": record.frames / record.duration,
        "load_percent_of_1_mbit": record.bits / record.duration / 1e6 * 100,
        "mode": "position/velocity" if record.position_velocity else "MIT",
        "leads": record.position_velocity,
    }


def print_moves(report):
    """One line per move, with the largest of each figure over the joints."""
    print("  move     from      to   travel   peak error   end error   overshoot")
    for number, move in enumerate(report["moves"], 1):
        joints = move["joints"]
        if not joints:
            print(f"  {number:4d} {move['begin']:6.2f} s {move['end']:5.2f} s   {SILENT}")
            continue
        travelled, peak, end, over = (
            max(row[key] for row in joints)
            for key in ("travel", "peak_error", "end_error", "overshoot")
        )
        print(
            f"  {number:4d} {move['begin']:6.2f} s {move['end']:5.2f} s {travelled:8.3f} {peak:12.4f}"
            f" {end:11.4f} {over:11.4f}"
        )


def print_joints(report):
    for number, move in enumerate(report["moves"], 1):
        print(f"\nmove {number}: {move['begin']:.2f} s to {move['end']:.2f} s")
        print("  joint    start   target   peak error   end error   overshoot")
        if not move["joints"]:
            print(f"  {SILENT}")
        for joint, row in enumerate(move["joints"], 1):
            print(
                f"  {joint:5d} {row['start']:8.3f} {row['target']:8.3f} {row['peak_error']:12.4f}"
                f" {row['end_error']:11.4f} {row['overshoot']:11.4f}"
            )


def print_report(report, each_joint):
    print(f"Tracking in {report['mode']} mode, as seen on the bus (radians)")
    (print_joints if each_joint else print_moves)(report)
    if report["leads"]:
        print("  the commands of planned moves lead by the motors' braking distance: see the end error")
    floating = report["floating"]
    if floating:
        print(
            f"\nfloating: {floating['begin']:.2f} s to {floating['end']:.2f} s, drift"
            f" {floating['drift']:.4f} in {floating['untouched_s']:.1f} s untouched"
        )
    if floating and "moved_by_hand" in floating:
        print(
            f"  moved by hand by {floating['moved_by_hand']:.4f}; stayed within"
            f" {floating['from_where_left']:.4f} of where it was left"
        )
    period = report["period_ms"]
    print(
        f"\ncontrol period: median {period['median']:.3f} ms, 99th percentile {period['p99']:.3f} ms,"
        f" largest {period['max']:.3f} ms"
    )
    print(
        f"frames: {report['frames']} in all, {report['frames_per_second']:.0f} per second,"
        f" {report['load_percent_of_1_mbit']:.0f} % of classic CAN's 1 Mbit/s, and about a tenth more"
        " with its stuff bits"
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("log")
    parser.add_argument("--joints", action="store_true", help="print every joint's figures")
    parser.add_argument("--plot", metavar="DIR", help="folder for the pictures")
    parser.add_argument("--bodies", metavar="FILE", help="report of a simulated scene's bodies")
    parser.add_argument("--scene", metavar="FILE", help="that scene")
    parser.add_argument("--json", metavar="FILE", help="file for the figures")
    parser.add_argument("--urdf", default=URDF_PATH)
    parser.add_argument("--config", default=SETTINGS_PATH)
    arguments = parser.parse_args()
    if bool(arguments.bodies) != bool(arguments.scene):
        parser.error("--bodies and --scene go together")
    bodies = []
    try:
        settings = read_settings(arguments.config)
        record = read_log(arguments.log, settings["motor_signs"])
        tool = settings["kinematics"]["tool"]["xyz"]
        if arguments.bodies:
            bodies = read_bodies(arguments.bodies, arguments.scene, record.start)
    except (OSError, KeyError, ValueError, yaml.YAMLError) as error:
        sys.exit(f"bus_report: {error}")
    if not all(len(rows) > 1 for rows in record.commands):
        sys.exit(f"bus_report: {arguments.log} holds no commands for six joints")
    if not all(len(rows) for rows in record.replies):
        sys.exit(f"bus_report: {arguments.log} holds no answers of six enabled motors")
    report = analyse(record)
    print_report(report, arguments.joints)
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as output:
            json.dump(report, output, indent=1, default=float)
    if arguments.plot:
        import plots  # only a plot needs matplotlib

        os.makedirs(arguments.plot, exist_ok=True)
        plots.plot_all(record, report, arguments.urdf, tool, arguments.plot, bodies)


if __name__ == "__main__":
    main()
