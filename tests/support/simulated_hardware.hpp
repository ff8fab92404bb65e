#pragma once

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "simulation/simulated_arm/simulated_arm.hpp"
#include "simulation/simulated_arm/simulated_arm_bus.hpp"
#include "support/test_bus.hpp"

/// A simulated arm on a virtual bus of a test's own, whose time passes as the test says: by its
/// steps, not at all, or on a thread in real time.
class SimulatedHardware {
 public:
  using SimulatedArm = kelvara::simulation::SimulatedArm;

  explicit SimulatedHardware(bool fd, const SimulatedArm::Options& options = {})
      : arm_(kelvara::simulation::load_robot_description("config/BrimloV2.SLDASM.urdf",
                                                         "config/robot_kinematics.yaml"),
             options),
        port_(arm_, TestBus::kInterface, fd) {}
  ~SimulatedHardware() { halt(); }
  SimulatedHardware(const SimulatedHardware&) = delete;
  SimulatedHardware& operator=(const SimulatedHardware&) = delete;

  TestBus& bus() { return bus_; }
  SimulatedArm& arm() { return arm_; }

  /// Lets `change` alter the answers to each frame.
  void change_replies(kelvara::simulation::SimulatedArmBus::ReplyChange change) {
    port_.change_replies(std::move(change));
  }

  /// Answers frames on a thread, without letting time pass; late, if so wished.
  void answer(std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
    thread_ = std::thread([this, delay] {
      while (!stop_) {
        std::this_thread::sleep_for(delay);
        port_.handle_frames(std::chrono::milliseconds(1));
      }
    });
  }

  /// Lives in real time on a thread, while commands come: on a machine that starves the controller
  /// the arm waits for it, instead of believing that it has died.
  void live() {
    thread_ = std::thread([this] {
      using Clock = std::chrono::steady_clock;
      constexpr std::chrono::milliseconds kStep{1};
      Clock::time_point last_step = Clock::now();
      Clock::time_point last_frame = last_step;
      while (!stop_) {
        const bool heard = port_.handle_frames(kStep) > 0;
        const Clock::time_point now = Clock::now();
        last_frame = heard ? now : last_frame;
        if (now - last_frame > 20 * kStep || now - last_step > 10 * kStep) {
          last_step = now;  // time that is given up
        }
        for (; now - last_step >= kStep; last_step += kStep) {
          arm_.advance(kStep);
        }
      }
    });
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
  TestBus bus_;
  SimulatedArm arm_;
  kelvara::simulation::SimulatedArmBus port_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
};
