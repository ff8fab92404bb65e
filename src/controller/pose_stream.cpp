#include "controller/pose_stream.hpp"

#include <cmath>

#include "controller/joint_limits.hpp"

namespace kelvara::controller {
namespace {

constexpr JointArray kVelocityLimits{5.2, 5.2, 5.2, 20.9, 20.9, 20.9};            // rad/s
constexpr JointArray kAccelerationLimits{35.0, 18.0, 87.0, 300.0, 300.0, 300.0};  // rad/s²
constexpr double kShortestPeriodS = 0.001;
constexpr double kLongestPeriodS = 0.0075;
constexpr double kFirstPeriodS = 0.0025;
constexpr double kMemory = 0.9;
constexpr double kFreshShare = 0.1;
constexpr double kReversalVelocity = 0.02;  // rad/s; faster against the memory is a reversal
constexpr double kReversalDamping = 0.2;

}  // namespace

JointArray PoseStream::step(const JointArray& q, TimePoint now) {
  const double elapsed = std::chrono::duration<double>(now - raw_pose_last_time).count();
  const double dt =
      raw_pose_initialised ? clamp(elapsed, kShortestPeriodS, kLongestPeriodS) : kFirstPeriodS;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    double& p = raw_pose_prev_dq[j];
    double fresh = 0.0;
    if (raw_pose_initialised) {
      const double estimate = (q[j] - raw_pose_prev_q[j]) / dt;
      if (std::abs(estimate) > kReversalVelocity && estimate * p < 0.0) {
        p *= kReversalDamping;
      }
      fresh = kFreshShare * estimate;
    }
    const double step = dt * kAccelerationLimits[j];
    const double limited = clamp(kMemory * p + fresh, p - step, p + step);
    p = clamp(limited, -kVelocityLimits[j], kVelocityLimits[j]);
  }
  raw_pose_prev_q = q;
  raw_pose_last_time = now;
  raw_pose_initialised = true;
  return raw_pose_prev_dq;
}

}  // namespace kelvara::controller
