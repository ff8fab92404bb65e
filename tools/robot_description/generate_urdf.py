#!/usr/bin/env python3
"""Writes the arm's URDF from the simple solids that each link is made of.

usage: generate_urdf.py [OUTPUT]      (default: standard output)

A link is a list of solids: homogeneous cylinders and boxes, each with a mass, a place in the link
frame and a colour. The link's mass, centre of mass and inertia tensor are those of the solids
together: each solid's own tensor, rotated into the link frame and moved to the common centre of
mass (Steiner's theorem). The same solids are its visuals and collisions. The jaws and the gripper
housing are drawn on the last link without mass: the gripper is the payload of
robot_kinematics.yaml, so that an arm without gripper needs no other file.
"""

import math
import sys
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import arm_facts  # noqa: E402

# The roll, pitch and yaw that turn the z axis to another one.
ALONG = {"x": (0.0, math.pi / 2, 0.0), "y": (-math.pi / 2, 0.0, 0.0), "z": (0.0, 0.0, 0.0)}
COLOURS = {
    "graphite": (0.16, 0.17, 0.19, 1.0),
    "white": (0.92, 0.93, 0.94, 1.0),
    "blue": (0.10, 0.42, 0.80, 1.0),
    "orange": (0.95, 0.50, 0.10, 1.0),
}


def cylinder(mass, radius, length, along, at, colour):
    across = mass * (3 * radius**2 + length**2) / 12
    axial = mass * radius**2 / 2
    tensor = np.diag([axial if axis == along else across for axis in "xyz"])
    shape = f'<cylinder radius="{radius:g}" length="{length:g}"/>'
    return mass, np.array(at, float), tensor, shape, ALONG[along], colour


def box(mass, size, at, colour):
    x, y, z = size
    tensor = mass / 12 * np.diag([y * y + z * z, x * x + z * z, x * x + y * y])
    shape = f'<box size="{x:g} {y:g} {z:g}"/>'
    return mass, np.array(at, float), tensor, shape, ALONG["z"], colour


SHOULDER_HEIGHT = 0.045  # joint 1 to joint 2, m
BASE_HEIGHT = 0.0625  # floor to joint 1, m

# A link carries the next joint's motor, which is usually its last solid.
LINKS = {
    "base_link": [
        cylinder(0.45, 0.070, 0.016, "z", (0, 0, 0.008), "graphite"),
        cylinder(0.40, 0.046, 0.0465, "z", (0, 0, 0.03925), "graphite"),
    ],
    "link1": [
        cylinder(0.30, 0.042, 0.040, "z", (0, 0, 0.010), "white"),
        cylinder(0.40, 0.036, 0.078, "y", (0, 0, SHOULDER_HEIGHT), "graphite"),
    ],
    "link2": [
        box(0.25, (0.048, 0.022, 0.265), (0, -0.050, 0.1325), "white"),
        box(0.25, (0.048, 0.022, 0.265), (0, 0.050, 0.1325), "white"),
        cylinder(0.50, 0.034, 0.076, "y", (0, 0, 0.265), "graphite"),
    ],
    "link3": [
        box(0.35, (0.200, 0.046, 0.046), (0.128, 0, 0), "white"),
        cylinder(0.35, 0.028, 0.056, "y", (0.26498, 0, 0), "graphite"),
    ],
    "link4": [
        box(0.08, (0.070, 0.008, 0.036), (0.040, 0.033, 0), "blue"),
        box(0.08, (0.070, 0.008, 0.036), (0.040, -0.033, 0), "blue"),
        cylinder(0.24, 0.028, 0.052, "z", (0.08415, 0, 0), "graphite"),
    ],
    "link5": [
        box(0.10, (0.070, 0.040, 0.036), (0.060, 0, 0), "blue"),
        cylinder(0.30, 0.028, 0.050, "x", (0.098, 0, 0), "graphite"),
    ],
    "link6": [cylinder(0.05, 0.026, 0.010, "x", (0.006, 0, 0), "white")],
}
# Drawn only: the payload has the gripper's mass.
GRIPPER = [
    box(0.0, (0.060, 0.080, 0.044), (0.041, 0, 0), "graphite"),
    box(0.0, (0.075, 0.010, 0.024), (0.1085, 0.025, 0), "orange"),
    box(0.0, (0.075, 0.010, 0.024), (0.1085, -0.025, 0), "orange"),
]

# name, parent, child, origin, axis, lower, upper; effort and velocity are the motor's
JOINTS = [
    ("joint1", "base_link", "link1", (0, 0, BASE_HEIGHT), "0 0 1", -2.80, 2.80),
    ("joint2", "link1", "link2", (0, 0, SHOULDER_HEIGHT), "0 1 0", -1.57, 1.92),
    ("joint3", "link2", "link3", (0, 0, 0.265), "0 1 0", -1.75, 1.40),
    ("joint4", "link3", "link4", (0.26498, 0, 0), "0 1 0", -1.75, 1.75),
    ("joint5", "link4", "link5", (0.08415, 0, 0), "0 0 1", -1.57, 1.57),
    ("joint6", "link5", "link6", (0.124, 0, 0), "1 0 0", -2.90, 2.90),
]

HEADER = """<?xml version="1.0" encoding="utf-8"?>
<!-- Written by tools/robot_description/generate_urdf.py; change that and run it again.

     Six revolute joints in series. Metres, kilograms, radians. All frames are parallel to the base
     at zero angles: x forward, z up. Joints 1 and 2 intersect 0.1075 m above the floor.

     Masses and inertias are those of homogeneous cylinders and boxes, the ones drawn: each solid's
     own tensor (cylinder: m(3r^2+l^2)/12 across and mr^2/2 along its axis; box: m(a^2+b^2)/12),
     moved to the link's centre of mass by Steiner's theorem. Tensors stand about that centre, in
     axes parallel to the link frame. The gripper is drawn here without mass; its mass is the
     payload of robot_kinematics.yaml. -->
"""


def numbers(values):
    return " ".join(f"{value + 0.0:.9g}" for value in values)


def mass_properties(solids):
    mass = sum(solid[0] for solid in solids)
    com = sum(solid[0] * solid[1] for solid in solids) / mass
    inertia = np.zeros((3, 3))
    for part_mass, at, tensor, *_ in solids:
        r = at - com
        inertia += tensor + part_mass * (r @ r * np.eye(3) - np.outer(r, r))
    return mass, com, inertia


def shape_lines(solid, with_collision):
    _, at, _, shape, rpy, colour = solid
    origin = f'<origin xyz="{numbers(at)}" rpy="{numbers(rpy)}"/>'
    geometry = f"<geometry>{shape}</geometry>"
    yield f"    <visual>{origin}{geometry}<material name=\"{colour}\"/></visual>"
    if with_collision:
        yield f"    <collision>{origin}{geometry}</collision>"


def link_lines(name, solids):
    mass, com, inertia = mass_properties(solids)
    upper = [(row, column) for row in range(3) for column in range(row, 3)]
    tensor = " ".join(
        f'i{"xyz"[row]}{"xyz"[column]}="{inertia[row, column] + 0.0:.9g}"' for row, column in upper
    )
    yield f'  <link name="{name}">'
    yield "    <inertial>"
    yield f'      <origin xyz="{numbers(com)}" rpy="0 0 0"/>'
    yield f'      <mass value="{mass:.9g}"/>'
    yield f"      <inertia {tensor}/>"
    yield "    </inertial>"
    for solid in solids + (GRIPPER if name == "link6" else []):
        yield from shape_lines(solid, with_collision=True)
    yield "  </link>"


def joint_lines(motor, name, parent, child, origin, axis, lower, upper):
    yield f'  <joint name="{name}" type="revolute">'
    yield f'    <parent link="{parent}"/><child link="{child}"/>'
    yield f'    <origin xyz="{numbers(origin)}" rpy="0 0 0"/>'
    yield f'    <axis xyz="{axis}"/>'
    yield (
        f'    <limit lower="{lower:g}" upper="{upper:g}"'
        f' effort="{motor.tmax:g}" velocity="{motor.vmax:g}"/>'
    )
    yield "  </joint>"


def urdf():
    lines = ['<robot name="BrimloV2.SLDASM">']
    for name, rgba in COLOURS.items():
        lines.append(f'  <material name="{name}"><color rgba="{numbers(rgba)}"/></material>')
    for name, solids in LINKS.items():
        lines += link_lines(name, solids)
    for motor, joint in zip(arm_facts.JOINTS, JOINTS):
        lines += joint_lines(motor, *joint)
    lines.append("</robot>")
    return HEADER + "\n".join(lines) + "\n"


if __name__ == "__main__":
    if len(sys.argv) > 2 or sys.argv[1:2] in (["-h"], ["--help"]):
        sys.exit(__doc__)
    if len(sys.argv) == 2:
        with open(sys.argv[1], "w", encoding="utf-8") as output:
            output.write(urdf())
    else:
        sys.stdout.write(urdf())
