#include "kinematics/frame.hpp"

namespace kelvara::kinematics {
namespace {

// Below this cosine of the pitch, rounding alone would determine the yaw.
constexpr double kGimbalLockCosine = 1e-12;

}  // namespace

Frame frame_of(const Pose& pose) {
  const double cr = std::cos(pose.rpy[0]), sr = std::sin(pose.rpy[0]);
  const double cp = std::cos(pose.rpy[1]), sp = std::sin(pose.rpy[1]);
  const double cy = std::cos(pose.rpy[2]), sy = std::sin(pose.rpy[2]);
  return {{{cy * cp, sy * cp, -sp},
           {cy * sp * sr - sy * cr, sy * sp * sr + cy * cr, cp * sr},
           {cy * sp * cr + sy * sr, sy * sp * cr - cy * sr, cp * cr}},
          {pose.position[0], pose.position[1], pose.position[2]}};
}

Pose pose_of(const Frame& frame) {
  const auto& [x, y, z] = frame.rotation;
  const double cosine = std::hypot(x.x, x.y);
  const bool locked = cosine < kGimbalLockCosine;
  const double cy = locked ? 1.0 : x.x / cosine;
  const double sy = locked ? 0.0 : x.y / cosine;
  // Roll is what is left after yaw and pitch are turned back; no small number is divided by.
  const double roll = std::atan2(sy * z.x - cy * z.y, cy * y.y - sy * y.x);
  return {{frame.position.x, frame.position.y, frame.position.z},
          {roll, std::atan2(-x.z, cosine), std::atan2(sy, cy)}};
}

}  // namespace kelvara::kinematics
