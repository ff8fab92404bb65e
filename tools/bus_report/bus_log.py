"""Decodes the motors' frames in a candump log."""

import re
from dataclasses import dataclass, field
from typing import NamedTuple

import numpy as np

from arm_facts import GRIPPER, JOINT_COUNT, MOTORS
from protocol import (
    POS_VEL_OFFSET,
    QUERY,
    REFRESH,
    REGISTER_ID,
    TORQUE_ONLY,
    WRITE,
    decode_command,
    decode_feedback,
)

LINE = re.compile(r"^\((\d+\.\d+)\) (\S+) ([0-9A-Fa-f]+)(##[0-9A-Fa-f]|#)([0-9A-Fa-f]*)\s*$")
CLASSIC_OVERHEAD_BITS = 47  # of a standard data frame, without stuff bits
BY_CAN_ID = {motor.can_id: motor for motor in MOTORS}
BY_MASTER_ID = {motor.master_id: motor for motor in MOTORS}
# The gripper takes MIT commands in either mode.
BY_COMMAND_ID = BY_CAN_ID | {
    motor.can_id + POS_VEL_OFFSET: motor for motor in MOTORS if motor is not GRIPPER
}


class Frame(NamedTuple):
    time: float  # s
    can_id: int
    data: bytes
    fd_flags: int | None  # None: a classic frame


def per_joint():
    return field(default_factory=lambda: [[] for _ in range(JOINT_COUNT)])


@dataclass
class Record:
    """The motion in a log. Angles of the joints; times in seconds since the first frame."""

    commands: list = per_joint()  # (t, q, dq)
    replies: list = per_joint()  # (t, q, dq, tau, commanded q)
    floating: list = per_joint()  # (t, q, dq, tau), in reply to commands of a torque alone
    jaws: list = field(default_factory=list)  # (t, commanded motor angle, motor angle), rad
    rounds: list = field(default_factory=list)  # t of every command for joint 1, floating or not
    frames: int = 0
    bits: int = 0
    start: float = 0.0  # the clock's time of the first frame
    duration: float = 0.0
    position_velocity: bool = False


def parse_line(line):
    """The frame in a line of a candump log, or None."""
    match = LINE.match(line)
    if not match or len(match[5]) % 2:
        return None
    fd_flags = int(match[4][2], 16) if len(match[4]) > 1 else None
    return Frame(float(match[1]), int(match[3], 16), bytes.fromhex(match[5]), fd_flags)


def read_lines(path):
    """Yields the lines of a log, each with its frame or None."""
    with open(path, encoding="ascii", errors="replace") as log:
        for line in log:
            yield line, parse_line(line)


def read_frames(path):
    """Yields the frames of a log; skips other lines."""
    return (frame for _, frame in read_lines(path) if frame)


class Decoder:
    """Sorts frames into a record; a reply is kept together with the command that it answers."""

    def __init__(self, signs):
        self.record = Record()
        self._signs = dict(zip(MOTORS, [*signs, 1]))
        # What each motor has not answered yet: commands, or the third byte of register frames.
        self._pending = {motor: [] for motor in MOTORS}

    def take(self, time, can_id, data):
        record = self.record
        record.frames += 1
        record.bits += CLASSIC_OVERHEAD_BITS + 8 * len(data)
        record.duration = time
        if len(data) != 8:
            return
        if can_id == REGISTER_ID:
            self._take_register_command(data)
        elif can_id in BY_MASTER_ID:
            self._take_reply(BY_MASTER_ID[can_id], time, data)
        elif can_id in BY_COMMAND_ID:
            self._take_command(BY_COMMAND_ID[can_id], time, can_id, data)

    def _take_register_command(self, data):
        if data[2] in (QUERY, WRITE, REFRESH) and data[0] in BY_CAN_ID:
            self._pending[BY_CAN_ID[data[0]]].append(data[2])

    def _take_command(self, motor, time, can_id, data):
        record, sign = self.record, self._signs[motor]
        command = decode_command(motor, can_id, data)
        self._pending[motor].append(command)
        if command and motor is MOTORS[0]:
            record.rounds.append(time)
        if isinstance(command, tuple) and motor is not GRIPPER:
            record.position_velocity |= can_id != motor.can_id
            position, velocity = (value * sign for value in command)
            record.commands[MOTORS.index(motor)].append((time, position, velocity))

    def _take_reply(self, motor, time, data):
        pending = self._pending[motor]
        command = pending.pop(0) if pending else None
        # Queries and writes are answered with a register, everything else with feedback.
        state = None if command in (QUERY, WRITE) else decode_feedback(motor, data)
        if not state:
            return
        commanded = command[0] * self._signs[motor] if isinstance(command, tuple) else None
        position, velocity, torque = (value * self._signs[motor] for value in state)
        if motor is GRIPPER:
            if commanded is not None:
                self.record.jaws.append((time, commanded, position))
            return
        joint = MOTORS.index(motor)
        if commanded is not None:
            self.record.replies[joint].append((time, position, velocity, torque, commanded))
        elif command is TORQUE_ONLY:
            self.record.floating[joint].append((time, position, velocity, torque))


def read_log(path, signs):
    """The record of a log; `signs` are the joints' motor signs."""
    decoder = Decoder(signs)
    start = None
    for frame in read_frames(path):
        start = frame.time if start is None else start
        decoder.take(frame.time - start, frame.can_id, frame.data)
    record = decoder.record
    record.start = start or 0.0
    record.commands = [np.array(rows).reshape(-1, 3) for rows in record.commands]
    record.replies = [np.array(rows).reshape(-1, 5) for rows in record.replies]
    record.floating = [np.array(rows).reshape(-1, 4) for rows in record.floating]
    record.jaws = np.array(record.jaws).reshape(-1, 3)
    return record
