#include "simulation/simulated_arm/realtime_arm.hpp"

#include <utility>

namespace kelvara::simulation {
namespace {

constexpr std::chrono::milliseconds kStep{1};
constexpr std::chrono::milliseconds kMaxLateness{10};  // more is skipped
constexpr std::chrono::milliseconds kMaxSilence{20};   // with Silence::kTimeStops

}  // namespace

RealtimeArm::RealtimeArm(const RobotDescription& description, const Options& options)
    : arm_(description, options.arm),
      bus_(arm_, options.interface, options.fd),
      silence_(options.silence) {}

void RealtimeArm::run(const std::atomic<bool>& stop, const AfterStep& after_step) {
  last_frame_ = Clock::now();
  next_step_ = last_frame_ + kStep;
  while (!stop) {
    const bool heard = bus_.handle_frames(next_step_ - Clock::now()) > 0;
    const Clock::time_point now = Clock::now();
    last_frame_ = heard ? now : last_frame_;
    if (now < next_step_) {
      continue;
    }
    if (is_waiting_for_commands(now)) {
      next_step_ = now + kStep;
      continue;
    }
    arm_.advance(kStep);
    if (after_step) {
      after_step();
    }
    next_step_ += kStep;
    skip_missed_time();
  }
}

bool RealtimeArm::is_waiting_for_commands(Clock::time_point now) const {
  return silence_ == Silence::kTimeStops && now - last_frame_ > kMaxSilence;
}

void RealtimeArm::skip_missed_time() {
  const auto lateness = Clock::now() - next_step_;
  if (lateness > kMaxLateness) {
    skipped_ms_ += static_cast<std::uint64_t>(lateness / kStep);
    next_step_ = Clock::now();
  }
}

void RealtimeArm::start(AfterStep after_step) {
  stop_requested_ = false;
  thread_ =
      std::thread([this, after_step = std::move(after_step)] { run(stop_requested_, after_step); });
}

void RealtimeArm::stop() {
  stop_requested_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
}

}  // namespace kelvara::simulation
