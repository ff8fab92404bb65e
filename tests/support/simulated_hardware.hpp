#pragma once

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "simulation/simulated_arm/simulated_arm.hpp"
#include "simulation/simulated_arm/simulated_arm_bus.hpp"
#include "support/virtual_bus.hpp"

/// A simulated arm on a virtual bus of a test's own, whose time passes as the test says: by its
/// steps, not at all, or on a thread in real time.
class SimulatedHardware {
 public:
  using SimulatedArm = kelvara::simulation::SimulatedArm;

  explicit SimulatedHardware(bool fd, const SimulatedArm::Options& options = {})
      : arm_(kelvara::simulation::load_robot_description("config/BrimloV2.SLDASM.urdf",
                                                         "config/robot_kinematics.yaml"),
             options),
        port_(arm_, VirtualBus::kInterface, fd) {}
  ~SimulatedHardware() { halt(); }
  SimulatedHardware(const SimulatedHardware&) = delete;
  SimulatedHardware& operator=(const SimulatedHardware&) = delete;

  VirtualBus& bus() { return bus_; }
  SimulatedArm& arm() { return arm_; }

  /// Answers frames on a thread, without letting time pass; late, if so wished.
  void answer(std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
    thread_ = std::thread([this, delay] {
      while (!stop_) {
        std::this_thread::sleep_for(delay);
        port_.handle_frames(std::chrono::milliseconds(1));
      }
    });
  }

  /// Lives in real time on a thread.
  void live() {
    thread_ = std::thread([this] { port_.run(stop_); });
  }

  /// Ends either; the arm is the test's again.
  void halt() {
    stop_ = true;
    if (thread_.joinable()) {
      thread_.join();
    }
    stop_ = false;
  }

  /// Handles exactly so many frames, then lets time pass.
  void step(int frames, std::chrono::nanoseconds time) {
    constexpr std::chrono::seconds kPatience{20};
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (int handled = 0; handled < frames;) {
      handled += port_.handle_frames(std::chrono::milliseconds(100));
      if (std::chrono::steady_clock::now() > end) {
        throw std::runtime_error("the frames of this step did not come");
      }
    }
    arm_.advance(time);
  }

 private:
  VirtualBus bus_;
  SimulatedArm arm_;
  kelvara::simulation::SimulatedArmBus port_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
};
