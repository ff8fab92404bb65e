#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "controller/arm_controller_impl.hpp"
#include "controller/control_cycle.hpp"
#include "support/captured_output.hpp"
#include "support/simulated_hardware.hpp"

/// A controller without threads, and the arm that it drives, with a gripper.
struct ClosedLoop {
  using ControlMode = kelvara::damiao_motor::ControlMode;
  using JointArray = kelvara::JointArray;
  using TimePoint = kelvara::motion::TimePoint;
  static constexpr std::chrono::microseconds kPeriod{2500};

  explicit ClosedLoop(ControlMode mode, const JointArray& start = {}, bool can_fd = false,
                      double load_kg = 0.0)
      : fd(can_fd), hardware(fd, {.with_gripper = true, .load_kg = load_kg, .start = start}) {
    make_controller(mode);
  }
  /// With a controller that is started with options on the test's interface, and holds the arm.
  explicit ClosedLoop(kelvara::ArmOptions options, const JointArray& start = {})
      : fd(false), hardware(fd, {.with_gripper = true, .load_kg = 0.0, .start = start}) {
    options.interface = TestBus::kInterface;
    options.with_gripper = true;
    start_controller([&] { return std::make_unique<ArmController::Impl>(options); });
    impl->publish_hold();
  }

  /// Brings the motors up with a controller of its own, instead of the one before.
  void make_controller(ControlMode mode) {
    start_controller([&] {
      return std::make_unique<ArmController::Impl>(TestBus::kInterface, fd, nullptr, true, mode);
    });
  }

  template <typename Make>
  void start_controller(Make make) {
    impl.reset();
    impl = hardware.start(make);
    impl->cycle->begin(now);
  }

  /// One cycle; `extra_frames` beside the joints' commands and the feedback requests.
  void cycle(int extra_frames = 0) { answer(command() + extra_frames); }

  /// The controller's part of a cycle; returns the number of frames that the joints get.
  int command() {
    const TimePoint feedback_before = impl->cycle->next_feedback_time();
    impl->cycle->run_cycle(now);
    return impl->cycle->next_feedback_time() == feedback_before ? 6 : 12;
  }

  /// The arm's part.
  void answer(int frames) {
    hardware.step(frames, kPeriod);
    now += kPeriod;
  }

  /// One cycle on a bus that takes no frame.
  void cycle_unheard() {
    impl->cycle->run_cycle(now);
    hardware.step(0, kPeriod);
    now += kPeriod;
  }

  void run(int cycles) {
    for (int k = 0; k < cycles; ++k) {
      cycle();
    }
  }

  /// Passes each cycle's commands to `watch`.
  template <typename Watch>
  void run(int cycles, Watch& watch) {
    for (int k = 0; k < cycles; ++k) {
      cycle();
      watch.look();
    }
  }

  void move(const JointArray& target, double duration_s) {
    impl->publish_joint_trajectory_command({target.begin(), target.end()}, duration_s);
  }

  JointArray true_positions() const { return hardware.arm().joint_positions(); }

  bool fd;
  CapturedOutput output;
  mutable SimulatedHardware hardware;
  TimePoint now{std::chrono::hours(1)};
  std::unique_ptr<ArmController::Impl> impl;
};

inline double commanded_position(const BusFrame& frame) {
  if (frame.id < 0x100) {
    const auto raw = static_cast<std::uint16_t>(std::stoul(frame.data.substr(0, 4), nullptr, 16));
    return kelvara::damiao_motor::uint_to_double(raw, -12.5, 12.5, 16);
  }
  std::array<std::uint8_t, 4> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(std::stoul(frame.data.substr(2 * i, 2), nullptr, 16));
  }
  return kelvara::damiao_motor::uint8s_to_float(bytes);
}

/// The position commands on the bus: the farthest that one goes from the one before, motor side.
class CommandWatch {
 public:
  CommandWatch() = default;
  /// The first ones are compared with `start`, rad.
  explicit CommandWatch(const std::array<double, 6>& start) {
    std::copy(start.begin(), start.end(), last_.begin());
  }

  /// Reads the received frames until the bus has been quiet for the given time.
  void look(std::chrono::milliseconds quiet = std::chrono::milliseconds(0)) {
    for (const BusFrame& frame : witness_.receive(quiet)) {
      const std::uint32_t joint = (frame.id & 0xFU) - 1;
      const bool command = joint < 6 && (frame.id < 0x10 || (frame.id & 0xF00U) == 0x100) &&
                           frame.data.compare(0, 14, "FFFFFFFFFFFFFF") != 0;
      if (!command) {
        continue;
      }
      const double position = commanded_position(frame);
      ASSERT_TRUE(std::isfinite(position));
      largest_step_ = std::max(largest_step_, std::abs(position - last_[joint].value_or(position)));
      last_[joint] = position;
    }
  }
  double largest_step() const { return largest_step_; }

 private:
  BusPeer witness_;
  std::array<std::optional<double>, 6> last_;
  double largest_step_ = 0.0;
};
