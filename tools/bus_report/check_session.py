#!/usr/bin/env python3
"""Checks every frame of one session of first_motion with an arm without gripper, from candump's log.

usage: check_session.py LOG [--pos-vel] [--fd] [--config FILE]

The controller must bring the motors up with exactly the frames it should, then send nothing but
whole rounds of motion commands and of requests for feedback, and say no more once it has disabled
the motors. The log starts at the last frame 7FE, which whoever recorded it sent. Where the machine
let the control loop run on schedule, every second round of commands has a request, and the last one
is the zero pose; a late loop just must not send more than it should.
"""

import argparse
import os
import struct
import sys

import yaml

from bus_log import decode_command, parse_line

CONFIG = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "config")
MOTORS = range(1, 7)
MARKER, REGISTER_ID = 0x7FE, 0x7FF
CLEAR_ERROR, ENABLE, DISABLE = 0xFB, 0xFC, 0xFD
QUERY, WRITE = 0x33, 0x55
ACC, DEC, TIMEOUT, MODE, KP_APR = 4, 5, 9, 10, 27
BIT_RATE_SWITCH = 1  # of the flags that candump shows
CYCLE_S, FEEDBACK_S = 0.0025, 0.005
MIN_CYCLES = 200  # of the 3000 that the session has on a machine that is fast enough
ON_SCHEDULE = 0.8  # of the cycles
ANSWERED = 0.5  # of the frames to the motors; a late arm has no room for some of them
ZERO = 0.005  # rad
FOLLOWS = {
    "start": ["refresh"],
    "refresh": ["command"],
    "command": ["command", "refresh", "disable"],
    "disable": ["end"],
}


class Wrong(Exception):
    """What in a session is not as it should be."""


def special(code):
    return [(motor, b"\xff" * 7 + bytes([code])) for motor in MOTORS]


def register(command, rid, values=(b"\0\0\0\0",) * 6):
    """The round of register frames that queries a register or writes the values, 4 bytes each."""
    return [
        (REGISTER_ID, bytes([motor, 0, command, rid]) + value)
        for motor, value in zip(MOTORS, values)
    ]


def integer(value):
    return (struct.pack("<I", value),) * 6


def floats(values):
    return tuple(struct.pack("<f", value) for value in values)


REFRESH = [(REGISTER_ID, bytes([motor, 0, 0xCC, 0, 0, 0, 0, 0])) for motor in MOTORS]


def bring_up(config, pos_vel):
    """The frames from the first one to the one before the control loop's first."""
    frames = register(WRITE, TIMEOUT) + special(CLEAR_ERROR)
    frames += register(WRITE, MODE, integer(2 if pos_vel else 1))
    if pos_vel:
        limits = config["pos_vel_mode"]
        queries = [frame for rid in (ACC, DEC, KP_APR) for frame in register(QUERY, rid)]
        frames += queries
        frames += register(WRITE, ACC, floats(limits["max_acc_limits"]))
        frames += register(WRITE, DEC, floats(limits["max_dec_limits"]))
        frames += register(WRITE, KP_APR, floats(limits["kp_apr_limits"]))
        frames += queries
    return frames + register(WRITE, TIMEOUT, integer(1000)) + special(ENABLE) + REFRESH


def show(can_id, data):
    return f"{can_id:03X}#{data.hex().upper()}"


def read_session(path):
    """The frames after the marker."""
    frames = []
    with open(path, encoding="ascii", errors="replace") as log:
        for number, line in enumerate(log, 1):
            frame = parse_line(line)
            if not frame:
                raise Wrong(f"line {number} holds no frame: {line.strip()}")
            frames.append(frame)
    marks = [i for i, frame in enumerate(frames) if frame.can_id == MARKER]
    if not marks:
        raise Wrong("the log has no frame 7FE to start at")
    return frames[marks[-1] + 1 :]


def check_forms(frames, fd):
    for frame in frames:
        is_fd = frame.fd_flags is not None
        if is_fd != fd or (is_fd and not frame.fd_flags & BIT_RATE_SWITCH) or len(frame.data) != 8:
            kind = "CAN-FD frame with bit-rate switch" if fd else "classic frame"
            raise Wrong(f"{show(frame.can_id, frame.data)} is no {kind} of 8 bytes")


def check_bring_up(frames, expected):
    for number, (should, frame) in enumerate(zip(expected, frames), 1):
        if (frame.can_id, frame.data) != should:
            found = show(frame.can_id, frame.data)
            raise Wrong(f"frame {number} of the bring-up is {found}, not {show(*should)}")
    if len(frames) < len(expected):
        raise Wrong(f"the bring-up ends after {len(frames)} of {len(expected)} frames")


def kind_of(block, pos_vel):
    """What a round of six frames is, or None."""
    plain = [(frame.can_id, frame.data) for frame in block]
    if plain == REFRESH:
        return "refresh"
    if plain == special(DISABLE):
        return "disable"
    ids = [can_id for can_id, _ in plain]
    if ids != [motor + (0x100 if pos_vel else 0) for motor in MOTORS]:
        return None
    commands = [decode_command(i, *frame) for i, frame in enumerate(plain)]
    return "command" if all(commands) else None


def check_loop(frames, pos_vel):
    """The rounds of commands, and how many requests for feedback there were."""
    blocks = [frames[i : i + 6] for i in range(0, len(frames), 6)]
    kinds = [kind_of(block, pos_vel) for block in blocks]
    for before, kind, block in zip(["start"] + kinds, kinds + ["end"], blocks + [[]]):
        if kind not in FOLLOWS[before]:
            found = " ".join(show(*frame[1:3]) for frame in block) or "the end"
            raise Wrong(f"after {before} comes {found}, not one of {FOLLOWS[before]}")
    rounds = [block for block, kind in zip(blocks, kinds) if kind == "command"]
    return rounds, kinds.count("refresh")


def check_schedule(start, rounds, requests):
    """The share of cycles on schedule. No schedule starts before the bring-up has ended."""
    times = [block[0].time for block in rounds]
    cycles = len(rounds)
    span = times[-1] - start
    if not MIN_CYCLES <= cycles <= span / CYCLE_S + 2:
        raise Wrong(f"{cycles} rounds of commands in {span:.2f} s")
    if requests > span / FEEDBACK_S + 2:
        raise Wrong(f"{requests} requests for feedback in {span:.2f} s")
    gaps = [after - before for before, after in zip(times, times[1:])]
    on_schedule = sum(0.8 < gap / CYCLE_S < 1.2 for gap in gaps) / len(gaps)
    if on_schedule > ON_SCHEDULE:
        if not 0.4 < requests / cycles < 0.6:
            raise Wrong(f"{requests} requests for feedback for {cycles} rounds of commands")
        last = [decode_command(i, *frame[1:3])[0] for i, frame in enumerate(rounds[-1])]
        if max(map(abs, last)) > ZERO:
            raise Wrong(f"the motors are left at {last}, not at zero")
    return on_schedule


def check(path, config, pos_vel, fd):
    frames = read_session(path)
    check_forms(frames, fd)
    replies = [frame for frame in frames if 0x11 <= frame.can_id <= 0x16]
    asked = [frame for frame in frames if not 0x11 <= frame.can_id <= 0x16]
    expected = bring_up(config, pos_vel)
    check_bring_up(asked, expected)
    rounds, requests = check_loop(asked[len(expected) :], pos_vel)
    on_schedule = check_schedule(asked[len(expected) - 1].time, rounds, requests)
    if not ANSWERED * len(asked) <= len(replies) <= len(asked):
        raise Wrong(f"{len(replies)} replies to {len(asked)} frames")
    return (
        f"{len(expected)} frames of bring-up, {len(rounds)} rounds of commands"
        f" ({100 * on_schedule:.0f} % on schedule), {requests} requests for feedback,"
        f" {len(replies)} replies to {len(asked)} frames"
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("log")
    parser.add_argument("--pos-vel", action="store_true", help="position/velocity mode, not MIT")
    parser.add_argument("--fd", action="store_true", help="CAN-FD frames, not classic ones")
    parser.add_argument("--config", default=os.path.join(CONFIG, "robot_kinematics.yaml"))
    arguments = parser.parse_args()
    try:
        with open(arguments.config, encoding="utf-8") as file:
            config = yaml.safe_load(file)
        found = check(arguments.log, config, arguments.pos_vel, arguments.fd)
    except (OSError, KeyError, yaml.YAMLError, Wrong) as error:
        sys.exit(f"check_session: {arguments.log}: {error}")
    print(f"session as expected: {found}")


if __name__ == "__main__":
    main()
