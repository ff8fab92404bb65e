#include "kelvara/motion/motion_handle.hpp"

#include <chrono>
#include <limits>
#include <thread>
#include <utility>

#include "motion/clock.hpp"
#include "motion/motion_status.hpp"

namespace kelvara {
namespace {

// Polling keeps the control thread free of the system calls of a condition variable.
constexpr std::chrono::milliseconds kPollPeriod{2};

/// Polls until `holds`, at most `seconds`.
template <typename Condition>
bool poll(double seconds, Condition holds) {
  const motion::TimePoint start = motion::Clock::now();
  while (!holds()) {
    if (!(std::chrono::duration<double>(motion::Clock::now() - start).count() < seconds)) {
      return false;
    }
    std::this_thread::sleep_for(kPollPeriod);
  }
  return true;
}

}  // namespace

const char* to_string(MotionOutcome outcome) {
  switch (outcome) {
    case MotionOutcome::kDone:
      return "done";
    case MotionOutcome::kReplaced:
      return "replaced";
    case MotionOutcome::kStopped:
      return "stopped";
    case MotionOutcome::kFault:
      return "fault";
    case MotionOutcome::kTimeout:
      return "timeout";
  }
  return "unknown";
}

MotionHandle::MotionHandle() {
  const auto done = std::make_shared<Status>();
  done->progress = 1.0;
  done->distance = 0.0;
  done->end(MotionOutcome::kDone);
  status_ = done;
}

MotionHandle::MotionHandle(std::shared_ptr<const Status> status) : status_(std::move(status)) {}
MotionHandle::MotionHandle(const MotionHandle&) = default;
MotionHandle::MotionHandle(MotionHandle&&) noexcept = default;
MotionHandle& MotionHandle::operator=(const MotionHandle&) = default;
MotionHandle& MotionHandle::operator=(MotionHandle&&) noexcept = default;
MotionHandle::~MotionHandle() = default;

MotionOutcome MotionHandle::wait() const {
  return wait_for(std::numeric_limits<double>::infinity());
}

MotionOutcome MotionHandle::wait_for(double seconds) const {
  return poll(seconds, [this] { return status_->is_done(); }) ? status_->outcome()
                                                              : MotionOutcome::kTimeout;
}

MotionOutcome MotionHandle::wait_settled(double tolerance, double seconds) const {
  const bool settled = poll(seconds, [this, tolerance] {
    return status_->is_done() &&
           (status_->outcome() != MotionOutcome::kDone || status_->distance <= tolerance);
  });
  return settled ? status_->outcome() : MotionOutcome::kTimeout;
}

bool MotionHandle::is_done() const { return status_->is_done(); }

double MotionHandle::progress() const { return status_->progress; }

}  // namespace kelvara
