"""Checks a tour of the simulated arm. usage: check_tour.py TABLE LOG REPORT

TABLE is the tour's output, LOG the bus log, REPORT the bus report's JSON file. After a short stall of
the machine the circle is not checked, which the arm follows in real time; after a longer one no
distance is: status 77.
"""

import json
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tools", "bus_report"))
from waypoint_plan import find_plan, read_cycles, read_limits  # noqa: E402

CIRCLE_STALL_MS, LONGEST_STALL_MS = 25, 45  # largest control periods
WAYPOINTS = [
    [0.4, 0.2, -0.2, 0.3, 0.0, 0.0],
    [0.6, 0.4, 0.1, 0.0, 0.3, 0.5],
    [0.0, 0.6, -0.6, 0.3, 0.0, 0.0],
]
# step, figure, smallest and largest value
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
    ("joint move", "largest joint error", 0.0, 0.02),
    ("line", "largest distance from it", 0.0, 0.002),
    ("arc", "largest distance from it", 0.0, 0.002),
    ("stop", "largest distance from the line", 0.0, 0.002),
    ("stop", "way that is left", 0.05, 0.15),
    ("speed override", "time, of that at full speed", 2.45, 2.8),
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
    limits, signs = read_limits()
    cycles = read_cycles(log)
    for points, mode in (
        (WAYPOINTS, {"speed": 0.5}),
        (WAYPOINTS[::-1] + WAYPOINTS, {"time_s": 4.0}),
    ):
        found = find_plan(cycles, points, limits, signs, **mode)
        if not found:
            sys.exit(f"FAILED: the commands of the waypoint move {mode} differ from its plan")
        print("waypoints %s: %d samples planned; %d cycles on the wire, %d samples met" % (mode, *found))

    period = json.load(open(report, encoding="utf-8"))["period_ms"]["max"]
    if period > LONGEST_STALL_MS:
        print(f"skipped: the machine stalled for {period:.0f} ms")
        sys.exit(77)
    circle = period < CIRCLE_STALL_MS
    checked = [bound for bound in BOUNDS if circle or bound[0] != "circle"]
    rows = re.findall(r"^  (\S.*?)  +(\S.*?)  +(\d+\.\d+) \w+$", open(table, encoding="utf-8").read(), re.M)
    values = {(step, figure): float(value) for step, figure, value in rows}
    failed = [
        (step, figure, values.get((step, figure)))
        for step, figure, low, high in checked
        if not low <= values.get((step, figure), float("nan")) <= high
    ]
    if failed:
        sys.exit(f"FAILED: {failed}")
    print(f"{len(checked)} of {len(BOUNDS)} figures checked; longest control period {period:.0f} ms")


main()
