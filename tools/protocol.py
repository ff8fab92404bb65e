"""The motors' frames: identifiers, layouts and scaling, of commands and of replies.

A motor is an `arm_facts.Motor`. A word is the integer that encodes a quantity in a frame.
"""

import struct

ENABLED = 1  # the upper half of a feedback frame's first byte
CLEAR_ERROR, ENABLE, DISABLE, SET_ZERO = 0xFB, 0xFC, 0xFD, 0xFE  # last byte of a special command
POS_VEL_OFFSET = 0x100  # of the identifier of position/velocity commands from the MIT commands'

REGISTER_ID = 0x7FF
QUERY, WRITE, REFRESH = 0x33, 0x55, 0xCC  # third byte of a frame with REGISTER_ID
ACCELERATION, DECELERATION, TIMEOUT, MODE, POSITION_GAIN = 4, 5, 9, 10, 27  # registers
MIT_MODE, POS_VEL_MODE = 1, 2  # values of the register MODE

POSITION_BITS, VELOCITY_BITS, TORQUE_BITS = 16, 12, 12
TORQUE_ONLY = object()  # stands for an MIT command without position gain


# ---- Quantities ----


def to_word(value, limit, bits):
    clamped = min(max(value, -limit), limit)
    return int((clamped + limit) / (2 * limit) * ((1 << bits) - 1))


def from_word(word, limit, bits):
    return -limit + word / ((1 << bits) - 1) * (2 * limit)


# ---- Commands ----


def special_command(code):
    return b"\xff" * 7 + bytes([code])


SPECIAL_COMMANDS = {
    special_command(code) for code in (CLEAR_ERROR, ENABLE, DISABLE, SET_ZERO)
}


def register_command(motor, command, register=0, value=b"\0\0\0\0"):
    """The identifier and data of a query, a write of 4 bytes, or a request for feedback."""
    return REGISTER_ID, bytes([motor.can_id, 0, command, register]) + value


def mit_words(data):
    """Position, velocity and position gain of an MIT command, as words."""
    return data[0] << 8 | data[1], data[2] << 4 | data[3] >> 4, (data[3] & 0x0F) << 8 | data[4]


def decode_command(motor, can_id, data):
    """The position and velocity that a motion command asks of a motor.

    TORQUE_ONLY for an MIT command without position gain, None if it is no motion command.
    """
    if can_id == motor.can_id and data not in SPECIAL_COMMANDS:
        position, velocity, gain = mit_words(data)
        if not gain:
            return TORQUE_ONLY
        return (
            from_word(position, motor.pmax, POSITION_BITS),
            from_word(velocity, motor.vmax, VELOCITY_BITS),
        )
    if can_id == motor.can_id + POS_VEL_OFFSET:
        return struct.unpack("<ff", data)
    return None


# ---- Replies ----


def decode_feedback(motor, data):
    """Position, velocity and torque in an enabled motor's feedback, or None."""
    if data[0] != ENABLED << 4 | motor.can_id:
        return None
    return (
        from_word(data[1] << 8 | data[2], motor.pmax, POSITION_BITS),
        from_word(data[3] << 4 | data[4] >> 4, motor.vmax, VELOCITY_BITS),
        from_word((data[4] & 0x0F) << 8 | data[5], motor.tmax, TORQUE_BITS),
    )
