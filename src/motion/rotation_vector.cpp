#include "motion/rotation_vector.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace kelvara::motion {
namespace {

using kinematics::cross;
using kinematics::dot;
using kinematics::norm;
using kinematics::Rotation;
using kinematics::Vector3;

// Below this angle (rad) the series are exact to rounding, above it the quotients are.
constexpr double kSmallAngle = 0.1;

/// (1 - cos t) / t², (t - sin t) / t³, and their derivatives by t, divided by t.
struct Coefficients {
  explicit Coefficients(double t) {
    const double t2 = t * t;
    if (t < kSmallAngle) {
      a = 1.0 / 2 - t2 * (1.0 / 24 - t2 * (1.0 / 720 - t2 / 40320));
      b = 1.0 / 6 - t2 * (1.0 / 120 - t2 * (1.0 / 5040 - t2 / 362880));
      a_rate = -1.0 / 12 + t2 * (1.0 / 180 - t2 * (1.0 / 6720 - t2 / 453600));
      b_rate = -1.0 / 60 + t2 * (1.0 / 1260 - t2 * (1.0 / 60480 - t2 / 4989600));
      return;
    }
    a = (1.0 - std::cos(t)) / t2;
    b = (t - std::sin(t)) / (t2 * t);
    a_rate = (std::sin(t) / t - 2.0 * a) / t2;
    b_rate = (a - 3.0 * b) / t2;
  }
  double a, b, a_rate, b_rate;
};

/// A quaternion (w, v) times a factor.
struct Multiple {
  double factor = 1.0, w = 1.0;
  Vector3 v;
};

}  // namespace

Rotation rotation_of(const Vector3& vector) {
  const double angle = norm(vector);
  const Coefficients c(angle);
  const double s = 1.0 - c.b * angle * angle;  // sin(angle) / angle
  const auto turn = [&](const Vector3& v) {
    const Vector3 once = cross(vector, v);
    return v + s * once + c.a * cross(vector, once);
  };
  return {turn({1.0, 0.0, 0.0}), turn({0.0, 1.0, 0.0}), turn({0.0, 0.0, 1.0})};
}

Vector3 rotation_vector_of(const Rotation& R) {
  // Four multiples of the same quaternion; the one with the largest factor has no cancellation.
  const double xx = R.x.x, yy = R.y.y, zz = R.z.z;
  const Vector3 skew{R.y.z - R.z.y, R.z.x - R.x.z, R.x.y - R.y.x};
  const Vector3 x{1.0 + xx - yy - zz, R.x.y + R.y.x, R.z.x + R.x.z};
  const Vector3 y{x.y, 1.0 - xx + yy - zz, R.y.z + R.z.y};
  const Vector3 z{x.z, y.z, 1.0 - xx - yy + zz};
  const std::array<Multiple, 4> multiples{{{1.0 + xx + yy + zz, 1.0 + xx + yy + zz, skew},
                                           {x.x, skew.x, x},
                                           {y.y, skew.y, y},
                                           {z.z, skew.z, z}}};
  const Multiple& best = *std::max_element(
      multiples.begin(), multiples.end(),
      [](const Multiple& left, const Multiple& right) { return left.factor < right.factor; });
  const double sine = norm(best.v);
  if (sine == 0.0) {
    return {};
  }
  return (std::copysign(2.0, best.w) * std::atan2(sine, std::abs(best.w)) / sine) * best.v;
}

Vector3 rotation_between(const Rotation& from, const Rotation& to) {
  return rotation_vector_of(to * kinematics::transpose(from));
}

VectorRates angular_rates(const VectorRates& vector) {
  const auto& [phi, first, second] = vector;
  const Coefficients c(norm(phi));
  const double turning = dot(phi, first);
  const Vector3 once = cross(phi, first);
  const Vector3 twice = cross(phi, once);
  const Vector3 once_rate = cross(phi, second);
  const Vector3 twice_rate = cross(first, once) + cross(phi, once_rate);
  return {phi, first + c.a * once + c.b * twice,
          second + (turning * c.a_rate) * once + c.a * once_rate + (turning * c.b_rate) * twice +
              c.b * twice_rate};
}

}  // namespace kelvara::motion
