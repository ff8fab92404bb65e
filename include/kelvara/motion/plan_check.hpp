#pragma once

#include "kelvara/export.hpp"
#include "kelvara/motion/plan.hpp"

namespace kelvara {

/// A check that a plan has to pass before it may move the arm. Const calls may run on any threads
/// at once.
class KELVARA_EXPORT PlanCheck {
 public:
  virtual ~PlanCheck();

  /// Returns when the plan may be executed.
  /// @throws MotionError of `kCollision`, with the time of the first contact, when the plan touches
  ///         something.
  virtual void check(const Plan& plan) const = 0;
};

}  // namespace kelvara
