"""The recursive Newton-Euler equations of a serial arm, linear in its inertial parameters.

Frames: link i has the frame of the URDF, which turns with the link about an axis through its origin.
All vectors of link i are given along that frame's axes:

    w, dw  angular velocity and acceleration of the link
    a      acceleration of the frame's origin, less gravity
    z_j    axis of joint j
    b_j    velocity of the frame's origin per unit of speed of joint j, z_j x (o_i - o_j)

With L = [dw]x + [w]x[w]x, a link of mass m, first moments h (m times centre of mass) and inertia
tensor I about its origin needs the force f = m a + L h and, about its origin, the moment
n = h x a + I dw + w x I w. They add b_j.f + z_j.n to the torque of joint j, whose row is, for link i,

    m: b_j.a      h: L' b_j + a x z_j      I: K' z_j, where K I = I dw + w x I w

(Khalil and Dombre, "Modeling, Identification and Control of Robots", 9.3; the
wrenches are projected on the joint axes, J' (f, n), instead of propagated down the chain).

Consecutive joints with the same axis are one rotation, by the sum of their angles.
"""

from expressions import add, constant, cross, dot, product, scale, times, transpose, variable

GRAVITY = 9.81  # m/s², against the first joint's axis
ZERO, ONE = constant(0.0), constant(1.0)


class Rates:
    """Angular velocity and acceleration of a frame, and joint axes, all in that frame's axes."""

    def __init__(self, w, dw, axes):
        self.w = w
        self.dw = dw
        self.axes = axes

    def seen_from(self, R):
        """The same in the axes of a frame with rotation R in this one."""
        Rt = transpose(R)
        return Rates(times(Rt, self.w), times(Rt, self.dw), [times(Rt, z) for z in self.axes])


class Turn:
    """Consecutive joints about one axis, as one rotation."""

    def __init__(self, axis, base):
        self.axis = axis
        self.base = base  # the rates of the frame before the rotation
        self.joints = 0
        self.sine, self.cosine, self.speed, self.acceleration = ZERO, ONE, ZERO, ZERO  # of the sum

    def continues_with(self, R, axis):
        same = all((x - y).is_zero() for x, y in zip(axis, self.axis))
        return same and all(
            R[row][column].constant() == float(row == column)
            for row in range(3)
            for column in range(3)
        )

    def add_joint(self, sine, cosine, speed, acceleration):
        self.joints += 1
        self.sine, self.cosine = (
            self.sine * cosine + self.cosine * sine,
            self.cosine * cosine - self.sine * sine,
        )
        self.speed = self.speed + speed
        self.acceleration = self.acceleration + acceleration

    def rates(self):
        """The rates of the rotated frame, in its axes."""
        seen = self.base.seen_from(rotation(self.axis, self.sine, self.cosine))
        w = add(seen.w, scale(self.speed, self.axis))
        dw = add(seen.dw, scale(self.acceleration, self.axis))
        dw = add(dw, scale(self.speed, cross(seen.w, self.axis)))
        return Rates(w, dw, seen.axes + [self.axis] * self.joints)


def rotation(axis, sine, cosine):
    """The rotation about a unit axis u: c (1 - u u') + s [u]x + u u'."""
    x, y, z = axis
    skew = [[ZERO, -z, y], [z, ZERO, -x], [-y, x, ZERO]]
    return [
        [
            cosine * (float(row == column) - axis[row] * axis[column])
            + sine * skew[row][column]
            + axis[row] * axis[column]
            for column in range(3)
        ]
        for row in range(3)
    ]


def acceleration_and_inertia_matrices(w, dw):
    """L by rows; K by columns, for the tensor's entries xx, xy, xz, yy, yz, zz."""
    xx, yy, zz = w[0] * w[0], w[1] * w[1], w[2] * w[2]
    xy, xz, yz = w[0] * w[1], w[0] * w[2], w[1] * w[2]
    L = [
        [-(yy + zz), xy - dw[2], xz + dw[1]],
        [xy + dw[2], -(xx + zz), yz - dw[0]],
        [xz - dw[1], yz + dw[0], -(xx + yy)],
    ]
    K = [
        [dw[0], xz, -xy],
        [-L[2][0], L[2][1], xx - yy],
        [L[1][0], zz - xx, -L[1][2]],
        [-yz, dw[1], xy],
        [yy - zz, -L[0][1], L[0][2]],
        [yz, -xz, dw[2]],
    ]
    return L, K


def link_columns(axes, arms, a, L, K):
    """The ten columns of one link, with an entry for each joint from the base to the link's own."""
    mass, first_moments, inertia = [], [[], [], []], [[] for _ in K]
    Lt = transpose(L)
    for z, b in zip(axes, arms):
        mass.append(dot(b, a))
        for column, entry in zip(first_moments, add(times(Lt, b), cross(a, z))):
            column.append(entry)
        for column, direction in zip(inertia, K):
            column.append(dot(direction, z))
    return [mass, *first_moments, *inertia]


def regressor(joints):
    """Yields, for each link of a chain of revolute joints, its ten columns with one entry per joint.

    `joints` are (origin, R, axis), base first: origin and rotation of the link's frame in the one
    before at zero angle, and the axis along it. The first axis must be vertical: the first
    angle has no influence then.
    """
    a = [ZERO, ZERO, constant(GRAVITY)]
    if not all(x.is_zero() for x in cross(times(joints[0][1], joints[0][2]), a)):
        raise ValueError("the first joint's axis is not vertical")
    rates, turn, L, arms = Rates([ZERO] * 3, [ZERO] * 3, []), None, [[ZERO] * 3] * 3, []
    for i, (origin, R, axis) in enumerate(joints):
        sine = ZERO if i == 0 else variable(f"s{i + 1}")
        cosine = ONE if i == 0 else variable(f"c{i + 1}")
        if turn is None or not turn.continues_with(R, axis):
            turn = Turn(axis, rates.seen_from(R))
        arms = [add(b, cross(z, origin)) for z, b in zip(rates.axes, arms)]
        a = add(a, times(L, origin))

        turn.add_joint(sine, cosine, variable(f"dq[{i}]"), variable(f"ddq[{i}]"))
        rates = turn.rates()
        step = transpose(product(R, rotation(axis, sine, cosine)))
        arms = [times(step, b) for b in arms] + [[ZERO] * 3]
        a = times(step, a)
        L, K = acceleration_and_inertia_matrices(rates.w, rates.dw)
        columns = link_columns(rates.axes, arms, a, L, K)
        yield [column + [ZERO] * (len(joints) - i - 1) for column in columns]
