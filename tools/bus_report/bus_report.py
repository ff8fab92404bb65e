#!/usr/bin/env python3
"""Tells how well the arm followed its commands, from a candump log of the bus alone.

usage: bus_report.py LOG [--plot DIR] [--json FILE] [--urdf FILE] [--config FILE]

For each move and joint: where it went, the largest difference between a commanded position and the
feedback that answers the command, what was left of it at the end, and by how much the target was
passed. Then the control period as seen on the bus. With --plot, tracking.png and arm.png.
"""

import argparse
import json
import os
import sys

import numpy as np
import yaml

from bus_log import read_log

HERE = os.path.dirname(os.path.abspath(__file__))
CONFIG = os.path.join(HERE, "..", "..", "config")
WINDOW_S = 0.05  # a joint moves while its command changes by MOVING within this time
MOVING = 0.002  # rad
REST_S = 0.2  # a pause this long ends a move
RUN_UP_S = 0.2  # the slow beginning and end of a move lie within this of its fast part
MIN_MOVE = 0.01  # rad that some joint must be sent


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
        (begin - WINDOW_S - RUN_UP_S, end + RUN_UP_S)
        for begin, end in moves
        if travel(record, begin - WINDOW_S, end) > MIN_MOVE
    ]


def between(rows, begin, end):
    return rows[(rows[:, 0] >= begin) & (rows[:, 0] <= end)]


def travel(record, begin, end):
    parts = [between(rows, begin, end)[:, 1] for rows in record.commands]
    return max((np.ptp(part) for part in parts if len(part)), default=0.0)


def judge_move(record, begin, end, next_begin):
    """One row a joint; the rest until the next move shows the end error and the overshoot."""
    rows = []
    for commands, replies in zip(record.commands, record.replies):
        asked = between(commands, begin, next_begin)[:, 1]
        whole = between(replies, begin, next_begin)
        during = between(whole, begin, end)
        if not len(asked) or not len(during):
            continue
        start, target = asked[0], asked[-1]
        direction = np.sign(target - start) if abs(target - start) > MIN_MOVE else 0.0
        rows.append(
            {
                "start": start,
                "target": target,
                "peak_error": np.abs(during[:, 4] - during[:, 1]).max(),
                "end_error": abs(np.median(whole[-20:, 1]) - target),
                "overshoot": max(0.0, (direction * (whole[:, 1] - target)).max()),
            }
        )
    return rows


def control_period(record):
    """Milliseconds between commands to joint 1 while they come in a row."""
    gaps = np.diff(record.commands[0][:, 0]) * 1000
    return gaps[gaps < 1000]


def analyse(record):
    moves = find_moves(record)
    if not moves:
        sys.exit("bus_report: the log shows no move")
    ends = [begin for begin, _ in moves[1:]] + [record.duration]
    period = control_period(record)
    return {
        "moves": [
            {"begin": begin, "end": end, "joints": judge_move(record, begin, end, next_begin)}
            for (begin, end), next_begin in zip(moves, ends)
        ],
        "period_ms": {
            "median": float(np.median(period)),
            "p99": float(np.percentile(period, 99)),
            "max": float(period.max()),
        },
        "frames": record.frames,
        "frames_per_second": record.frames / record.duration,
        "load_percent_of_1_mbit": record.bits / record.duration / 1e6 * 100,
        "mode": "position/velocity" if record.position_velocity else "MIT",
    }


def print_report(report):
    print(f"Tracking in {report['mode']} mode, as seen on the bus (radians)")
    for number, move in enumerate(report["moves"], 1):
        print(f"\nmove {number}: {move['begin']:.2f} s to {move['end']:.2f} s")
        print("  joint    start   target   peak error   end error   overshoot")
        for joint, row in enumerate(move["joints"], 1):
            print(
                f"  {joint:5d} {row['start']:8.3f} {row['target']:8.3f} {row['peak_error']:12.4f}"
                f" {row['end_error']:11.4f} {row['overshoot']:11.4f}"
            )
    period = report["period_ms"]
    print(
        f"\ncontrol period: median {period['median']:.3f} ms, 99th percentile {period['p99']:.3f} ms,"
        f" largest {period['max']:.3f} ms"
    )
    print(
        f"frames: {report['frames']} in all, {report['frames_per_second']:.0f} per second,"
        f" {report['load_percent_of_1_mbit']:.0f} % of classic CAN's 1 Mbit/s"
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("log")
    parser.add_argument("--plot", metavar="DIR", help="write tracking.png and arm.png there")
    parser.add_argument("--json", metavar="FILE", help="write the figures there")
    parser.add_argument("--urdf", default=os.path.join(CONFIG, "BrimloV2.SLDASM.urdf"))
    parser.add_argument("--config", default=os.path.join(CONFIG, "robot_kinematics.yaml"))
    arguments = parser.parse_args()
    try:
        with open(arguments.config, encoding="utf-8") as config:
            signs = yaml.safe_load(config)["motor_signs"]
        record = read_log(arguments.log, signs)
    except (OSError, KeyError, yaml.YAMLError) as error:
        sys.exit(f"bus_report: {error}")
    if not all(len(rows) > 1 for rows in record.commands):
        sys.exit(f"bus_report: {arguments.log} holds no commands for six joints")
    report = analyse(record)
    print_report(report)
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as output:
            json.dump(report, output, indent=1, default=float)
    if arguments.plot:
        import plots  # only a plot needs matplotlib

        os.makedirs(arguments.plot, exist_ok=True)
        plots.plot_tracking(record, report, os.path.join(arguments.plot, "tracking.png"))
        plots.plot_arm(record, arguments.urdf, os.path.join(arguments.plot, "arm.png"))


if __name__ == "__main__":
    main()
