// kelvara-simulated-arm: a simulated arm on any SocketCAN interface.

#include <signal.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "simulation/simulated_arm/adversary.hpp"
#include "simulation/simulated_arm/body_report.hpp"
#include "simulation/simulated_arm/progress_display.hpp"
#include "simulation/simulated_arm/realtime_arm.hpp"
#include "simulation/simulated_arm/simulated_arm_arguments.hpp"
#include "simulation/simulated_arm/simulated_hand.hpp"

namespace {

using namespace kelvara::simulation;  // NOLINT(google-build-using-namespace): one program

std::atomic<bool> stop_requested{false};

void stop_on_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) { stop_requested = true; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

RealtimeArm::Options options_of(const SimulatedArmArguments& arguments) {
  RealtimeArm::Options options = arguments.arm;
  if (!arguments.scene.empty()) {
    options.arm.scene = load_scene(arguments.scene);
  }
  return options;
}

void print_ready(const SimulatedArmArguments& arguments, const SimulatedArm& arm) {
  std::printf("ready: simulated arm on %s, %zu motors, %s\n", arguments.arm.interface.c_str(),
              arm.motor_count(), arguments.arm.fd ? "CAN-FD" : "classic CAN");
  std::fflush(stdout);
}

void run(const SimulatedArmArguments& arguments) {
  const RealtimeArm::Options options = options_of(arguments);
  std::optional<BodyReport> report;
  if (!arguments.body_report.empty()) {
    report.emplace(arguments.body_report, *options.arm.scene);
  }
  RealtimeArm realtime(load_robot_description(arguments.urdf, arguments.config), options);
  SimulatedArm& arm = realtime.arm();
  if (arguments.lose > 0.0) {
    Adversary({.seed = arguments.seed,
               .to_motors = {.lose = arguments.lose},
               .to_host = {.lose = arguments.lose}})
        .attach(realtime.bus());
  }
  stop_on_signals();
  print_ready(arguments, arm);
  std::optional<ProgressDisplay> display;
  std::optional<SimulatedHand> hand;
  if (arguments.show) {
    display.emplace(arm);
  }
  if (arguments.hand) {
    hand.emplace(arm, *arguments.hand);
  }
  realtime.run(stop_requested, [&] {
    const std::string event = hand ? hand->update() : "";
    if (display) {
      display->update(event);
    }
    if (report) {
      report->update(arm);
    }
  });
  if (display) {
    std::printf("ended; %llu ms of the arm's time were skipped because the machine was late\n",
                static_cast<unsigned long long>(realtime.skipped_ms()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const SimulatedArmArguments arguments = parse_arguments({argv + 1, argv + argc});
    if (arguments.help) {
      std::puts(kSimulatedArmUsage);
    } else {
      run(arguments);
    }
    return 0;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "kelvara-simulated-arm: %s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kelvara-simulated-arm: %s\n", error.what());
    return 1;
  }
}
