"""Reads a candump log and decodes the motors' frames in it, from the wire format alone."""

import re
import struct
from dataclasses import dataclass, field
from typing import NamedTuple

import numpy as np

LINE = re.compile(r"^\((\d+\.\d+)\) (\S+) ([0-9A-Fa-f]+)(##[0-9A-Fa-f]|#)([0-9A-Fa-f]*)\s*$")
# PMAX, VMAX, TMAX of joints 1 to 6
RANGES = [(12.5, 8.0, 28.0)] * 3 + [(12.5, 30.0, 10.0)] * 3
GRIPPER_RANGE = RANGES[5]
GRIPPER = 6
NO_POSITION = "torque alone"
SPECIAL = {b"\xff" * 7 + bytes([code]) for code in (0xFB, 0xFC, 0xFD, 0xFE)}
CLASSIC_OVERHEAD_BITS = 47  # of a standard data frame, stuffing apart


class Frame(NamedTuple):
    time: float  # s
    can_id: int
    data: bytes
    fd_flags: int | None  # None: a classic frame


@dataclass
class Record:
    """What a log says of six joints, joint side. Times in seconds since the first frame."""

    commands: list = field(default_factory=lambda: [[] for _ in range(6)])  # (t, q, dq)
    replies: list = field(default_factory=lambda: [[] for _ in range(6)])  # (t, q, dq, tau, asked)
    # Answers to commands for a torque alone: (t, q, dq, tau)
    floating: list = field(default_factory=lambda: [[] for _ in range(6)])
    jaws: list = field(default_factory=list)  # (t, motor angle asked, motor angle), rad
    rounds: list = field(default_factory=list)  # t of every command for joint 1, floating or not
    frames: int = 0
    bits: int = 0
    duration: float = 0.0
    position_velocity: bool = False


def parse_line(line):
    """The frame in a line of a candump log, or None."""
    match = LINE.match(line)
    if not match or len(match[5]) % 2:
        return None
    fd_flags = int(match[4][2], 16) if len(match[4]) > 1 else None
    return Frame(float(match[1]), int(match[3], 16), bytes.fromhex(match[5]), fd_flags)


def unpack(raw, limit, bits):
    return -limit + raw / ((1 << bits) - 1) * (2 * limit)


def motor_range(index):
    return RANGES[index] if index < GRIPPER else GRIPPER_RANGE


def mit_words(data):
    """Position, velocity and kp of an MIT command, as the frame carries them."""
    return data[0] << 8 | data[1], data[2] << 4 | data[3] >> 4, (data[3] & 0x0F) << 8 | data[4]


def decode_command(joint, can_id, data):
    """The position and velocity that a motion command asks of a motor, NO_POSITION when it asks
    for a torque alone, or None."""
    if can_id == joint + 1 and data not in SPECIAL:
        pmax, vmax, _ = motor_range(joint)
        position, velocity, kp = mit_words(data)
        return (unpack(position, pmax, 16), unpack(velocity, vmax, 12)) if kp else NO_POSITION
    if can_id == joint + 0x101:
        return struct.unpack("<ff", data)
    return None


def decode_feedback(joint, data):
    """Position, velocity and torque of an enabled motor's feedback, or None."""
    if data[0] != 0x10 | (joint + 1):
        return None
    pmax, vmax, tmax = motor_range(joint)
    return (
        unpack(data[1] << 8 | data[2], pmax, 16),
        unpack(data[3] << 4 | data[4] >> 4, vmax, 12),
        unpack((data[4] & 0x0F) << 8 | data[5], tmax, 12),
    )


def read_log(path, signs):
    """Decodes a log. The feedback that answers a command is kept with what was asked."""
    record = Record()
    start = None
    waiting = [[] for _ in range(7)]  # commands not yet answered; None for those without motion
    with open(path, encoding="ascii", errors="replace") as log:
        for line in log:
            frame = parse_line(line)
            if not frame:
                continue
            start = frame.time if start is None else start
            time, can_id, data = frame.time - start, frame.can_id, frame.data
            record.frames += 1
            record.bits += CLASSIC_OVERHEAD_BITS + 8 * len(data)
            record.duration = time
            if len(data) != 8:
                continue
            if can_id == 0x7FF:
                # A refresh is answered with feedback too; register traffic with a register.
                if data[2] in (0x33, 0x55, 0xCC) and 1 <= data[0] <= 7:
                    waiting[data[0] - 1].append(data[2])
                continue
            joint = (can_id & 0x0F) - 1
            if not 0 <= joint <= GRIPPER:
                continue
            if 0x11 <= can_id <= 0x17:
                take_reply(record, joint, time, data, signs, waiting[joint])
            elif can_id < 8 or 0x101 <= can_id <= 0x106:
                command = decode_command(joint, can_id, data)
                waiting[joint].append(command)
                if command and joint == 0:
                    record.rounds.append(time)
                if isinstance(command, tuple) and joint < GRIPPER:
                    record.position_velocity |= can_id > 0x100
                    position, velocity = command[0] * signs[joint], command[1] * signs[joint]
                    record.commands[joint].append((time, position, velocity))
    record.commands = [np.array(rows).reshape(-1, 3) for rows in record.commands]
    record.replies = [np.array(rows).reshape(-1, 5) for rows in record.replies]
    record.floating = [np.array(rows).reshape(-1, 4) for rows in record.floating]
    record.jaws = np.array(record.jaws).reshape(-1, 3)
    return record


def take_reply(record, joint, time, data, signs, waiting):
    asked = waiting.pop(0) if waiting else None
    state = decode_feedback(joint, data) if asked not in (0x33, 0x55) else None
    if not state:
        return
    if joint == GRIPPER:
        if isinstance(asked, tuple):
            record.jaws.append((time, asked[0], state[0]))
        return
    position, velocity, torque = (value * signs[joint] for value in state)
    if isinstance(asked, tuple):
        asked_position = asked[0] * signs[joint]
        record.replies[joint].append((time, position, velocity, torque, asked_position))
    elif asked == NO_POSITION:
        record.floating[joint].append((time, position, velocity, torque))
