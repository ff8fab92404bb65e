"""Facts of the arm, read from the tables that the library is compiled from, and from its settings.

Every motor (`MOTORS`: the joints, then the gripper) has its identifiers and the ranges of its frames;
`CONTROL_PERIOD_S` and its neighbours are the controller's timing. Importing this module fails with a
`FactsError` if a table no longer has the form that is read here.
"""

import re
from pathlib import Path
from typing import NamedTuple

import yaml

ROOT = Path(__file__).resolve().parents[1]
URDF_PATH = ROOT / "config" / "BrimloV2.SLDASM.urdf"
SETTINGS_PATH = ROOT / "config" / "robot_kinematics.yaml"
SECONDS = {"microseconds": 1e-6, "milliseconds": 1e-3, "seconds": 1.0}


class FactsError(ValueError):
    """A C++ table that is missing or has another form."""


class Motor(NamedTuple):
    can_id: int  # of its MIT commands
    master_id: int  # of its feedback
    pmax: float  # rad; each quantity is scaled over -max to +max
    vmax: float  # rad/s
    tmax: float  # N·m


class Header:
    """The constants and tables of one C++ header."""

    def __init__(self, path):
        self.path = path
        self.text = re.sub(r"//.*", "", (ROOT / path).read_text(encoding="utf-8"))

    def find(self, pattern):
        match = re.search(pattern, self.text, re.DOTALL)
        if not match:
            raise FactsError(f"{self.path}: nothing matches {pattern}")
        return match[1]

    def constant(self, name):
        return self.find(rf"\b{name}(?: = |\{{)([^;{{}}]+)\}}?;").strip()

    def resolve(self, expression):
        """The value of a constant of this header; any qualified name stands for itself."""
        return expression if "::" in expression else self.constant(expression)

    def duration_s(self, name):
        unit = self.find(rf"std::chrono::(\w+) {name}\{{")
        return float(self.constant(name)) * SECONDS[unit]

    def table(self, struct, name):
        """The rows of an array of a struct, as dicts of the words between the commas."""
        fields = re.findall(r"(\w+);", self.find(rf"struct {struct} \{{(.*?)\n\}};"))
        body = self.find(rf"\b{name}\{{\{{(.*?)\n\}}\}};")
        rows = [row.split(",") for row in re.findall(r"\{(.*?)\}", body, re.DOTALL)]
        if not rows or any(len(row) != len(fields) for row in rows):
            raise FactsError(f"{self.path}: the rows of {name} do not match {struct}")
        return [dict(zip(fields, map(str.strip, row))) for row in rows]


def read_ranges():
    """The frames' ranges (pmax, vmax, tmax) of each motor model."""
    header = Header("include/kelvara/damiao_motor/motor_type.hpp")
    models = re.findall(r"(\w+) = (\d+)", header.find(r"enum class MotorType[^{]*\{(.*?)\};"))
    rows = header.table("LimitParam", "MOTOR_LIMIT_PARAMS")
    if [int(index) for _, index in models] != list(range(len(rows))):
        raise FactsError(f"{header.path}: not one row of MOTOR_LIMIT_PARAMS for each MotorType")
    return {
        model: tuple(float(row[key]) for key in ("pmax", "vmax", "tmax"))
        for (model, _), row in zip(models, rows)
    }


def read_motors():
    """The motors of the joints, joint 1 first, and the gripper's."""
    ranges = read_ranges()
    arm = Header("src/description/arm_facts.hpp")
    gripper = Header("src/description/gripper_facts.hpp")

    def motor(can_id, master_id, model):
        return Motor(int(can_id, 0), int(master_id, 0), *ranges[model.rpartition("::")[2]])

    joints = [
        motor(row["can_id"], row["master_id"], arm.resolve(row["motor_type"]))
        for row in arm.table("JointFacts", "kJoints")
    ]
    names = ("kGripperCanId", "kGripperMasterId", "kGripperMotorType")
    return joints, motor(*map(gripper.constant, names))


JOINTS, GRIPPER = read_motors()
MOTORS = [*JOINTS, GRIPPER]
JOINT_COUNT = len(JOINTS)

_timing = Header("src/description/timing.hpp")
CONTROL_PERIOD_S = _timing.duration_s("kControlPeriod")
FEEDBACK_PERIOD_S = _timing.duration_s("kFeedbackPeriod")
MOTOR_TIMEOUT = int(_timing.constant("kMotorTimeout"))  # as the motors' register holds it


def read_settings(path=SETTINGS_PATH):
    """The parsed YAML file of the arm's tool, payload, gains, limits and motor signs."""
    with open(path, encoding="utf-8") as file:
        return yaml.safe_load(file)
