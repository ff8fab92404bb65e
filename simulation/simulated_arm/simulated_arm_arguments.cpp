#include "simulation/simulated_arm/simulated_arm_arguments.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <sstream>

#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

constexpr double kStartRange = kMotors[0].model.pmax;  // rad, the range of the motors' feedback
constexpr double kHandRange = 1.0;                     // m
constexpr double kMaxLoad = 5.0;                       // kg

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

double parse_load(const std::string& text) {
  const double load = parse_number(text, "--load");
  if (!(load >= 0.0 && load <= kMaxLoad)) {
    throw UsageError("--load must be 0 to 5 kg");
  }
  return load;
}

double parse_share(const std::string& text) {
  const double share = parse_number(text, "--lose");
  if (!(share >= 0.0 && share <= 1.0)) {
    throw UsageError("--lose must be 0 to 1");
  }
  return share;
}

unsigned parse_seed(const std::string& text) {
  const double seed = parse_number(text, "--seed");
  if (!(seed >= 0.0 && seed <= 1e9 && seed == std::floor(seed))) {
    throw UsageError("--seed must be a whole number, 0 to 1e9");
  }
  return static_cast<unsigned>(seed);
}

using Arguments = SimulatedArmArguments;

const std::map<std::string, void (*)(Arguments&)> kFlags{
    {"--fd", [](Arguments& arguments) { arguments.arm.fd = true; }},
    {"--no-gripper", [](Arguments& arguments) { arguments.arm.arm.with_gripper = false; }},
    {"--show", [](Arguments& arguments) { arguments.show = true; }},
    {"--wait-for-commands",
     [](Arguments& arguments) { arguments.arm.silence = RealtimeArm::Silence::kTimeStops; }},
    {"--help", [](Arguments& arguments) { arguments.help = true; }},
};

const std::map<std::string, void (*)(Arguments&, const std::string&)> kOptions{
    {"--interface",
     [](Arguments& arguments, const std::string& value) { arguments.arm.interface = value; }},
    {"--start",
     [](Arguments& arguments, const std::string& value) {
       arguments.arm.arm.start = parse_numbers<6>(value, "--start", kStartRange);
     }},
    {"--load", [](Arguments& arguments,
                  const std::string& value) { arguments.arm.arm.load_kg = parse_load(value); }},
    {"--hand",
     [](Arguments& arguments, const std::string& value) {
       arguments.hand = parse_numbers<3>(value, "--hand", kHandRange);
     }},
    {"--lose",
     [](Arguments& arguments, const std::string& value) { arguments.lose = parse_share(value); }},
    {"--seed",
     [](Arguments& arguments, const std::string& value) { arguments.seed = parse_seed(value); }},
    {"--urdf", [](Arguments& arguments, const std::string& value) { arguments.urdf = value; }},
    {"--scene", [](Arguments& arguments, const std::string& value) { arguments.scene = value; }},
    {"--report-bodies",
     [](Arguments& arguments, const std::string& value) { arguments.body_report = value; }},
    {"--config", [](Arguments& arguments, const std::string& value) { arguments.config = value; }},
};

}  // namespace

const char* const kSimulatedArmUsage =
    "usage: kelvara-simulated-arm --interface NAME [--fd] [--no-gripper] [--start Q1,...,Q6]\n"
    "                             [--load KG] [--hand DX,DY,DZ] [--show]\n"
    "                             [--lose SHARE [--seed N]] [--wait-for-commands]\n"
    "                             [--scene FILE [--report-bodies FILE]]\n"
    "                             [--urdf FILE] [--config FILE]\n"
    "  --interface NAME   SocketCAN interface, real or virtual\n"
    "  --fd               answer with CAN-FD frames\n"
    "  --no-gripper       six motors instead of seven\n"
    "  --start Q1,...,Q6  joint angles at rest before the motors are enabled, rad\n"
    "  --load KG          mass held in the gripper, 0 to 5\n"
    "  --hand DX,DY,DZ    moves the floating arm's tool by this distance (m) and releases it\n"
    "  --lose SHARE       loses this share (0 to 1) of the frames, in both directions\n"
    "  --seed N           chooses other frames to lose\n"
    "  --wait-for-commands  the arm's time stops while no frame arrives, for a slow machine\n"
    "  --scene FILE       a table and bodies, which the arm collides with and the jaws hold\n"
    "  --report-bodies FILE  write where the scene's bodies are, as they move\n"
    "  --show             print what the arm does\n"
    "  --urdf FILE, --config FILE  another robot description";

SimulatedArmArguments parse_arguments(const std::vector<std::string>& words) {
  SimulatedArmArguments arguments;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const auto flag = kFlags.find(words[i]);
    const auto option = kOptions.find(words[i]);
    if (flag != kFlags.end()) {
      flag->second(arguments);
    } else if (option == kOptions.end()) {
      throw UsageError("unknown option '" + words[i] + "'; --help lists them");
    } else if (i + 1 == words.size()) {
      throw UsageError(option->first + " needs a value");
    } else {
      option->second(arguments, words[++i]);
    }
  }
  if (arguments.arm.interface.empty() && !arguments.help) {
    throw UsageError("--interface NAME is missing; --help lists the options");
  }
  if (!arguments.body_report.empty() && arguments.scene.empty()) {
    throw UsageError("--report-bodies needs a --scene");
  }
  return arguments;
}

}  // namespace kelvara::simulation
