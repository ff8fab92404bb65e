#include "motion/path_solution.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include <Eigen/Dense>

namespace kelvara::motion {
namespace {

using kinematics::cross;
using kinematics::Jacobian;
using kinematics::Vector3;
using Matrix6 = Eigen::Matrix<double, 6, 6, Eigen::RowMajor>;
using Vector6 = Eigen::Matrix<double, 6, 1>;

constexpr double kSolved = 1e-12;     // m and rad
constexpr double kAccuracy = 1e-9;    // m and rad, of the curves between knots
constexpr int kNewtonSteps = 12;      // from a prediction it takes two or three
constexpr double kMaxStep = 0.02;     // between knots, m or rad
constexpr double kMinPieceSteps = 4;  // of a short piece
constexpr double kMinStep = 1e-7;  // of the path's length: nearer to a fold it cannot be followed
// A path along a singularity that would need more cannot be followed.
constexpr std::size_t kMaxKnots = 20000;
// Quotient of the pivots below which a matrix counts as singular.
constexpr double kSingularPivot = 1e-9;
constexpr double kRankThreshold = 1e-7;

Vector6 twist(const Vector3& v, const Vector3& w) {
  Vector6 result;
  result << v.x, v.y, v.z, w.x, w.y, w.z;
  return result;
}

/// Solves J x = b; where J is singular, for the shortest x that comes nearest.
class TwistSolver {
 public:
  explicit TwistSolver(const Jacobian& jacobian)
      : J_(Eigen::Map<const Matrix6>(jacobian.front().data())), lu_(J_) {
    const auto pivots = lu_.matrixLU().diagonal().cwiseAbs();
    is_singular_ = !(pivots.minCoeff() > kSingularPivot * pivots.maxCoeff());
  }

  JointArray solve(const Vector6& b) const {
    JointArray result;
    Eigen::Map<Vector6> x(result.data());
    if (is_singular_) {
      Eigen::CompleteOrthogonalDecomposition<Matrix6> pseudo_inverse;
      pseudo_inverse.setThreshold(kRankThreshold);
      x = pseudo_inverse.compute(J_).solve(b);
    } else {
      x = lu_.solve(b);
    }
    return result;
  }

 private:
  Matrix6 J_;
  Eigen::PartialPivLU<Matrix6> lu_;
  bool is_singular_;
};

/// The tool's acceleration at joint rates alone: the derivative of J along `rates`, times `rates`.
/// A column of J turns with the joints before it; its lever changes with the joints after it.
Vector6 velocity_product(const Jacobian& J, const JointArray& rates) {
  std::array<Vector3, kJointCount> v, w;
  Vector3 v_after;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    v[i] = {J[0][i], J[1][i], J[2][i]};
    w[i] = {J[3][i], J[4][i], J[5][i]};
    v_after = v_after + rates[i] * v[i];
  }
  Vector3 w_before, v_sum, w_sum;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    v_after = v_after - rates[i] * v[i];
    w_sum = w_sum + rates[i] * cross(w_before, w[i]);
    w_before = w_before + rates[i] * w[i];
    v_sum = v_sum + rates[i] * (cross(w_before, v[i]) + cross(w[i], v_after));
  }
  return twist(v_sum, w_sum);
}

Vector6 pose_error(const kinematics::Frame& from, const ToolPoint& to) {
  return twist(to.position.value - from.position, rotation_between(from.rotation, to.rotation));
}

/// Newton steps from `q` to the joint angles that reach `target`; J ends as the Jacobian there.
bool reach(const kinematics::SixJointChain& chain, const ToolPoint& target, JointArray& q,
           Jacobian& J) {
  double before = HUGE_VAL;
  for (int step = 0; step < kNewtonSteps; ++step) {
    const Vector6 error = pose_error(chain.tool_frame(q, J), target);
    const double size = error.norm();
    if (size < kSolved) {
      return true;
    }
    if (!(size < 10.0 * before)) {
      return false;
    }
    before = size;
    const JointArray change = TwistSolver(J).solve(error);
    for (std::size_t i = 0; i < kJointCount; ++i) {
      q[i] += change[i];
    }
  }
  return false;
}

PathKnot knot_at(double s, const ToolPoint& point, const JointArray& q, const Jacobian& J) {
  const TwistSolver solver(J);
  PathKnot knot{s, q, solver.solve(twist(point.position.first, point.angular.first)), {}};
  knot.second = solver.solve(twist(point.position.second, point.angular.second) -
                             velocity_product(J, knot.first));
  return knot;
}

/// The next knot at `s`, unless it cannot be reached or lies too far for one curve.
std::optional<PathKnot> step_to(const kinematics::SixJointChain& chain, const ToolPath& path,
                                const PathKnot& from, double s) {
  const double h = s - from.s;
  JointArray q = from.q;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    q[i] += h * (from.first[i] + 0.5 * h * from.second[i]);
  }
  Jacobian J;
  const ToolPoint point = path.at(s);
  if (!reach(chain, point, q, J)) {
    return std::nullopt;
  }
  const PathKnot knot = knot_at(s, point, q, J);
  const auto curves = curves_between(from, knot);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    q[i] = curves[i].at(0.5 * h).value;
  }
  const Vector6 deviation = pose_error(chain.tool_frame(q), path.at(from.s + 0.5 * h));
  return deviation.norm() < kAccuracy ? std::optional(knot) : std::nullopt;
}

/// Adds knots up to `end`, the end of a piece. @return false where the path cannot be followed on.
bool follow_piece(const kinematics::SixJointChain& chain, const ToolPath& path, double end,
                  std::vector<PathKnot>& knots) {
  const double largest = std::min(kMaxStep, (end - knots.back().s) / kMinPieceSteps);
  const double smallest = kMinStep * path.length();
  double h = largest;
  while (knots.back().s < end) {
    const double s = knots.back().s;
    const double rest = end - s;
    const auto knot = step_to(chain, path, knots.back(), rest < 1.5 * h ? end : s + h);
    if (knot) {
      knots.push_back(*knot);
      h = std::min(2.0 * h, largest);
    } else if ((h = 0.5 * std::min(h, rest)) < smallest || knots.size() > kMaxKnots) {
      return false;
    }
  }
  return true;
}

}  // namespace

PathSolution solve_path(const kinematics::SixJointChain& chain, const ToolPath& path,
                        const JointArray& start) {
  Jacobian J;
  chain.tool_frame(start, J);
  PathSolution solution{{knot_at(0.0, path.at(0.0), start, J)}, true};
  for (const double end : path.ends()) {
    solution.complete = solution.complete && follow_piece(chain, path, end, solution.knots);
  }
  return solution;
}

double smallest_singular_value(const kinematics::SixJointChain& chain, const JointArray& q) {
  Jacobian J;
  chain.tool_frame(q, J);
  const Matrix6 matrix = Eigen::Map<const Matrix6>(J.front().data());
  return Eigen::JacobiSVD<Matrix6>(matrix).singularValues()[5];
}

}  // namespace kelvara::motion
