// Compares the generated regressor with numeric recursions for the same matrix, and with one
// evaluation of the model's inverse dynamics. Compare ratios within one run: absolute times depend
// on the machine.

#include <array>
#include <cmath>
#include <vector>

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <benchmark/benchmark.h>

#include "kelvara/dynamics/standard_regressor_qor0815.hpp"
#include "kelvara/kinematics/kinematics.hpp"

namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;
using Joints = std::array<double, 6>;

constexpr Joints kPose{0.3, 0.5, -0.4, 0.2, -0.3, 0.6};
constexpr Joints kRates{0.5, -0.4, 0.3, 0.6, -0.2, 0.1};
constexpr Joints kAccelerations{1.0, 2.0, -1.0, 0.5, 3.0, -2.0};

const RobotKinematics& model() {
  static const RobotKinematics robot;
  return robot;
}

struct Joint {
  Vector3d origin;
  Matrix3d R;
  Vector3d axis;

  Matrix3d turned(double q) const { return R * Eigen::AngleAxisd(q, axis); }
};

std::array<Joint, 6> joints_of(const RobotKinematics& robot) {
  std::array<Joint, 6> joints;
  for (std::size_t i = 0; i < 6; ++i) {
    const auto& joint = robot.joints().at(i);
    const Vector3d rpy(joint.rpy.data());
    joints[i] = {Vector3d(joint.xyz.data()),
                 t_from_xyzrpy(Vector3d::Zero(), rpy).topLeftCorner<3, 3>(),
                 Vector3d(joint.axis.data())};
  }
  return joints;
}

Matrix3d skew(const Vector3d& v) {
  Matrix3d S;
  S << 0.0, -v.z(), v.y(), v.z(), 0.0, -v.x(), -v.y(), v.x(), 0.0;
  return S;
}

using InertiaMatrix = Eigen::Matrix<double, 3, 6>;

/// K, with K (Ixx, ..., Izz) = I dw + w x I w.
InertiaMatrix inertia_matrix(const Vector3d& w, const Vector3d& dw) {
  const double xx = w.x() * w.x(), yy = w.y() * w.y(), zz = w.z() * w.z();
  const double xy = w.x() * w.y(), xz = w.x() * w.z(), yz = w.y() * w.z();
  InertiaMatrix K;
  K << dw.x(), dw.y() - xz, dw.z() + xy, -yz, yy - zz, yz,  //
      xz, dw.x() + yz, zz - xx, dw.y(), dw.z() - xy, -xz,   //
      -xy, xx - yy, dw.x() - yz, xy, dw.y() + xz, dw.z();
  return K;
}

/// How a link moves, along its frame's axes.
struct Motion {
  Vector3d w = Vector3d::Zero();
  Vector3d dw = Vector3d::Zero();
  Vector3d a = Vector3d(0.0, 0.0, 9.81);  // of the frame's origin, less gravity
  Matrix3d L = Matrix3d::Zero();          // [dw]x + [w]x[w]x

  void pass(const Joint& joint, const Matrix3d& R, double dq, double ddq) {
    a = R.transpose() * (a + L * joint.origin);
    w = R.transpose() * w;
    dw = R.transpose() * dw + ddq * joint.axis + dq * w.cross(joint.axis);
    w += dq * joint.axis;
    L = skew(dw) + w * w.transpose() - w.squaredNorm() * Matrix3d::Identity();
  }
};

/// The generator's equations (newton_euler.py) run on numbers: each link's columns projected on the
/// joints, whose axes and lever arms are carried outward.
class ProjectedRecursion {
 public:
  explicit ProjectedRecursion(const RobotKinematics& robot) : joints_(joints_of(robot)) {}

  void operator()(const Joints& q, const Joints& dq, const Joints& ddq, double* Y) const {
    std::fill(Y, Y + 360, 0.0);
    Motion motion;
    std::array<Vector3d, 6> axes;
    std::array<Vector3d, 6> arms;
    for (std::size_t i = 0; i < 6; ++i) {
      const Joint& joint = joints_[i];
      const Matrix3d R = joint.turned(q[i]);
      for (std::size_t j = 0; j < i; ++j) {
        arms[j] = R.transpose() * (arms[j] + axes[j].cross(joint.origin));
        axes[j] = R.transpose() * axes[j];
      }
      axes[i] = joint.axis;
      arms[i].setZero();
      motion.pass(joint, R, dq[i], ddq[i]);
      const InertiaMatrix K = inertia_matrix(motion.w, motion.dw);
      for (std::size_t j = 0; j <= i; ++j) {
        double* row = Y + 60 * i + j;
        row[0] = arms[j].dot(motion.a);
        const Vector3d first = motion.L.transpose() * arms[j] + motion.a.cross(axes[j]);
        const Eigen::Matrix<double, 6, 1> second = K.transpose() * axes[j];
        for (std::size_t k = 0; k < 3; ++k) {
          row[6 * (k + 1)] = first[static_cast<Eigen::Index>(k)];
        }
        for (std::size_t k = 0; k < 6; ++k) {
          row[6 * (k + 4)] = second[static_cast<Eigen::Index>(k)];
        }
      }
    }
  }

 private:
  std::array<Joint, 6> joints_;
};

/// The textbook's recursion: the ten wrenches of each link are carried down the chain, joint by
/// joint.
class WrenchRecursion {
 public:
  explicit WrenchRecursion(const RobotKinematics& robot) : joints_(joints_of(robot)) {}

  void operator()(const Joints& q, const Joints& dq, const Joints& ddq, double* Y) const {
    std::fill(Y, Y + 360, 0.0);
    Motion motion;
    std::array<Matrix3d, 6> R;
    for (std::size_t i = 0; i < 6; ++i) {
      R[i] = joints_[i].turned(q[i]);
      motion.pass(joints_[i], R[i], dq[i], ddq[i]);
      Eigen::Matrix<double, 3, 4> force;  // the tensor's columns carry none
      force << motion.a, motion.L;
      Eigen::Matrix<double, 3, 10> moment;
      moment << Vector3d::Zero(), -skew(motion.a), inertia_matrix(motion.w, motion.dw);
      for (std::size_t j = i;; --j) {
        const Joint& joint = joints_[j];
        Eigen::Map<Eigen::Matrix<double, 1, 10>, 0, Eigen::InnerStride<6>>(Y + 60 * i + j) =
            joint.axis.transpose() * moment;
        if (j == 0) {
          break;
        }
        force = (R[j] * force).eval();
        moment = (R[j] * moment).eval();
        moment.leftCols<4>() += skew(joint.origin) * force;
      }
    }
  }

 private:
  std::array<Joint, 6> joints_;
};

void GeneratedRegressor(benchmark::State& state) {
  Joints q = kPose;
  std::array<double, 360> Y{};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    standard_regressor_qor0815(q.data(), kRates.data(), kAccelerations.data(), Y.data());
    benchmark::DoNotOptimize(Y);
  }
}
BENCHMARK(GeneratedRegressor);

template <class Recursion>
void Numeric(benchmark::State& state) {
  const Recursion recursion(model());
  Joints q = kPose;
  std::array<double, 360> Y{};
  std::array<double, 360> expected{};
  standard_regressor_qor0815(q.data(), kRates.data(), kAccelerations.data(), expected.data());
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    recursion(q, kRates, kAccelerations, Y.data());
    benchmark::DoNotOptimize(Y);
  }
  for (std::size_t i = 0; i < Y.size(); ++i) {
    if (std::abs(Y[i] - expected[i]) > 1e-12) {
      state.SkipWithError("the recursion differs from the generated regressor");
    }
  }
}
BENCHMARK_TEMPLATE(Numeric, ProjectedRecursion);
BENCHMARK_TEMPLATE(Numeric, WrenchRecursion);

void FiveSinesAndCosines(benchmark::State& state) {
  Joints q = kPose;
  std::array<double, 10> results{};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    for (std::size_t i = 0; i < 5; ++i) {
      results[i] = std::sin(q[i + 1]);
      results[i + 5] = std::cos(q[i + 1]);
    }
    benchmark::DoNotOptimize(results);
  }
}
BENCHMARK(FiveSinesAndCosines);

void DynamicCompensationKdl(benchmark::State& state) {
  const std::vector<double> q(kPose.begin(), kPose.end());
  const std::vector<double> dq(kRates.begin(), kRates.end());
  const std::vector<double> ddq(kAccelerations.begin(), kAccelerations.end());
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(model().dynamic_compensation_kdl(q, dq, ddq));
  }
}
BENCHMARK(DynamicCompensationKdl);

}  // namespace

BENCHMARK_MAIN();
