// Measures how fast each way of stopping stops a moving arm: from the cause to the last motion
// frame on the bus, to the last motor that is disabled, and to standstill. The arm stands upright;
// joint 1 swings it round at 2 rad/s. Usage, on an interface without an arm: stop_latency INTERFACE
// [RUNS [CAUSE]]

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "controller/arm_controller_impl.hpp"

#include "benchmarks/motion_witness.hpp"
#include "benchmarks/upright_arm.hpp"

namespace {

using Clock = std::chrono::steady_clock;

const std::vector<double> kSwungRound{1.2, 0.0, -1.57, 0.0, 0.0, 0.0};
constexpr double kSwingTime = 1.2;  // s
constexpr std::chrono::seconds kPatience{5};
constexpr int kMaxStarvedRuns = 10;

/// A run in which the machine was stalled for so long that the motors timed out.
struct Starved : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void wait_for(const std::function<bool()>& condition, const char* what) {
  const auto end = Clock::now() + kPatience;
  while (!condition()) {
    if (Clock::now() > end) {
      throw Starved(std::string("waited in vain until ") + what);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

struct Latencies {
  std::vector<double> frame_ms, off_ms, still_ms;
};

class Experiment {
 public:
  Experiment(std::string interface, std::string self)
      : interface_(std::move(interface)), self_(std::move(self)) {}

  /// The controller is destroyed by leaving its scope, whatever stopped the arm.
  void emergency_stop(Latencies& latencies) {
    UprightArm arm(interface_);
    ArmController::Impl impl(interface_, false, nullptr, false, kelvara::damiao_motor::MIT_MODE);
    impl.publish_joint_trajectory_command(kSwungRound, kSwingTime);
    impl.start_two_thread();
    try {
      measure(arm, latencies, [&] { impl.flags.emergency_stop_flag = true; });
    } catch (...) {
      impl.request_stop_and_join();
      throw;
    }
    impl.request_stop_and_join();
  }

  void cleanup(Latencies& latencies) {
    UprightArm arm(interface_);
    auto controller = make_controller();
    measure(arm, latencies, [&] { controller->cleanup(); });
  }

  void destructor(Latencies& latencies) {
    UprightArm arm(interface_);
    auto controller = make_controller();
    measure(arm, latencies, [&] { controller.reset(); });
  }

  void kill_process(Latencies& latencies) {
    UprightArm arm(interface_);
    const pid_t child = fork();
    if (child == 0) {
      execl(self_.c_str(), self_.c_str(), "--victim", interface_.c_str(), nullptr);
      _exit(127);
    }
    try {
      measure(arm, latencies, [&] { kill(child, SIGKILL); });
    } catch (...) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
      throw;
    }
    waitpid(child, nullptr, 0);
  }

  std::unique_ptr<ArmController> make_controller() const {
    auto controller =
        std::make_unique<ArmController>(false, interface_, false, kelvara::damiao_motor::MIT_MODE);
    controller->set_joint(kSwungRound, kSwingTime);
    return controller;
  }

 private:
  void measure(UprightArm& arm, Latencies& latencies, const std::function<void()>& cause) {
    MotionWitness witness(interface_);
    wait_for([&] { return arm.is_fast(); }, "the arm swung");
    const std::int64_t start_ns = now_ns();
    cause();
    wait_for([&] { return arm.has_stopped(); }, "the arm stood");
    const auto since_start = [start_ns](std::int64_t time_ns) {
      return std::max(0.0, 1e-6 * static_cast<double>(time_ns - start_ns));
    };
    latencies.frame_ms.push_back(since_start(witness.last_motion_ns()));
    latencies.off_ms.push_back(since_start(arm.off_ns()));
    latencies.still_ms.push_back(since_start(arm.last_moving_ns()));
  }

  std::string interface_, self_;
};

/// Moves the arm until the process is killed.
int be_victim(const std::string& interface) {
  const auto controller = Experiment(interface, "").make_controller();
  std::this_thread::sleep_for(kPatience);
  return 1;
}

struct Cause {
  const char* name;
  void (Experiment::*run)(Latencies&);
};
constexpr std::array<Cause, 4> kCauses{
    {{"emergency stop of the torque monitor", &Experiment::emergency_stop},
     {"`cleanup()`", &Experiment::cleanup},
     {"destructor", &Experiment::destructor},
     {"SIGKILL", &Experiment::kill_process}}};

/// Runs one cause so many times; counts the further runs in which the machine was stalled.
Latencies repeat(Experiment& experiment, const Cause& cause, int runs, int& starved) {
  Latencies latencies;
  for (int k = 1; k <= runs; ++k) {
    try {
      (experiment.*cause.run)(latencies);
    } catch (const Starved&) {
      if (++starved > kMaxStarvedRuns) {
        throw;
      }
      --k;
    }
    std::fprintf(stderr, "\r%s: %d of %d ", cause.name, k, runs);
  }
  std::fputs("\r", stderr);
  return latencies;
}

/// Median, 99th percentile and largest.
void print_figures(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto at = [&](double share) {
    return values[static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size()))) -
                  1];
  };
  std::printf(" | %.1f / %.1f / %.1f", at(0.5), at(0.99), values.back());
}

/// Measures every cause whose name contains `filter`.
void print_table(Experiment& experiment, int runs, const std::string& filter) {
  std::printf("median / 99th percentile / largest of %d runs, ms\n\n", runs);
  std::puts("| cause | last motion frame | last motor off | standstill |\n|---|---|---|---|");
  int starved = 0;
  for (const Cause& cause : kCauses) {
    if (std::string(cause.name).find(filter) == std::string::npos) {
      continue;
    }
    const Latencies latencies = repeat(experiment, cause, runs, starved);
    std::printf("| %s", cause.name);
    print_figures(latencies.frame_ms);
    print_figures(latencies.off_ms);
    print_figures(latencies.still_ms);
    std::puts(" |");
    std::fflush(stdout);
  }
  std::printf("\n%d further runs did not count: the machine stood still in them\n", starved);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  // Discards what the controllers print at every start and end.
  std::cout.setstate(std::ios::failbit);
  std::cerr.setstate(std::ios::failbit);
  if (words.size() == 2 && words[0] == "--victim") {
    return be_victim(words[1]);
  }
  const int runs = words.size() >= 2 ? std::atoi(words[1].c_str()) : 200;
  if (words.empty() || words.size() > 3 || words[0][0] == '-' || runs <= 0) {
    std::fputs("usage: stop_latency INTERFACE [RUNS [CAUSE]]\n", stderr);
    return 2;
  }
  try {
    Experiment experiment(words[0], argv[0]);
    print_table(experiment, runs, words.size() == 3 ? words[2] : "");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stop_latency: %s\n", error.what());
    return 1;
  }
  return 0;
}
