#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "simulation/simulated_arm/simulated_arm_bus.hpp"

/// A simulated arm on an interface, in real time on a thread of its own.
class LivingArm {
 public:
  using SimulatedArm = kelvara::simulation::SimulatedArm;
  /// Called on that thread after every millisecond.
  using Observer = std::function<void(const SimulatedArm&)>;

  LivingArm(const std::string& interface, const SimulatedArm::Options& options,
            const Observer& observer = {})
      : arm_(kelvara::simulation::load_robot_description("config/BrimloV2.SLDASM.urdf",
                                                         "config/robot_kinematics.yaml"),
             options),
        bus_(arm_, interface, false),
        thread_([this, observer] {
          bus_.run(stop_, [this, &observer] {
            if (observer) {
              observer(arm_);
            }
          });
        }) {}
  ~LivingArm() {
    stop_ = true;
    thread_.join();
  }
  LivingArm(const LivingArm&) = delete;
  LivingArm& operator=(const LivingArm&) = delete;

 private:
  std::atomic<bool> stop_{false};
  SimulatedArm arm_;
  kelvara::simulation::SimulatedArmBus bus_;
  std::thread thread_;
};
