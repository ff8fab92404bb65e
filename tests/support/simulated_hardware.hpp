#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simulation/simulated_arm/realtime_arm.hpp"
#include "support/test_bus.hpp"

/// A simulated arm on a virtual bus of its own. The test decides how the arm's time passes: by
/// steps, not at all, or on a thread in real time.
class SimulatedHardware {
 public:
  using SimulatedArm = kelvara::simulation::SimulatedArm;

  using RealtimeArm = kelvara::simulation::RealtimeArm;
  using SimulatedArmBus = kelvara::simulation::SimulatedArmBus;

  /// @param silence With `live`: whether the arm's time passes while no frame arrives.
  explicit SimulatedHardware(bool fd, const SimulatedArm::Options& options = {},
                             RealtimeArm::Silence silence = RealtimeArm::Silence::kTimeStops)
      : realtime_(kelvara::simulation::load_robot_description(),
                  {TestBus::kInterface, fd, silence, options}) {}
  ~SimulatedHardware() { halt(); }
  SimulatedHardware(const SimulatedHardware&) = delete;
  SimulatedHardware& operator=(const SimulatedHardware&) = delete;

  TestBus& bus() { return bus_; }
  SimulatedArm& arm() { return realtime_.arm(); }

  /// The hooks that change frames; not while `answer` or `live` runs.
  SimulatedArmBus& arm_bus() { return realtime_.bus(); }
  /// `change` may alter the replies to each frame.
  void change_replies(SimulatedArmBus::FrameChange change) {
    arm_bus().change_replies(std::move(change));
  }
  /// `change` may alter each frame before the motors receive it.
  void change_commands(SimulatedArmBus::FrameChange change) {
    arm_bus().change_commands(std::move(change));
  }

  /// Replies to frames on a thread, each time after `delay`, without letting the arm's time pass.
  void answer(std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
    longest_pause_ = std::chrono::nanoseconds(0);
    thread_ = std::thread([this, delay] {
      auto last = std::chrono::steady_clock::now();
      while (!stop_) {
        std::this_thread::sleep_for(delay);
        realtime_.bus().handle_frames(std::chrono::milliseconds(1));
        const auto now = std::chrono::steady_clock::now();
        longest_pause_ = std::max<std::chrono::nanoseconds>(longest_pause_, now - last - delay);
        last = now;
      }
    });
  }

  /// Whether the thread of the last `answer` got no processor for so long that a controller, which
  /// waits 20 ms for answers, may have missed them. Call it after `halt`.
  bool stood_still() const { return longest_pause_ > std::chrono::milliseconds(6); }

  /// Answers while `make` starts a controller, and returns that. What was started while the machine
  /// stood still is dropped and started again.
  template <typename Make>
  auto start(Make make) {
    constexpr int kMaxAttempts = 20;  // where the machine always stands still, as in Valgrind
    for (int attempt = 1;; ++attempt) {
      std::exception_ptr failure;
      decltype(make()) made{};
      answer();
      try {
        made = make();
      } catch (...) {
        failure = std::current_exception();
      }
      halt();
      if (stood_still() && attempt < kMaxAttempts) {
        continue;
      }
      if (failure) {
        std::rethrow_exception(failure);
      }
      return made;
    }
  }

  /// Runs in real time on a thread as long as commands arrive; without them the arm's time stops,
  /// unless the constructor was given kTimePasses, so that a controller that got no processor time
  /// does not lose its motors.
  void live() { realtime_.start(); }

  /// Ends `answer` and `live`; the test may use the arm again.
  void halt() {
    realtime_.stop();
    stop_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
    stop_ = false;
  }

  /// Handles at least this many frames, then advances the time.
  void step(int frames, std::chrono::nanoseconds time) {
    constexpr std::chrono::seconds kPatience{20};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (int handled = 0; handled < frames;) {
      handled += realtime_.bus().handle_frames(std::chrono::milliseconds(100));
      if (std::chrono::steady_clock::now() > end) {
        throw std::runtime_error("the frames of this step did not arrive");
      }
    }
    realtime_.arm().advance(time);
  }

 private:
  TestBus bus_;
  RealtimeArm realtime_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::chrono::nanoseconds longest_pause_{0};
};
