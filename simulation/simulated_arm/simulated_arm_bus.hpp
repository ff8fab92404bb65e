#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// Connects a simulated arm to a SocketCAN interface: owns the socket, passes frames to the arm and
/// sends its replies. One thread at a time may call the members.
class SimulatedArmBus {
 public:
  /// @param fd The motors reply with CAN-FD frames.
  /// @throws std::runtime_error when the interface is missing or down, or when an arm answers
  ///         there already.
  SimulatedArmBus(SimulatedArm& arm, const std::string& interface, bool fd);
  ~SimulatedArmBus();

  SimulatedArmBus(const SimulatedArmBus&) = delete;
  SimulatedArmBus& operator=(const SimulatedArmBus&) = delete;

  /// Waits at most `timeout` for a frame and handles all pending ones, without letting time pass.
  /// @return the number of frames handled.
  /// @throws std::runtime_error when the interface has gone.
  int handle_frames(std::chrono::nanoseconds timeout);

  /// For tests: `change` may alter, drop, add or delay the replies to each frame.
  using ReplyChange = std::function<void(std::vector<canfd_frame>&)>;
  void change_replies(ReplyChange change) { change_ = std::move(change); }

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
};

}  // namespace kelvara::simulation
