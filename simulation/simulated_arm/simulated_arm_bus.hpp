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

  /// For tests: may alter, drop, add or delay frames. Do not set while another thread handles
  /// frames.
  using FrameChange = std::function<void(std::vector<canfd_frame>&)>;
  /// `change` is applied to each frame that arrives, before the motors receive it.
  void change_commands(FrameChange change) { change_commands_ = std::move(change); }
  /// `change` is applied to the replies to each frame.
  void change_replies(FrameChange change) { change_replies_ = std::move(change); }

 private:
  void open_socket(const std::string& interface);
  void refuse_second_arm(const std::string& interface);
  bool wait_readable(std::chrono::nanoseconds timeout) const;
  void receive(const canfd_frame& frame);
  void answer(const canfd_frame& frame);
  void send(const canfd_frame& frame);

  SimulatedArm& arm_;
  bool fd_frames_;
  int socket_ = -1;
  std::vector<canfd_frame> replies_;
  std::vector<canfd_frame> commands_;
  FrameChange change_replies_;
  FrameChange change_commands_;
};

}  // namespace kelvara::simulation
