#!/usr/bin/env python3
"""Checks that a waypoint move was commanded as planned, from a candump log in MIT mode.

usage: waypoint_plan.py LOG WAYPOINTS (--speed FRACTION | --time SECONDS) [--config FILE]

WAYPOINTS is a JSON file, a list of lists of joint angles. The plan is computed here by a second
planner, written from the planning rules independently of the library's (in plain polynomials), so
that a mistake in the library's planner becomes a difference on the wire.
"""

import argparse
import itertools
import json
import math
import sys
from pathlib import Path

import numpy as np
import yaml

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from arm_facts import (  # noqa: E402
    CONTROL_PERIOD_S,
    JOINT_COUNT,
    JOINTS,
    SETTINGS_PATH,
    read_settings,
)
from bus_log import read_frames  # noqa: E402
from protocol import (  # noqa: E402
    POSITION_BITS,
    SPECIAL_COMMANDS,
    VELOCITY_BITS,
    from_word,
    mit_words,
    to_word,
)

CONTROL_HZ = round(1.0 / CONTROL_PERIOD_S)
STILL_CYCLES = 20  # the arm holds its pose for at least this long before a move
MIN_USED = 0.8  # cycles in the log for each planned sample; cycles that came late are skipped


def blend(points, i, j):
    if i in (0, len(points) - 1):
        return 0.0
    before, after = points[i][j] - points[i - 1][j], points[i + 1][j] - points[i][j]
    return 0.5 * (before + after) if before * after > 0 else 0.0


def coefficients(q0, q1, vs, ve):
    delta, dv = q1 - q0 - vs, ve - vs
    return [q0, vs, 0.0, 10 * delta - 4 * dv, 7 * dv - 15 * delta, 6 * delta - 3 * dv]


def derivative(poly):
    return [k * c for k, c in enumerate(poly)][1:]


def value(poly, s):
    return sum(c * s**k for k, c in enumerate(poly))


def limit_duration(polys, ends, limits, hz):
    T = 1.0 / hz
    for poly, (q0, q1, vs, ve), (v, a, jerk) in zip(polys, ends, limits):
        D = max(abs(ve), abs(vs), abs(q1 - q0))
        first = derivative(poly)
        second = derivative(first)
        scan = [k / 64 for k in range(65)]
        peaks = [max(abs(value(p, s)) for s in scan) for p in (first, second, derivative(second))]
        T = max(T, D / v, math.sqrt(D / a), math.cbrt(D / jerk) if D else 0.0)
        T = max(T, peaks[0] / v, math.sqrt(peaks[1] / a), peaks[2] ** (1 / 3) / jerk ** (1 / 3))
    return max(math.ceil(T * hz), 1) / hz


def distribute_steps(durations, time_s, hz):
    """Steps of each segment for a move of `time_s` in all, in proportion to the durations."""
    total = max(round_half_away(time_s * hz), len(durations))
    steps = [max(math.floor(T / sum(durations) * total), 1) for T in durations]
    for i in itertools.cycle(range(len(steps))):
        if sum(steps) >= total:
            break
        steps[i] += 1
    for i in itertools.cycle(range(len(steps))):
        if sum(steps) <= total or sum(steps) <= len(steps):
            break
        steps[i] -= 1 if steps[i] > 1 else 0
    return steps


def round_half_away(x):
    return math.floor(x + 0.5)


def plan(start, waypoints, limits, hz, speed=None, time_s=None):
    """Samples (q, dq) of all joints; limits: per joint (velocity, acceleration, jerk)."""
    points = [start]
    for point in waypoints:
        if max(abs(a - b) for a, b in zip(point, points[-1])) > 1e-9:
            points.append(point)
    scale = 1.0 if time_s else speed
    limits = [(v * scale, a, jerk) for v, a, jerk in limits]
    segments = []
    for i in range(len(points) - 1):
        ends = [
            (points[i][j], points[i + 1][j], blend(points, i, j), blend(points, i + 1, j))
            for j in range(JOINT_COUNT)
        ]
        segments.append((ends, [coefficients(*end) for end in ends]))
    durations = [limit_duration(polys, ends, limits, hz) for ends, polys in segments]
    if time_s:
        steps = distribute_steps(durations, time_s, hz)
    else:
        steps = [max(round_half_away(hz * T), 1) for T in durations]
    samples = []
    for (_, polys), count in zip(segments, steps):
        for k in range(0 if not samples else 1, count + 1):
            s, T = k / count, count / hz
            samples.append(
                ([value(p, s) for p in polys], [value(derivative(p), s) / T for p in polys])
            )
    return samples


def possible_words(x, limit, bits):
    """The words as which this value may be sent: two if rounding decides."""
    step = 2 * limit / ((1 << bits) - 1)
    return {to_word(x + shift * step, limit, bits) for shift in (-1e-9, 0.0, 1e-9)}


def on_wire(sample, signs):
    """Position and velocity of every joint as the frames may carry them."""
    return [
        (
            possible_words(q * sign, motor.pmax, POSITION_BITS),
            possible_words(dq * sign, motor.vmax, VELOCITY_BITS),
        )
        for q, dq, sign, motor in zip(*sample, signs, JOINTS)
    ]


def matches(cycle, sample):
    return all(
        word in words
        for joint, joint_words in zip(cycle, sample)
        for word, words in zip(joint, joint_words)
    )


def possible_starts(words, signs):
    """The measured angles, themselves decoded from words, that are sent as these words."""
    choices = []
    for (word, _), sign, motor in zip(words, signs, JOINTS):
        angles = [from_word(raw, motor.pmax, POSITION_BITS) * sign for raw in (word, word + 1)]
        choices.append([q for q in angles if to_word(q * sign, motor.pmax, POSITION_BITS) == word])
    return [list(start) for start in itertools.product(*choices)]


def follows(cycles, samples):
    """(cycles used, samples met) if the cycles pass through the samples in order, from the first to
    the last, with nothing in between; else None. A late cycle skips samples."""
    end = len(samples) - 1
    while samples[end - 1] == samples[-1]:
        end -= 1  # the samples from here on are equal
    k, met = 0, {0}
    for used, cycle in enumerate(cycles):
        while k < len(samples) and not matches(cycle, samples[k]):
            k += 1
        if k == len(samples):
            return None
        met.add(k)
        if k >= end:
            return used + 1, len(met)
    return None


def find_plan(cycles, waypoints, limits, signs, hz=CONTROL_HZ, **mode):
    """Finds the plan in the words of each cycle: (samples, cycles used, samples met) or None."""
    still = np.array([a == b for a, b in zip(cycles, cycles[1:])])
    for i in range(STILL_CYCLES, len(cycles) - 1):
        if still[i] or not still[i - STILL_CYCLES : i].all():
            continue
        for first in (i + 1, i):  # the first sample may look like the pose held before it
            for start in possible_starts(cycles[first], signs):
                samples = [on_wire(s, signs) for s in plan(start, waypoints, limits, hz, **mode)]
                found = matches(cycles[first], samples[0]) and follows(cycles[first:], samples)
                if found and found[0] > MIN_USED * len(samples):
                    return len(samples), *found
    return None


def read_cycles(path):
    """The position and velocity words of all joints, cycle by cycle, of MIT commands with gains."""
    can_ids = [motor.can_id for motor in JOINTS]
    cycles, current = [], []
    for frame in read_frames(path):
        if frame.can_id not in can_ids or len(frame.data) != 8 or frame.data in SPECIAL_COMMANDS:
            continue
        current = [] if frame.can_id == can_ids[0] else current
        position, velocity, gain = mit_words(frame.data)
        if gain and len(current) == can_ids.index(frame.can_id):
            current.append((position, velocity))
        if frame.can_id == can_ids[-1] and len(current) == JOINT_COUNT:
            cycles.append(tuple(current))
    return cycles


def read_limits(path=SETTINGS_PATH):
    """Per joint (velocity, acceleration, jerk), and the motors' signs."""
    settings = read_settings(path)
    limits = settings["joint_trajectory"]
    keys = ("max_vel_limits", "max_acc_limits", "max_jerk_limits")
    return list(zip(*(limits[key] for key in keys))), settings["motor_signs"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("log")
    parser.add_argument("waypoints")
    mode = parser.add_mutually_exclusive_group(required=True)
    mode.add_argument("--speed", type=float)
    mode.add_argument("--time", type=float, dest="time_s")
    parser.add_argument("--config", default=SETTINGS_PATH)
    arguments = parser.parse_args()
    try:
        with open(arguments.waypoints, encoding="utf-8") as file:
            waypoints = json.load(file)
        limits, signs = read_limits(arguments.config)
        cycles = read_cycles(arguments.log)
    except (OSError, ValueError, KeyError, yaml.YAMLError) as error:
        sys.exit(f"waypoint_plan: {error}")
    found = find_plan(
        cycles, waypoints, limits, signs, speed=arguments.speed, time_s=arguments.time_s
    )
    if not found:
        sys.exit("waypoint_plan: the log holds no such move")
    print("%d samples planned; %d cycles on the wire, %d samples met" % found)


if __name__ == "__main__":
    main()
