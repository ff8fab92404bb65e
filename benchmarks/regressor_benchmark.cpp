// The generated regressor beside the same equations run on numbers, and beside one evaluation of the
// model's inverse dynamics: ratios within one run tell, absolute times depend on the machine.

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

/// The regressor of any chain of six joints, link after link: the symbols of the generator's
/// newton_euler.py.
class NumericRegressor {
 public:
  explicit NumericRegressor(const RobotKinematics& robot) {
    for (std::size_t i = 0; i < 6; ++i) {
      const auto& joint = robot.joints().at(i);
      const Vector3d rpy(joint.rpy.data());
      joints_[i] = {Vector3d(joint.xyz.data()),
                    t_from_xyzrpy(Vector3d::Zero(), rpy).topLeftCorner<3, 3>(),
                    Vector3d(joint.axis.data())};
    }
  }

  void operator()(const Joints& q, const Joints& dq, const Joints& ddq, double* Y) const {
    std::fill(Y, Y + 360, 0.0);
    Vector3d w = Vector3d::Zero();
    Vector3d dw = Vector3d::Zero();
    Vector3d a(0.0, 0.0, 9.81);
    Matrix3d L = Matrix3d::Zero();
    std::array<Vector3d, 6> axes;
    std::array<Vector3d, 6> arms;
    for (std::size_t i = 0; i < 6; ++i) {
      const Joint& joint = joints_[i];
      const Matrix3d Rt = (joint.R * Eigen::AngleAxisd(q[i], joint.axis)).transpose();
      a = Rt * (a + L * joint.origin);
      for (std::size_t j = 0; j < i; ++j) {
        arms[j] = Rt * (arms[j] + axes[j].cross(joint.origin));
        axes[j] = Rt * axes[j];
      }
      axes[i] = joint.axis;
      arms[i].setZero();
      w = Rt * w;
      dw = Rt * dw + ddq[i] * joint.axis + dq[i] * w.cross(joint.axis);
      w += dq[i] * joint.axis;
      L = skew(dw) + w * w.transpose() - w.squaredNorm() * Matrix3d::Identity();
      const Eigen::Matrix<double, 3, 6> K = inertia_matrix(w, dw);
      for (std::size_t j = 0; j <= i; ++j) {
        double* out = Y + 60 * i + j;
        out[0] = arms[j].dot(a);
        const Vector3d first = L.transpose() * arms[j] + a.cross(axes[j]);
        const Eigen::Matrix<double, 6, 1> second = K.transpose() * axes[j];
        for (int k = 0; k < 3; ++k) {
          out[6 * (k + 1)] = first[k];
        }
        for (int k = 0; k < 6; ++k) {
          out[6 * (k + 4)] = second[k];
        }
      }
    }
  }

 private:
  struct Joint {
    Vector3d origin;
    Matrix3d R;
    Vector3d axis;
  };

  static Matrix3d skew(const Vector3d& v) {
    Matrix3d S;
    S << 0.0, -v.z(), v.y(), v.z(), 0.0, -v.x(), -v.y(), v.x(), 0.0;
    return S;
  }

  static Eigen::Matrix<double, 3, 6> inertia_matrix(const Vector3d& w, const Vector3d& dw) {
    const double xx = w.x() * w.x(), yy = w.y() * w.y(), zz = w.z() * w.z();
    const double xy = w.x() * w.y(), xz = w.x() * w.z(), yz = w.y() * w.z();
    Eigen::Matrix<double, 3, 6> K;
    K << dw.x(), dw.y() - xz, dw.z() + xy, -yz, yy - zz, yz,  //
        xz, dw.x() + yz, zz - xx, dw.y(), dw.z() - xy, -xz,   //
        -xy, xx - yy, dw.x() - yz, xy, dw.y() + xz, dw.z();
    return K;
  }

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

void NumericRecursion(benchmark::State& state) {
  const NumericRegressor regressor(model());
  Joints q = kPose;
  std::array<double, 360> Y{};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    regressor(q, kRates, kAccelerations, Y.data());
    benchmark::DoNotOptimize(Y);
  }
}
BENCHMARK(NumericRecursion);

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
