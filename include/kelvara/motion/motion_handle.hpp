#pragma once

#include <memory>

#include "kelvara/export.hpp"

namespace kelvara {

enum class MotionOutcome {
  kDone,      // the command stands at the end of the motion
  kReplaced,  // another command took over
  kStopped,   // `stop()`, or the end of the controller
  kFault,     // the torque monitor, a motor's error or a silent bus
  kTimeout,   // of a wait: the motion continues
};

KELVARA_EXPORT const char* to_string(MotionOutcome outcome);

/// What an application holds of a motion that it has started. A value: copies stand for the same
/// motion; it stays valid after the controller's end. Any thread.
class KELVARA_EXPORT MotionHandle {
 public:
  class Status;

  /// Stands for no motion: done.
  MotionHandle();
  explicit MotionHandle(std::shared_ptr<const Status> status);
  MotionHandle(const MotionHandle&);
  MotionHandle(MotionHandle&&) noexcept;
  MotionHandle& operator=(const MotionHandle&);
  MotionHandle& operator=(MotionHandle&&) noexcept;
  ~MotionHandle();

  /// Waits for the motion's end. While its speed is overridden to zero that may take for ever.
  MotionOutcome wait() const;
  /// @return `kTimeout` when the motion has not ended within `seconds`.
  MotionOutcome wait_for(double seconds) const;
  /// Waits also until every measured joint angle has come within `tolerance` (rad) of the end.
  /// @return `kTimeout` when that has not happened within `seconds`.
  MotionOutcome wait_settled(double tolerance, double seconds) const;
  bool is_done() const;
  /// The part of the motion's own time that has passed, 0 to 1.
  double progress() const;

 private:
  std::shared_ptr<const Status> status_;
};

}  // namespace kelvara
