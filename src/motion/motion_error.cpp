#include "kelvara/motion_error.hpp"

namespace kelvara {

MotionError::~MotionError() = default;

const char* to_string(MotionErrorCode code) {
  switch (code) {
    case MotionErrorCode::kOutOfReach:
      return "out of reach";
    case MotionErrorCode::kJointLimit:
      return "joint limit";
    case MotionErrorCode::kSingularity:
      return "singularity";
    case MotionErrorCode::kBranchChange:
      return "branch change";
    case MotionErrorCode::kDurationTooShort:
      return "duration too short";
    case MotionErrorCode::kStartMismatch:
      return "start mismatch";
    case MotionErrorCode::kLimitExceeded:
      return "limit exceeded";
    case MotionErrorCode::kCollision:
      return "collision";
  }
  return "unknown";
}

}  // namespace kelvara
