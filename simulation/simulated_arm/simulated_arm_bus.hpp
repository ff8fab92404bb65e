#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// Puts a simulated arm on a SocketCAN interface, in real time.
///
/// All frames that wait are handled before each millisecond of physics. Time that was missed is
/// given up, never made up for: a starved process must not make the motors believe that their
/// commands stopped.
class SimulatedArmBus {
 public:
  /// @param fd The motors answer with CAN-FD frames.
  /// @throws std::runtime_error when the interface is missing or down, or when an arm answers
  ///         there already.
  SimulatedArmBus(SimulatedArm& arm, const std::string& interface, bool fd);
  ~SimulatedArmBus();

  SimulatedArmBus(const SimulatedArmBus&) = delete;
  SimulatedArmBus& operator=(const SimulatedArmBus&) = delete;

  /// Runs until `stop` is set; ends within a few milliseconds of it.
  /// @throws std::runtime_error when the interface has gone.
  /// @param after_step Called after every millisecond of physics.
  void run(const std::atomic<bool>& stop, const std::function<void()>& after_step = {});

  /// Waits at most `timeout` for a frame and handles all that wait then, without letting time pass.
  /// @return how many were handled.
  /// @throws std::runtime_error when the interface has gone.
  int handle_frames(std::chrono::nanoseconds timeout);

  /// For tests: lets `change` alter, drop, add or hold back the answers to each frame.
  using ReplyChange = std::function<void(std::vector<canfd_frame>&)>;
  void change_replies(ReplyChange change) { change_ = std::move(change); }

  /// Milliseconds given up so far.
  std::uint64_t slipped_ms() const { return slipped_ms_; }

 private:
  void open_socket(const std::string& interface);
  void refuse_second_arm(const std::string& interface);
  bool wait_readable(std::chrono::nanoseconds timeout) const;
  void answer(const canfd_frame& frame);
  void send(const canfd_frame& frame);

  SimulatedArm& arm_;
  bool fd_frames_;
  int socket_ = -1;
  std::vector<canfd_frame> replies_;
  ReplyChange change_;
  std::uint64_t slipped_ms_ = 0;
};

}  // namespace kelvara::simulation
