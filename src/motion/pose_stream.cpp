#include "motion/pose_stream.hpp"

#include <cmath>

#include "description/arm_facts.hpp"

namespace kelvara::motion {
namespace {

using description::clamp;
using description::kJoints;

constexpr double kShortestPeriodS = 0.001;
constexpr double kLongestPeriodS = 0.0075;
constexpr double kFirstPeriodS = 0.0025;
constexpr double kFilterDecay = 0.9;
constexpr double kFilterGain = 0.1;
constexpr double kReversalVelocity = 0.02;  // rad/s; faster against the filtered one is a reversal
constexpr double kReversalDamping = 0.2;

/// The filtered velocity so far, cut down where the joint turns round.
/// @param estimate The difference of the last two solutions, rad/s.
double damp_reversal(double before, double estimate) {
  const bool reverses = std::abs(estimate) > kReversalVelocity && estimate * before < 0.0;
  return reverses ? before * kReversalDamping : before;
}

}  // namespace

JointArray PoseStream::step(const JointArray& q, TimePoint now) {
  const double elapsed = std::chrono::duration<double>(now - raw_pose_last_time).count();
  const double dt =
      raw_pose_initialised ? clamp(elapsed, kShortestPeriodS, kLongestPeriodS) : kFirstPeriodS;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double estimate = raw_pose_initialised ? (q[j] - raw_pose_prev_q[j]) / dt : 0.0;
    const double p = damp_reversal(raw_pose_prev_dq[j], estimate);
    const double dv = dt * kJoints[j].stream_acceleration_limit;
    const double v_max = kJoints[j].stream_velocity_limit;
    const double v = clamp(kFilterDecay * p + kFilterGain * estimate, p - dv, p + dv);
    raw_pose_prev_dq[j] = clamp(v, -v_max, v_max);
  }
  raw_pose_prev_q = q;
  raw_pose_last_time = now;
  raw_pose_initialised = true;
  return raw_pose_prev_dq;
}

}  // namespace kelvara::motion
