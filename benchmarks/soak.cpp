// Sends random commands to one controller, then constructs many controllers one after another;
// fails if memory, descriptors or threads grow. Usage, on an interface without an arm: soak
// INTERFACE SECONDS CONTROLLERS

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kelvara/arm_controller.hpp"
#include "simulation/simulated_arm/realtime_arm.hpp"

#include "benchmarks/process_resources.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

class Soak {
 public:
  /// Makes one random call; the arguments are valid, unusual or invalid.
  void command(ArmController& arm) {
    try {
      switch (std::uniform_int_distribution<int>(0, 9)(random_)) {
        case 0:
          return arm.set_joint(joints(), number());
        case 1:
          return arm.set_joint_raw(joints(), joints());
        case 2:
          return arm.move_joint_waypoints({joints(), joints()}, number(), 0.0, 400.0);
        case 3:
          return arm.move_joint_waypoints({joints()}, 0.0, number(), 400.0);
        case 4:
          return arm.set_end_effector_pose({number(), number(), number()}, {0, 0, 0}, 0.5);
        case 5:
          return arm.set_end_effector_pose_raw({0.5, number() * 0.1, 0.3}, {0, 0, 0});
        case 6:
          return static_cast<void>(arm.solve_ik({number(), 0.1, 0.3}, {0, 0, number()}, {}));
        case 7:
          return arm.identify_gravity_compensation();
        case 8:
          return arm.setGripperDistance(number() * 0.05, number() * 10, number());
        default:
          if (!arm.get_joint().allFinite() || !arm.get_joint_torques().allFinite() ||
              !std::isfinite(arm.get_end_effector_pose()[0])) {
            throw std::logic_error("a query returned NaN or infinity");
          }
      }
    } catch (const std::invalid_argument&) {
      ++refused_;
    } catch (const std::length_error&) {
      ++refused_;
    } catch (const std::runtime_error&) {
      ++refused_;  // no feedback yet
    }
  }
  long refused() const { return refused_; }
  std::mt19937& random() { return random_; }

 private:
  double number() {
    const int kind = std::uniform_int_distribution<int>(0, 99)(random_);
    return kind == 0   ? std::nan("")
           : kind == 1 ? HUGE_VAL
           : kind == 2 ? 1e300
           : kind == 3 ? 0.0
                       : std::uniform_real_distribution<double>(-0.2, 1.0)(random_);
  }
  std::vector<double> joints() {
    std::vector<double> values(std::uniform_int_distribution<int>(0, 99)(random_) == 0 ? 5 : 6);
    std::generate(values.begin(), values.end(), [this] { return number(); });
    return values;
  }

  std::mt19937 random_{7};
  long refused_ = 0;
};

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// An arm in real time on a thread.
class BackgroundArm {
  using RealtimeArm = kelvara::simulation::RealtimeArm;

 public:
  explicit BackgroundArm(const std::string& interface)
      : arm_(kelvara::simulation::load_robot_description(),
             {interface, false, RealtimeArm::Silence::kTimePasses, {}}) {
    arm_.start();
  }

 private:
  RealtimeArm arm_;
};

/// Prints the resources in use and compares them with those of the first call.
bool stays_flat(ProcessResources& settled, const char* when, Clock::time_point start) {
  // Threads and sockets that have just ended disappear a moment later.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const ProcessResources now = ProcessResources::now();
  now.print(when, seconds_since(start));
  if (settled.memory_kb == 0) {
    settled = now;
  }
  if (now.grew_since(settled)) {
    std::puts("FAILED: it grew");
    return false;
  }
  return true;
}

/// Sends commands for this time; after its first tenth the resources in use must not grow.
bool command_for(const std::string& interface, double seconds, Soak& soak) {
  const BackgroundArm simulated(interface);
  const Clock::time_point start = Clock::now();
  ProcessResources settled{};
  double next_line = 0.1 * seconds;
  long commands = 0;
  {
    ArmController arm(true, interface, false, MIT_MODE);
    while (seconds_since(start) < seconds) {
      soak.command(arm);
      ++commands;
      std::this_thread::sleep_for(
          std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 20)(soak.random())));
      if (seconds_since(start) >= next_line) {
        if (!stays_flat(settled, "commanding", start)) {
          return false;
        }
        next_line += std::max(0.1 * seconds, 10.0);
      }
    }
  }
  std::printf("%ld commands, %ld of them refused\n", commands, soak.refused());
  return soak.refused() > 0 && soak.refused() < commands;
}

bool construct(const std::string& interface, int controllers, Soak& soak) {
  const BackgroundArm simulated(interface);
  const Clock::time_point start = Clock::now();
  ProcessResources settled{};
  const int step = std::max(controllers / 10, 1);
  for (int k = 1; k <= controllers; ++k) {
    {
      ArmController arm(k % 2 == 0, interface, false, k % 20 == 0 ? POS_VEL_MODE : MIT_MODE);
      soak.command(arm);
    }
    if (k % step == 0) {
      if (!stays_flat(settled, "constructing", start)) {
        return false;
      }
    }
  }
  std::printf("%d controllers constructed and destroyed\n", controllers);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc == 4 ? std::atof(argv[2]) : 0.0;
  const int controllers = argc == 4 ? std::atoi(argv[3]) : 0;
  if (!(seconds > 0.0) || controllers <= 0) {
    std::cerr << "usage: soak INTERFACE SECONDS CONTROLLERS\n";
    return 2;
  }
  // Discards what the controllers print.
  std::cout.setstate(std::ios::failbit);
  std::cerr.setstate(std::ios::failbit);
  try {
    Soak soak;
    return command_for(argv[1], seconds, soak) && construct(argv[1], controllers, soak) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "soak: %s\n", error.what());
    return 1;
  }
}
