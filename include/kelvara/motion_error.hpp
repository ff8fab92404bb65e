#pragma once

#include <stdexcept>
#include <string>

#include "kelvara/export.hpp"

namespace kelvara {

/// Why a pose, a plan or a motion is refused.
enum class MotionErrorCode {
  kOutOfReach,        // no joint angles reach the pose
  kJointLimit,        // the pose needs a joint beyond its limit
  kSingularity,       // the path passes a singularity faster than the joints can
  kBranchChange,      // the path needs a jump to another arm configuration
  kDurationTooShort,  // the limits do not allow the duration asked for
  kStartMismatch,     // the plan does not start where the command stands
  kLimitExceeded,     // the plan, or its start, exceeds a limit of the arm
  kCollision,         // the plan touches something
};

KELVARA_EXPORT const char* to_string(MotionErrorCode code);

/// Nothing moves when it is thrown.
class KELVARA_EXPORT MotionError : public std::runtime_error {
 public:
  /// @param joint  From 1; 0 when no joint is to blame.
  /// @param time_s Where on the plan, s; of `kDurationTooShort` the shortest duration possible.
  MotionError(MotionErrorCode code, const std::string& text, int joint = 0, double time_s = 0.0)
      : std::runtime_error(text), code_(code), joint_(joint), time_s_(time_s) {}
  ~MotionError() override;

  MotionErrorCode code() const { return code_; }
  int joint() const { return joint_; }
  double time_s() const { return time_s_; }

 private:
  MotionErrorCode code_;
  int joint_;
  double time_s_;
};

}  // namespace kelvara
