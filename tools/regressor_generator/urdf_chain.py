"""The chain of moving joints in a URDF file, as constants of expressions."""

import math
import xml.etree.ElementTree as ElementTree

from expressions import add, constant, product, times


def read_chain(path):
    """(origin, rotation, axis) of each revolute joint, base first.

    Origin and rotation are those of the joint's link in the link of the moving joint before; fixed
    joints between them are passed through.
    """
    robot = ElementTree.parse(path).getroot()
    for joint in robot.findall("joint"):
        if joint.find("parent") is None or joint.find("child") is None:
            raise ValueError(f"joint {joint.get('name')} lacks its parent or its child")
    joints = {joint.find("parent").get("link"): joint for joint in robot.findall("joint")}
    children = {joint.find("child").get("link") for joint in joints.values()}
    if len(joints) != len(robot.findall("joint")) or len(joints.keys() - children) != 1:
        raise ValueError("the joints are not one serial chain")
    (link,) = joints.keys() - children

    chain = []
    origin, R = _vector("0 0 0"), _rotation("0 0 0")
    while link in joints:
        joint = joints[link]
        link = joint.find("child").get("link")
        place = joint.find("origin")
        origin = add(origin, times(R, _vector(_attribute(place, "xyz"))))
        R = product(R, _rotation(_attribute(place, "rpy")))
        if joint.get("type") in ("revolute", "continuous"):
            chain.append((origin, R, _axis(joint)))
            origin, R = _vector("0 0 0"), _rotation("0 0 0")
        elif joint.get("type") != "fixed":
            raise ValueError(f"joint {joint.get('name')} neither turns nor is fixed")
    return chain


def _attribute(element, name):
    return "0 0 0" if element is None else element.get(name, "0 0 0")


def _numbers(text):
    x, y, z = (float(word) for word in text.split())
    return x, y, z


def _vector(text):
    return [constant(value) for value in _numbers(text)]


def _axis(joint):
    element = joint.find("axis")
    x, y, z = _numbers("0 0 1" if element is None else element.get("xyz"))
    length = math.sqrt(x * x + y * y + z * z)
    return [constant(value / length) for value in (x, y, z)]


def _rotation(text):
    """Rz(yaw) Ry(pitch) Rx(roll)."""
    roll, pitch, yaw = _numbers(text)
    cr, sr = math.cos(roll), math.sin(roll)
    cp, sp = math.cos(pitch), math.sin(pitch)
    cy, sy = math.cos(yaw), math.sin(yaw)
    rows = [
        [cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr],
        [sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr],
        [-sp, cp * sr, cp * cr],
    ]
    return [[constant(value) for value in row] for row in rows]
