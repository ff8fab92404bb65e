// kelvara-simulated-arm: the arm without the arm, on any SocketCAN interface.

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulation/simulated_arm/progress_display.hpp"
#include "simulation/simulated_arm/simulated_arm.hpp"
#include "simulation/simulated_arm/simulated_arm_bus.hpp"
#include "simulation/simulated_arm/simulated_hand.hpp"

namespace {

using namespace kelvara::simulation;  // NOLINT(google-build-using-namespace): one program

constexpr double kStartRange = 12.5;  // rad, what the motors can report
constexpr double kHandRange = 1.0;    // m

constexpr const char* kUsage =
    "usage: kelvara-simulated-arm --interface NAME [--fd] [--no-gripper] [--start Q1,...,Q6]\n"
    "                             [--load KG] [--hand DX,DY,DZ] [--show]\n"
    "                             [--urdf FILE] [--config FILE]\n"
    "  --interface NAME   SocketCAN interface, real or virtual\n"
    "  --fd               answer with CAN-FD frames\n"
    "  --no-gripper       six motors instead of seven\n"
    "  --start Q1,...,Q6  joint angles at rest before the motors are enabled, rad\n"
    "  --load KG          mass held in the gripper, 0 to 5\n"
    "  --hand DX,DY,DZ    a hand that carries the floating arm's tool so far, m, and lets go\n"
    "  --show             print what the arm does\n"
    "  --urdf FILE, --config FILE  another robot description";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Arguments {
  std::string interface;
  std::string urdf;
  std::string config;
  bool fd = false;
  bool show = false;
  bool help = false;
  std::optional<Triple> hand;
  SimulatedArm::Options arm;
};

std::atomic<bool> stop_requested{false};

double parse_number(const std::string& text, const std::string& option) {
  std::istringstream stream(text);
  double value = 0.0;
  if (!(stream >> value) || !stream.eof()) {
    throw UsageError(option + ": '" + text + "' is not a number");
  }
  return value;
}

/// Numbers separated by commas, each within [-range, range].
template <std::size_t kCount>
std::array<double, kCount> parse_numbers(const std::string& text, const std::string& option,
                                         double range) {
  std::vector<double> values;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) {
    values.push_back(parse_number(part, option));
  }
  std::array<double, kCount> numbers{};
  std::ostringstream problem;
  if (values.size() != kCount || text.back() == ',') {
    problem << option << " needs " << kCount << " numbers";
    throw UsageError(problem.str());
  }
  std::copy(values.begin(), values.end(), numbers.begin());
  if (!std::all_of(values.begin(), values.end(),
                   [range](double value) { return std::abs(value) <= range; })) {
    problem << option << ": numbers must be within " << -range << " to " << range;
    throw UsageError(problem.str());
  }
  return numbers;
}

Arguments parse_arguments(const std::vector<std::string>& words) {
  Arguments arguments;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& option = words[i];
    const auto value = [&]() -> const std::string& {
      if (i + 1 == words.size()) {
        throw UsageError(option + " needs a value");
      }
      return words[++i];
    };
    if (option == "--interface") {
      arguments.interface = value();
    } else if (option == "--fd") {
      arguments.fd = true;
    } else if (option == "--no-gripper") {
      arguments.arm.with_gripper = false;
    } else if (option == "--start") {
      arguments.arm.start = parse_numbers<6>(value(), option, kStartRange);
    } else if (option == "--load") {
      arguments.arm.load_kg = parse_number(value(), "--load");
      if (!(arguments.arm.load_kg >= 0.0 && arguments.arm.load_kg <= 5.0)) {
        throw UsageError("--load must be 0 to 5 kg");
      }
    } else if (option == "--hand") {
      arguments.hand = parse_numbers<3>(value(), option, kHandRange);
    } else if (option == "--show") {
      arguments.show = true;
    } else if (option == "--urdf") {
      arguments.urdf = value();
    } else if (option == "--config") {
      arguments.config = value();
    } else if (option == "--help") {
      arguments.help = true;
    } else {
      throw UsageError("unknown option '" + option + "'; --help lists them");
    }
  }
  if (arguments.interface.empty() && !arguments.help) {
    throw UsageError("--interface NAME is missing; --help lists the options");
  }
  return arguments;
}

/// The robot description beside the program, or in the current directory.
std::string find_description(const std::string& chosen, const char* name) {
  if (!chosen.empty()) {
    return chosen;
  }
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder : {program / "../config", std::filesystem::path("config")}) {
    if (std::filesystem::exists(folder / name)) {
      return (folder / name).string();
    }
  }
  throw std::runtime_error(std::string("cannot find ") + name + "; name it with --urdf, --config");
}

void run(const Arguments& arguments) {
  const RobotDescription description =
      load_robot_description(find_description(arguments.urdf, "BrimloV2.SLDASM.urdf"),
                             find_description(arguments.config, "robot_kinematics.yaml"));
  SimulatedArm arm(description, arguments.arm);
  SimulatedArmBus bus(arm, arguments.interface, arguments.fd);

  struct sigaction action {};
  action.sa_handler = [](int) { stop_requested = true; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  std::printf("ready: simulated arm on %s, %zu motors, %s\n", arguments.interface.c_str(),
              arm.motor_count(), arguments.fd ? "CAN-FD" : "classic CAN");
  std::fflush(stdout);
  std::optional<ProgressDisplay> display;
  std::optional<SimulatedHand> hand;
  if (arguments.show) {
    display.emplace(arm);
  }
  if (arguments.hand) {
    hand.emplace(arm, *arguments.hand);
  }
  bus.run(stop_requested, [&] {
    const std::string news = hand ? hand->update() : "";
    if (display) {
      display->update(news);
    }
  });
  if (display) {
    std::printf("ended; %llu ms of the arm's time were given up because the machine was late\n",
                static_cast<unsigned long long>(bus.slipped_ms()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Arguments arguments = parse_arguments({argv + 1, argv + argc});
    if (arguments.help) {
      std::puts(kUsage);
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
