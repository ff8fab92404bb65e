"""Judges a tour of the simulated arm. usage: judge_tour.py TABLE LOG REPORT

TABLE is what the tour printed, LOG the bus log, REPORT the bus report's JSON file. A machine
that starved the programs for a moment says nothing of the circle, which is followed as it comes; one
that starved them for longer, nothing of any distance: status 77.
"""

import json
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tools", "bus_report"))
from waypoint_plan import find_plan, read_cycles, read_limits  # noqa: E402

WAYPOINTS = [
    [0.4, 0.2, -0.2, 0.3, 0.0, 0.0],
    [0.6, 0.4, 0.1, 0.0, 0.3, 0.5],
    [0.0, 0.6, -0.6, 0.3, 0.0, 0.0],
]
# step, figure, the least and the largest value
BOUNDS = [
    ("home", "largest joint error", 0.0, 0.02),
    ("timed move", "largest joint error", 0.0, 0.02),
    ("waypoints, speed", "largest joint error", 0.0, 0.02),
    ("waypoints, time", "largest joint error", 0.0, 0.02),
    ("pose", "distance moved", 0.295, 0.305),
    ("pose", "distance from the goal", 0.0, 0.002),
    ("pose", "angle from the goal", 0.0, 0.01),
    ("circle", "largest distance from it", 0.0, 0.008),
    ("circle", "largest distance from its plane", 0.0, 0.008),
    ("gripper", "open, distance off", 0.0, 0.002),
    ("gripper", "closed, distance off", 0.0, 0.002),
    ("gripper", "halfway, distance off", 0.0, 0.002),
    ("floating", "largest drift in 5 s", 0.0, 0.01),
    ("floating", "moved by hand by", 0.1, 1.0),
    ("floating", "from where it was left", 0.0, 0.05),
    ("low pose", "largest joint error", 0.0, 0.02),
]


def main():
    table, log, report = sys.argv[1:]
    limits, signs = read_limits("config/robot_kinematics.yaml")
    cycles = read_cycles(log)
    for points, mode in (
        (WAYPOINTS, {"speed": 0.5}),
        (WAYPOINTS[::-1] + WAYPOINTS, {"time_s": 4.0}),
    ):
        found = find_plan(cycles, points, limits, signs, **mode)
        if not found:
            sys.exit(f"FAILED: the commands of the waypoint move {mode} are not its plan")
        print("waypoints %s: %d samples planned; %d cycles on the wire, %d samples met" % (mode, *found))

    period = json.load(open(report, encoding="utf-8"))["period_ms"]["max"]
    if period > 45:
        print(f"not judged: the machine stood still for {period:.0f} ms")
        sys.exit(77)
    judged = BOUNDS if period < 25 else [bound for bound in BOUNDS if bound[0] != "circle"]
    rows = re.findall(r"^  (\S.*?)  +(\S.*?)  +(\d+\.\d+) \w+$", open(table, encoding="utf-8").read(), re.M)
    values = {(step, figure): float(value) for step, figure, value in rows}
    failed = [
        (step, figure, values.get((step, figure)))
        for step, figure, low, high in judged
        if not low <= values.get((step, figure), float("nan")) <= high
    ]
    if failed:
        sys.exit(f"FAILED: {failed}")
    print(f"{len(judged)} of {len(BOUNDS)} figures judged; the longest pause was {period:.0f} ms")


main()
