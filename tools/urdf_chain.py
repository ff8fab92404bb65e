"""Reads the chain of moving joints in a URDF file."""

import xml.etree.ElementTree as ElementTree
from math import cos, sin
from typing import NamedTuple

import numpy as np


class Joint(NamedTuple):
    """A moving joint; its link's frame in the frame of the moving joint before it."""

    origin: np.ndarray  # m
    rotation: np.ndarray  # at zero angle
    axis: np.ndarray  # of length 1, in the joint's own frame


def read_chain(path):
    """The revolute joints, base first. Fixed joints become part of the next joint's frame."""
    robot = ElementTree.parse(path).getroot()
    joints, link = _joints_by_parent(robot)
    chain = []
    origin, R = np.zeros(3), np.eye(3)
    while link in joints:
        joint = joints[link]
        link = joint.find("child").get("link")
        place = joint.find("origin")
        origin = origin + R @ _vector(place, "xyz")
        R = R @ _rotation(*_vector(place, "rpy"))
        if joint.get("type") in ("revolute", "continuous"):
            axis = _vector(joint.find("axis"), "xyz", "0 0 1")
            chain.append(Joint(origin, R, axis / np.linalg.norm(axis)))
            origin, R = np.zeros(3), np.eye(3)
        elif joint.get("type") != "fixed":
            raise ValueError(f"joint {joint.get('name')} is neither revolute nor fixed")
    return chain


def base_radius(path):
    """The largest radius of the cylinders that the root link is drawn with, m."""
    robot = ElementTree.parse(path).getroot()
    _, root = _joints_by_parent(robot)
    (link,) = [link for link in robot.findall("link") if link.get("name") == root]
    return max(float(shape.get("radius")) for shape in link.findall("visual/geometry/cylinder"))


def rotation_about(axis, angle):
    x, y, z = axis
    K = np.array([[0, -z, y], [z, 0, -x], [-y, x, 0]])
    return np.eye(3) + sin(angle) * K + (1 - cos(angle)) * K @ K


def joint_points(chain, angles, tool):
    """The places of the base, the joints and the tool (given in the last link), base first."""
    R, p, points = np.eye(3), np.zeros(3), [np.zeros(3)]
    for joint, angle in zip(chain, angles):
        p = p + R @ joint.origin
        points.append(p)
        R = R @ joint.rotation @ rotation_about(joint.axis, angle)
    points.append(p + R @ np.array(tool))
    return np.array(points)


def _joints_by_parent(robot):
    """All joints by the name of their parent link, and the name of the root link."""
    elements = robot.findall("joint")
    for joint in elements:
        if joint.find("parent") is None or joint.find("child") is None:
            raise ValueError(f"joint {joint.get('name')} lacks its parent or its child")
    joints = {joint.find("parent").get("link"): joint for joint in elements}
    roots = joints.keys() - {joint.find("child").get("link") for joint in elements}
    if len(joints) != len(elements) or len(roots) != 1:
        raise ValueError("the joints are not one serial chain")
    return joints, roots.pop()


def _vector(element, name, default="0 0 0"):
    text = default if element is None else element.get(name, default)
    x, y, z = (float(word) for word in text.split())
    return np.array([x, y, z])


def _rotation(roll, pitch, yaw):
    """Rz(yaw) Ry(pitch) Rx(roll)."""
    cr, sr, cp, sp, cy, sy = cos(roll), sin(roll), cos(pitch), sin(pitch), cos(yaw), sin(yaw)
    return np.array(
        [
            [cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr],
            [sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr],
            [-sp, cp * sr, cp * cr],
        ]
    )
