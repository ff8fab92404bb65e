#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "simulation/simulated_arm/simulated_arm.hpp"
#include "simulation/simulated_arm/simulated_arm_bus.hpp"

namespace kelvara::simulation {

/// A simulated arm on a SocketCAN interface, in real time: owns the arm, its bus and, between
/// `start` and `stop`, a thread that advances the time.
///
/// All pending frames are handled before each millisecond of physics. Missed time is skipped, never
/// caught up: a process that got no processor time must not make the motors take their commands for
/// interrupted. While the thread runs, `arm` and `bus` belong to it.
class RealtimeArm {
 public:
  /// What happens while no frame arrives.
  enum class Silence {
    kTimePasses,  // the motors time out, as the real ones do
    kTimeStops,   // after 20 ms: the arm waits for a controller that got no processor time
  };
  struct Options {
    std::string interface;
    bool fd = false;  // the motors reply with CAN-FD frames
    Silence silence = Silence::kTimePasses;
    SimulatedArm::Options arm;
  };
  /// Called after every millisecond of physics, by the thread that advances the time.
  using AfterStep = std::function<void()>;

  /// @throws std::runtime_error when the interface is missing or down, or when an arm answers there
  ///         already.
  RealtimeArm(const RobotDescription& description, const Options& options);
  ~RealtimeArm() { stop(); }

  RealtimeArm(const RealtimeArm&) = delete;
  RealtimeArm& operator=(const RealtimeArm&) = delete;

  SimulatedArm& arm() { return arm_; }
  SimulatedArmBus& bus() { return bus_; }

  /// Advances the time on the calling thread until `stop` is set; ends within a few milliseconds of
  /// it.
  /// @throws std::runtime_error when the interface has gone.
  void run(const std::atomic<bool>& stop, const AfterStep& after_step = {});

  /// Advances the time on a thread of this object.
  void start(AfterStep after_step = {});
  /// Ends and joins that thread, if it runs.
  void stop();

  /// Milliseconds skipped so far because the machine was late.
  std::uint64_t skipped_ms() const { return skipped_ms_; }

 private:
  using Clock = std::chrono::steady_clock;

  bool is_waiting_for_commands(Clock::time_point now) const;
  void skip_missed_time();

  SimulatedArm arm_;
  SimulatedArmBus bus_;
  Silence silence_;
  Clock::time_point next_step_;
  Clock::time_point last_frame_;
  std::uint64_t skipped_ms_ = 0;
  std::atomic<bool> stop_requested_{false};
  std::thread thread_;
};

}  // namespace kelvara::simulation
