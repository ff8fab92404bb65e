#include "kelvara/arm_state.hpp"

namespace kelvara {

const char* to_string(ArmCondition condition) {
  switch (condition) {
    case ArmCondition::kStarting:
      return "starting";
    case ArmCondition::kHolding:
      return "holding";
    case ArmCondition::kMoving:
      return "moving";
    case ArmCondition::kFloating:
      return "floating";
    case ArmCondition::kStoppedByMonitor:
      return "stopped by the torque monitor";
    case ArmCondition::kMotorFault:
      return "motor fault";
    case ArmCondition::kBusSilent:
      return "bus silent";
    case ArmCondition::kClosed:
      return "closed";
  }
  return "unknown";
}

const char* to_string(StopReason reason) {
  switch (reason) {
    case StopReason::kNone:
      return "none";
    case StopReason::kTorqueLimit:
      return "torque too high for too long";
    case StopReason::kMotorError:
      return "a motor reports an error";
    case StopReason::kMotorDisabled:
      return "a motor is disabled";
    case StopReason::kMotorSilent:
      return "a motor does not answer";
    case StopReason::kBusSilent:
      return "no motor answers";
    case StopReason::kClosed:
      return "closed by the application";
  }
  return "unknown";
}

}  // namespace kelvara
