// Eight threads call one controller at random while an adversary loses, delays, repeats and forges
// frames in both directions, and a motor reports an error now and then. Fails when the process
// crashes or a call hangs, when a command steps farther within itself than its speed allows, and
// when a motor is still enabled after the end. Usage: adversary_run SECONDS SEED options|plain

#include <linux/can/raw.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "simulation/simulated_arm/adversary.hpp"
#include "support/simulated_hardware.hpp"

#include "benchmarks/endurance/random_calls.hpp"
#include "benchmarks/endurance/sole_commander.hpp"
#include "benchmarks/endurance/step_watch.hpp"
#include "benchmarks/endurance/watchdog.hpp"
#include "description/joint_array.hpp"

namespace {

using kelvara::simulation::Adversary;

using Clock = std::chrono::steady_clock;
using kelvara::ArmCondition;
using kelvara::ArmState;
using Seconds = std::chrono::duration<double>;

constexpr std::size_t kThreads = 8;
constexpr Seconds kPhase{3.0};
constexpr std::chrono::milliseconds kLongestPause{20};
constexpr std::chrono::milliseconds kAfterMotorTimeout{100};
constexpr Seconds kLongestStall{5.0};
constexpr double kUnknownLoadKg = 1.5;
constexpr long kFramesPerMotorError = 20'000;  // some 6 s
constexpr unsigned kMotorError = 0xB;
constexpr Adversary::Rates kFaults{0.03, 0.02, 0.02, 0.005, 0.01, 0.002};

double seconds_now() { return Seconds(Clock::now().time_since_epoch()).count(); }

/// The threads' work. In every third phase all of them command the arm; in the others one of them
/// does, while the rest query it and call it with invalid arguments.
class Callers {
 public:
  Callers(ArmController& arm, unsigned seed, Watchdog& watchdog, StepWatch& watch)
      : arm_(arm), seed_(seed), watchdog_(watchdog), watch_(watch) {}

  void run(Clock::time_point end) {
    std::vector<std::thread> threads;
    for (std::size_t k = 0; k < kThreads; ++k) {
      threads.emplace_back([this, k, end] { work(k, end); });
    }
    while (Clock::now() < end && !failed_) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      require_cycles();
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  bool failed() const { return failed_; }
  long calls() const { return calls_; }
  long refused() const { return refused_; }
  long stops() const { return stops_; }
  const SoleCommander::Result& steps() const { return steps_; }

 private:
  void work(std::size_t index, Clock::time_point end) {
    RandomCalls calls(100 * seed_ + static_cast<unsigned>(index), serialised_);
    const Clock::time_point start = Clock::now();
    while (Clock::now() < end && !failed_) {
      const auto phase = static_cast<std::size_t>((Clock::now() - start) / kPhase);
      const Watchdog::Guard guard(watchdog_, index);
      try {
        act(calls, index, phase);
      } catch (const std::exception& error) {
        fail(error.what());
      }
    }
    calls_ += calls.calls();
    refused_ += calls.refused();
  }

  void require_cycles() {
    const ArmState state = arm_.state();
    if (state.condition != ArmCondition::kStoppedByMonitor &&
        seconds_now() - state.time_s > kLongestStall.count()) {
      fail("the control loop stands");
    }
    stops_ += state.reason != last_reason_ && state.reason != kelvara::StopReason::kNone ? 1 : 0;
    last_reason_ = state.reason;
  }

  void fail(const char* reason) {
    std::fprintf(stderr, "FAILED: %s\n", reason);
    failed_ = true;
  }

  void act(RandomCalls& calls, std::size_t index, std::size_t phase) {
    const bool all_command = phase % 3 == 0;
    if (!all_command && index == phase % kThreads) {
      const std::unique_lock<std::shared_mutex> alone(commanding_);
      return command_alone(calls);
    }
    if (all_command) {
      const std::shared_lock<std::shared_mutex> with_others(commanding_);
      calls.call(arm_);
    } else {
      calls.call_without_moving(arm_);
    }
    std::this_thread::sleep_for(calls.between(0.0, 1.0) * kLongestPause);
  }

  void command_alone(RandomCalls& calls) {
    SoleCommander commander(arm_, calls, watch_, steps_);
    const Clock::time_point end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(kPhase);
    while (Clock::now() < end) {
      try {
        commander.command();
      } catch (const std::runtime_error&) {  // stopped meanwhile; the next one recovers
      }
    }
  }

  ArmController& arm_;
  const unsigned seed_;
  Watchdog& watchdog_;
  StepWatch& watch_;
  SoleCommander::Result steps_;  // of the thread that holds `commanding_` alone
  std::mutex serialised_;
  std::shared_mutex commanding_;  // held alone by a thread whose steps are bounded
  kelvara::StopReason last_reason_ = kelvara::StopReason::kNone;
  long stops_ = 0;
  std::atomic<bool> failed_{false};
  std::atomic<long> calls_{0};
  std::atomic<long> refused_{0};
};

std::unique_ptr<ArmController> make_controller(bool with_options) {
  using kelvara::damiao_motor::MIT_MODE;
  if (!with_options) {
    return std::make_unique<ArmController>(true, TestBus::kInterface, false, MIT_MODE);
  }
  kelvara::ArmOptions options;
  options.interface = TestBus::kInterface;
  options.with_gripper = true;
  return std::make_unique<ArmController>(options);
}

int enabled_motors(SimulatedHardware& hardware) {
  int count = 0;
  for (std::size_t i = 0; i <= kelvara::kJointCount; ++i) {
    count += hardware.arm().motor(i).is_enabled() ? 1 : 0;
  }
  return count;
}

void print(const Callers& callers, const Adversary::Counts& faults, const ArmState& state) {
  const SoleCommander::Result& steps = callers.steps();
  std::printf("%ld calls, %ld of them refused; %ld stops and faults, %llu late cycles\n",
              callers.calls(), callers.refused(), callers.stops(),
              static_cast<unsigned long long>(state.counters.late_cycles));
  std::printf("frames: %u lost, %u delayed, %u repeated, %u forged\n", faults.lost, faults.delayed,
              faults.repeated,
              faults.forged_feedback + faults.forged_registers + faults.forged_commands);
  std::printf("largest of %ld steps within a command: %.1f mrad, at most %.2f of its bound\n",
              steps.steps, 1e3 * steps.largest_step, steps.largest_share);
}

/// @return the number of failed checks.
int run(double seconds, unsigned seed, bool with_options) {
  Watchdog watchdog;
  StepWatch watch;
  SimulatedHardware hardware(false, {.with_gripper = true, .load_kg = kUnknownLoadKg, .start = {}},
                             kelvara::simulation::RealtimeArm::Silence::kTimePasses);
  long frames = 0;
  const auto observe = [&](const canfd_frame& frame) {
    watch.on_frame(frame);
    if (++frames % kFramesPerMotorError == 0) {
      const auto motor = static_cast<std::size_t>(frames / kFramesPerMotorError);
      hardware.arm().motor(motor % kelvara::kJointCount).raise_error(kMotorError);
    }
  };
  Adversary adversary(
      {.seed = seed, .to_motors = kFaults, .to_host = kFaults, .observe_command = observe});
  adversary.attach(hardware.arm_bus());
  adversary.set_active(false);
  hardware.live();
  const std::unique_ptr<ArmController> arm = make_controller(with_options);
  adversary.set_active(true);
  Callers callers(*arm, seed, watchdog, watch);
  callers.run(Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(seconds)));
  {
    const Watchdog::Guard guard(watchdog, kThreads);
    arm->cleanup();
  }
  std::this_thread::sleep_for(kAfterMotorTimeout);
  hardware.halt();
  print(callers, adversary.counts(), arm->state());
  const auto check = [](bool holds, const char* what) {
    if (!holds) {
      std::fprintf(stderr, "FAILED: %s\n", what);
    }
    return holds ? 0 : 1;
  };
  return check(!callers.failed(), "a thread failed") +
         check(callers.steps().largest_share <= 1.0, "a command stepped beyond its bound") +
         check(callers.steps().steps > 0, "no command was observed") +
         check(enabled_motors(hardware) == 0, "a motor is still enabled");
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc == 4 ? std::atof(argv[1]) : 0.0;
  const std::string start = argc == 4 ? argv[3] : "";
  if (!(seconds > 0.0) || (start != "options" && start != "plain")) {
    std::cerr << "usage: adversary_run SECONDS SEED options|plain\n";
    return 2;
  }
  // Discards what the controller prints.
  std::cout.setstate(std::ios::failbit);
  std::cerr.setstate(std::ios::failbit);
  try {
    return run(seconds, static_cast<unsigned>(std::atoi(argv[2])), start == "options") == 0 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "adversary_run: %s\n", error.what());
    return 1;
  }
}
