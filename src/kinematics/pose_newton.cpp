#include "kinematics/pose_newton.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace kelvara::kinematics {
namespace {

using Vector6 = std::array<double, 6>;
using Matrix6 = std::array<Vector6, 6>;

constexpr double kMaxStep = 0.5;          // rad, of the fastest joint
constexpr double kDamping = 0.1;          // times the squared error
constexpr double kLeastDamping = 1e-15;   // keeps the pivots of a singular Jacobian positive
constexpr double kRoundingError = 1e-12;  // an error below it that does not fall is rounding
constexpr int kPatience = 3;              // steps that may raise the error: see refine()
constexpr double kNarrower = 0.3;
constexpr double kWider = 1.5;
constexpr double kSmallSine = 1e-9;

/// The rotation vector that turns the present frame into the target. Small angles are exact to
/// rounding; the direction at half a turn is arbitrary.
Vector3 rotation_error(const Rotation& target, const Rotation& present) {
  const Vector3 twice =
      cross(present.x, target.x) + cross(present.y, target.y) + cross(present.z, target.z);
  const double cosine =
      0.5 * (dot(present.x, target.x) + dot(present.y, target.y) + dot(present.z, target.z) - 1.0);
  if (cosine > 0.9) {
    return 0.5 * twice;  // the sine for the angle: the steps converge to the same
  }
  const double sine = 0.5 * norm(twice);
  if (sine < kSmallSine) {
    return {3.0, 0.0, 0.0};
  }
  return (0.5 * std::atan2(sine, cosine) / sine) * twice;
}

Vector6 error_of(const Frame& target, const Frame& present) {
  const Vector3 p = target.position - present.position;
  const Vector3 r = rotation_error(target.rotation, present.rotation);
  return {p.x, p.y, p.z, r.x, r.y, r.z};
}

double squared(const Vector6& v) {
  double sum = 0.0;
  for (const double value : v) {
    sum += value * value;
  }
  return sum;
}

/// The lower triangle of JJᵀ.
Matrix6 gram(const Jacobian& J) {
  Matrix6 A;
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (std::size_t k = 0; k < 6; ++k) {
        sum += J[i][k] * J[j][k];
      }
      A[i][j] = sum;
    }
  }
  return A;
}

/// Replaces the lower triangle of A by L of A + damping·I = LLᵀ, the reciprocals of its diagonal on
/// the diagonal. Returns the smallest squared pivot.
double factorise(Matrix6& A, double damping) {
  double smallest = 1e300;
  for (std::size_t j = 0; j < 6; ++j) {
    double pivot = A[j][j] + damping;
    for (std::size_t k = 0; k < j; ++k) {
      pivot -= A[j][k] * A[j][k];
    }
    smallest = std::min(smallest, pivot);
    A[j][j] = 1.0 / std::sqrt(std::max(pivot, kLeastDamping));
    for (std::size_t i = j + 1; i < 6; ++i) {
      double sum = A[i][j];
      for (std::size_t k = 0; k < j; ++k) {
        sum -= A[i][k] * A[j][k];
      }
      A[i][j] = sum * A[j][j];
    }
  }
  return smallest;
}

void solve(const Matrix6& L, Vector6& b) {
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t k = 0; k < i; ++k) {
      b[i] -= L[i][k] * b[k];
    }
    b[i] *= L[i][i];
  }
  for (std::size_t i = 6; i-- > 0;) {
    for (std::size_t k = i + 1; k < 6; ++k) {
      b[i] -= L[k][i] * b[k];
    }
    b[i] *= L[i][i];
  }
}

struct State {
  JointArray q{};
  Jacobian J{};
  Vector6 error{};
  double squared = 0.0;  // of the error
};

State state_at(const SixJointChain& chain, const Frame& target, const JointArray& q) {
  State state;
  state.q = q;
  state.error = error_of(target, chain.tool_frame(q, state.J));
  state.squared = squared(state.error);
  return state;
}

/// The angles after the step Jᵀ(JJᵀ + damping·I)⁻¹·error, shortened to the radius.
JointArray stepped(const State& from, double radius) {
  Matrix6 A = gram(from.J);
  Vector6 y = from.error;
  factorise(A, kDamping * from.squared + kLeastDamping);
  solve(A, y);
  JointArray step{};
  double largest = 0.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    for (std::size_t i = 0; i < 6; ++i) {
      step[j] += from.J[i][j] * y[i];
    }
    largest = std::max(largest, std::abs(step[j]));
  }
  const double scale = largest > radius ? radius / largest : 1.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    step[j] = from.q[j] + scale * step[j];
  }
  return step;
}

}  // namespace

double pose_error(const SixJointChain& chain, const Frame& target, const JointArray& q) {
  return std::sqrt(squared(error_of(target, chain.tool_frame(q))));
}

double refine(const SixJointChain& chain, const Frame& target, JointArray& q, int max_steps) {
  State best = state_at(chain, target, q);
  State present = best;
  double radius = kMaxStep;
  int without_gain = 0;
  for (int k = 0; k < max_steps && best.squared > kRefinedError * kRefinedError; ++k) {
    present = state_at(chain, target, stepped(present, radius));
    if (present.squared < best.squared) {
      best = present;
      without_gain = 0;
      radius = std::min(kMaxStep, kWider * radius);
    } else if (best.squared < kRoundingError * kRoundingError) {
      break;
    } else if (++without_gain == kPatience) {
      present = best;
      without_gain = 0;
      radius *= kNarrower;
    }
  }
  q = best.q;
  return std::sqrt(best.squared);
}

bool is_singular(const SixJointChain& chain, const JointArray& q, double tolerance) {
  Jacobian J;
  chain.tool_frame(q, J);
  Matrix6 A = gram(J);
  return factorise(A, 0.0) < tolerance;
}

}  // namespace kelvara::kinematics
