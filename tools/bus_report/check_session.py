#!/usr/bin/env python3
"""Checks every frame of a recorded session of first_motion with an arm without gripper.

usage: check_session.py LOG [--pos-vel] [--fd] [--config FILE]

The controller must send exactly the expected frames of the bring-up, then nothing but whole rounds of
motion commands and of requests for feedback, and nothing after it has disabled the motors. The
session begins after the last frame 7FE, a marker that the recorder sends. If the control loop ran on
schedule, every second round of commands has a request, and the last one is the zero pose; if the
loop ran late, only an upper bound is checked.
"""

import argparse
import struct
import sys
from pathlib import Path

import yaml

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from arm_facts import (  # noqa: E402
    CONTROL_PERIOD_S,
    FEEDBACK_PERIOD_S,
    JOINT_COUNT,
    JOINTS,
    MOTOR_TIMEOUT,
    SETTINGS_PATH,
    read_settings,
)
from bus_log import read_lines  # noqa: E402
from protocol import (  # noqa: E402
    ACCELERATION,
    CLEAR_ERROR,
    DECELERATION,
    DISABLE,
    ENABLE,
    MIT_MODE,
    MODE,
    POS_VEL_MODE,
    POS_VEL_OFFSET,
    POSITION_GAIN,
    QUERY,
    REFRESH,
    TIMEOUT,
    TORQUE_ONLY,
    WRITE,
    decode_command,
    register_command,
    special_command,
)

MARKER = 0x7FE
BIT_RATE_SWITCH = 1  # of the flags in candump's log
MIN_CYCLES = 200  # of the 3000 on a machine that is fast enough
ON_SCHEDULE = 0.8  # of the cycles
MIN_ANSWERED = 0.5  # of the frames to the motors; an arm that is late loses some
ZERO_WITHIN = 0.005  # rad
FOLLOWERS = {  # of each kind of round
    "start": ["refresh"],
    "refresh": ["command"],
    "command": ["command", "refresh", "disable"],
    "disable": ["end"],
}


class SessionError(Exception):
    """A session that is not as expected."""


def special_round(code):
    return [(motor.can_id, special_command(code)) for motor in JOINTS]


def register_round(command, register=0, values=(b"\0\0\0\0",) * JOINT_COUNT):
    """The frames that query a register, write the values (4 bytes each) or request feedback."""
    return [
        register_command(motor, command, register, value) for motor, value in zip(JOINTS, values)
    ]


def integer(value):
    return (struct.pack("<I", value),) * JOINT_COUNT


def floats(values):
    return tuple(struct.pack("<f", value) for value in values)


def bring_up(settings, pos_vel):
    """All frames before the first one of the control loop."""
    frames = register_round(WRITE, TIMEOUT) + special_round(CLEAR_ERROR)
    frames += register_round(WRITE, MODE, integer(POS_VEL_MODE if pos_vel else MIT_MODE))
    if pos_vel:
        limits = settings["pos_vel_mode"]
        registers = (ACCELERATION, DECELERATION, POSITION_GAIN)
        queries = [frame for register in registers for frame in register_round(QUERY, register)]
        frames += queries
        for register, key in zip(registers, ("max_acc_limits", "max_dec_limits", "kp_apr_limits")):
            frames += register_round(WRITE, register, floats(limits[key]))
        frames += queries
    frames += register_round(WRITE, TIMEOUT, integer(MOTOR_TIMEOUT)) + special_round(ENABLE)
    return frames + register_round(REFRESH)


def show(can_id, data):
    return f"{can_id:03X}#{data.hex().upper()}"


def read_session(path):
    """The frames after the marker."""
    frames = []
    for number, (line, frame) in enumerate(read_lines(path), 1):
        if not frame:
            raise SessionError(f"line {number} holds no frame: {line.strip()}")
        frames.append(frame)
    marks = [i for i, frame in enumerate(frames) if frame.can_id == MARKER]
    if not marks:
        raise SessionError("the log has no frame 7FE to start at")
    return frames[marks[-1] + 1 :]


def check_forms(frames, fd):
    for frame in frames:
        is_fd = frame.fd_flags is not None
        if is_fd != fd or (is_fd and not frame.fd_flags & BIT_RATE_SWITCH) or len(frame.data) != 8:
            kind = "CAN-FD frame with bit-rate switch" if fd else "classic frame"
            raise SessionError(f"{show(frame.can_id, frame.data)} is not a {kind} of 8 bytes")


def check_bring_up(frames, expected):
    for number, (should, frame) in enumerate(zip(expected, frames), 1):
        if (frame.can_id, frame.data) != should:
            found = show(frame.can_id, frame.data)
            raise SessionError(f"frame {number} of the bring-up is {found}, not {show(*should)}")
    if len(frames) < len(expected):
        raise SessionError(f"the bring-up ends after {len(frames)} of {len(expected)} frames")


def kind_of(block, pos_vel):
    """The kind of a round of frames, one per motor, or None."""
    plain = [(frame.can_id, frame.data) for frame in block]
    if plain == register_round(REFRESH):
        return "refresh"
    if plain == special_round(DISABLE):
        return "disable"
    offset = POS_VEL_OFFSET if pos_vel else 0
    if [can_id for can_id, _ in plain] != [motor.can_id + offset for motor in JOINTS]:
        return None
    return "command" if all(decode_round(block)) else None


def decode_round(block):
    return [decode_command(motor, *frame[1:3]) for motor, frame in zip(JOINTS, block)]


def check_loop(frames, pos_vel):
    """The rounds of commands, and the number of rounds of requests for feedback."""
    blocks = [frames[i : i + JOINT_COUNT] for i in range(0, len(frames), JOINT_COUNT)]
    kinds = [kind_of(block, pos_vel) for block in blocks]
    for before, kind, block in zip(["start"] + kinds, kinds + ["end"], blocks + [[]]):
        if kind not in FOLLOWERS[before]:
            found = " ".join(show(*frame[1:3]) for frame in block) or "the end"
            raise SessionError(f"after {before} comes {found}, not one of {FOLLOWERS[before]}")
    rounds = [block for block, kind in zip(blocks, kinds) if kind == "command"]
    return rounds, kinds.count("refresh")


def check_schedule(start, rounds, requests):
    """The share of cycles on schedule; `start` is the time at which the bring-up ended."""
    times = [block[0].time for block in rounds]
    cycles = len(rounds)
    span = times[-1] - start
    if not MIN_CYCLES <= cycles <= span / CONTROL_PERIOD_S + 2:
        raise SessionError(f"{cycles} rounds of commands in {span:.2f} s")
    if requests > span / FEEDBACK_PERIOD_S + 2:
        raise SessionError(f"{requests} requests for feedback in {span:.2f} s")
    gaps = [after - before for before, after in zip(times, times[1:])]
    on_schedule = sum(0.8 < gap / CONTROL_PERIOD_S < 1.2 for gap in gaps) / len(gaps)
    if on_schedule > ON_SCHEDULE:
        if not 0.4 < requests / cycles < 0.6:
            raise SessionError(f"{requests} requests for feedback for {cycles} rounds of commands")
        last = decode_round(rounds[-1])
        if TORQUE_ONLY in last or max(abs(position) for position, _ in last) > ZERO_WITHIN:
            raise SessionError(f"the last commands are {last}, not the zero pose")
    return on_schedule


def check(path, settings, pos_vel, fd):
    frames = read_session(path)
    check_forms(frames, fd)
    master_ids = [motor.master_id for motor in JOINTS]
    replies = [frame for frame in frames if frame.can_id in master_ids]
    sent = [frame for frame in frames if frame.can_id not in master_ids]
    expected = bring_up(settings, pos_vel)
    check_bring_up(sent, expected)
    rounds, requests = check_loop(sent[len(expected) :], pos_vel)
    on_schedule = check_schedule(sent[len(expected) - 1].time, rounds, requests)
    if not MIN_ANSWERED * len(sent) <= len(replies) <= len(sent):
        raise SessionError(f"{len(replies)} replies to {len(sent)} frames")
    return (
        f"{len(expected)} frames of bring-up, {len(rounds)} rounds of commands"
        f" ({100 * on_schedule:.0f} % on schedule), {requests} requests for feedback,"
        f" {len(replies)} replies to {len(sent)} frames"
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("log")
    parser.add_argument("--pos-vel", action="store_true", help="position/velocity mode, not MIT")
    parser.add_argument("--fd", action="store_true", help="CAN-FD frames, not classic ones")
    parser.add_argument("--config", default=SETTINGS_PATH)
    arguments = parser.parse_args()
    try:
        settings = read_settings(arguments.config)
        found = check(arguments.log, settings, arguments.pos_vel, arguments.fd)
    except (OSError, KeyError, yaml.YAMLError, SessionError) as error:
        sys.exit(f"check_session: {arguments.log}: {error}")
    print(f"session as expected: {found}")


if __name__ == "__main__":
    main()
