// Measures how fast a moving arm is stopped, by each way there is: from the cause to the last
// motion frame on the bus, to the last motor that is switched off, and to standstill.
//
// The arm stands upright, balanced, so that it does not fall when its motors let go; joint 1 swings
// it round at 2 rad/s. Usage, on an interface without an arm: stop_latency INTERFACE [RUNS [CAUSE]]

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
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

#include "benchmarks/living_arm.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using kelvara::simulation::SimulatedArm;

const std::vector<double> kUpright{0.0, 0.0, -1.57, 0.0, 0.0, 0.0};
const std::vector<double> kSwungRound{1.2, 0.0, -1.57, 0.0, 0.0, 0.0};
constexpr double kSwingTime = 1.2;    // s
constexpr double kFastEnough = 2.0;   // rad/s, of joint 1 when the cause strikes
constexpr double kStandstill = 0.01;  // rad/s
constexpr std::chrono::seconds kPatience{5};
constexpr int kMostStarved = 10;

std::int64_t now_ns() { return Clock::now().time_since_epoch().count(); }

/// Sees when the last motion frame passes.
class Witness {
 public:
  explicit Witness(const std::string& interface) : socket_(socket(AF_CAN, SOCK_RAW, CAN_RAW)) {
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    const timeval timeout{0, 10'000};
    if (setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::runtime_error("cannot listen on " + interface);
    }
    thread_ = std::thread([this] { listen(); });
  }
  ~Witness() {
    stop_ = true;
    thread_.join();
    close(socket_);
  }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  std::int64_t last_motion_ns() const { return last_motion_ns_; }

 private:
  void listen() {
    while (!stop_) {
      can_frame frame{};
      if (read(socket_, &frame, sizeof(frame)) != sizeof(frame)) {
        continue;
      }
      const bool special =
          frame.can_dlc == 8 &&
          std::all_of(frame.data, frame.data + 7, [](auto byte) { return byte == 0xFF; });
      if (frame.can_id >= 1 && frame.can_id <= 6 && !special) {
        last_motion_ns_ = now_ns();
      }
    }
  }

  int socket_;
  std::atomic<std::int64_t> last_motion_ns_{0};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

/// An upright arm, and what happens to it.
class UprightArm {
 public:
  explicit UprightArm(const std::string& interface)
      : arm_(interface, options(), [this](const SimulatedArm& arm) { observe(arm); }) {}

  bool is_fast() const { return fast_; }
  bool has_stopped() const { return off_ns_ != 0 && now_ns() - last_moving_ns_ > 200'000'000; }
  std::int64_t off_ns() const { return off_ns_; }
  std::int64_t last_moving_ns() const { return last_moving_ns_; }

 private:
  static SimulatedArm::Options options() {
    SimulatedArm::Options options;
    options.with_gripper = false;
    std::copy(kUpright.begin(), kUpright.end(), options.start.begin());
    return options;
  }

  void observe(const SimulatedArm& arm) {
    const auto velocities = arm.joint_velocities();
    bool any_on = false;
    for (std::size_t i = 0; i < arm.motor_count(); ++i) {
      any_on = any_on || arm.motor(i).is_enabled();
    }
    fast_ = velocities[0] > kFastEnough;
    was_on_ = was_on_ || any_on;
    if (any_on) {
      off_ns_ = 0;
    } else if (was_on_ && off_ns_ == 0) {
      off_ns_ = now_ns();
    }
    if (std::abs(velocities[0]) > kStandstill) {
      last_moving_ns_ = now_ns();
    }
  }

  bool was_on_ = false;
  std::atomic<bool> fast_{false};
  std::atomic<std::int64_t> off_ns_{0};
  std::atomic<std::int64_t> last_moving_ns_{0};
  LivingArm arm_;  // last: it observes from the start
};

/// A run in which the machine stood still for so long that the motors let go by themselves.
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
    Witness witness(interface_);
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

/// Median, 99th percentile and largest.
void print_figures(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto at = [&](double share) {
    return values[static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size()))) -
                  1];
  };
  std::printf(" | %.1f / %.1f / %.1f", at(0.5), at(0.99), values.back());
}

/// Moves the arm until it is killed.
int be_victim(const std::string& interface) {
  const auto controller = Experiment(interface, "").make_controller();
  std::this_thread::sleep_for(kPatience);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  // What the controllers say of every start and end is not wanted here.
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
    const std::array<std::pair<const char*, void (Experiment::*)(Latencies&)>, 4> causes{
        {{"emergency stop of the torque monitor", &Experiment::emergency_stop},
         {"`cleanup()`", &Experiment::cleanup},
         {"destructor", &Experiment::destructor},
         {"SIGKILL", &Experiment::kill_process}}};
    std::printf("median / 99th percentile / largest of %d runs, ms\n\n", runs);
    std::puts("| cause | last motion frame | last motor off | standstill |\n|---|---|---|---|");
    int starved = 0;
    for (const auto& [name, run] : causes) {
      if (words.size() == 3 && std::string(name).find(words[2]) == std::string::npos) {
        continue;
      }
      Latencies latencies;
      for (int k = 1; k <= runs; ++k) {
        try {
          (experiment.*run)(latencies);
        } catch (const Starved& error) {
          if (++starved > kMostStarved) {
            throw;
          }
          --k;
        }
        std::fprintf(stderr, "\r%s: %d of %d ", name, k, runs);
      }
      std::fputs("\r", stderr);
      std::printf("| %s", name);
      print_figures(latencies.frame_ms);
      print_figures(latencies.off_ms);
      print_figures(latencies.still_ms);
      std::puts(" |");
      std::fflush(stdout);
    }
    std::printf("\n%d further runs did not count: the machine stood still in them\n", starved);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stop_latency: %s\n", error.what());
    return 1;
  }
  return 0;
}
