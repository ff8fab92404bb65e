// Shows a whole task: picks a cube of 5 cm up from the table, carries it 20 cm to the side with a
// stop halfway, and sets it down. With the library's collision component, plans are checked against
// the table, and a move through it is refused. Ends with status 0 only if all of this was done. The
// cube stands at x = 0.35 m, y = 0.10 m, its sides along the axes, as in
// simulation/scenes/table.yaml.
// Usage: pick_and_place INTERFACE
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include <kelvara/arm_controller.hpp>
#include <kelvara/kinematics/kinematics.hpp>
#include <kelvara/motion/plan_check.hpp>

#include "interrupt.hpp"
#ifdef KELVARA_EXAMPLE_HAS_COLLISION
#include <kelvara/collision/environment.hpp>
#endif

namespace {

using kelvara::MotionHandle;
using kelvara::MotionOutcome;
using kelvara::MoveOptions;
using kelvara::Pose;

constexpr double kCube = 0.05;             // m
constexpr double kAtCube = kCube / 2.0;    // m: height of the tool with the cube between the jaws
constexpr double kAbove = kAtCube + 0.10;  // m
constexpr double kTilt = 1.0;              // rad: the jaws point forward and down
constexpr MoveOptions kSlowly{0.3, 0.0};   // 30 % of the speed
constexpr MoveOptions kBriskly{0.6, 0.0};

Pose pick_at(double height) { return {{0.35, 0.10, height}, {0.0, kTilt, 0.0}}; }
Pose place_at(double height) { return {{0.35, -0.10, height}, {0.0, kTilt, 0.0}}; }

enum class Jaws { kEmpty, kCarryCube };

/// What plans are checked against: the table, and the cube while it is carried. Null without the
/// collision component.
std::shared_ptr<const kelvara::PlanCheck> surroundings([[maybe_unused]] const RobotKinematics& arm,
                                                       [[maybe_unused]] Jaws jaws) {
#ifdef KELVARA_EXAMPLE_HAS_COLLISION
  auto environment = std::make_shared<kelvara::Environment>(arm);
  environment->add_box("table", {1.6, 1.6, 0.1}, {{0.0, 0.0, -0.05}, {}});
  if (jaws == Jaws::kCarryCube) {
    environment->attach_box("cube", {kCube, kCube, kCube}, {{}, {0.0, -kTilt, 0.0}});
  }
  return environment;
#else
  return nullptr;
#endif
}

void require(bool condition, const std::string& problem) {
  if (!condition) {
    throw std::runtime_error(problem);
  }
}

class PickAndPlace {
 public:
  explicit PickAndPlace(const kelvara::ArmOptions& options)
      : arm_(options),
        model_(arm_.description_files().urdf_path, arm_.description_files().settings_path) {}

  void run() {
    arm_.set_environment(surroundings(model_, Jaws::kEmpty));
    arm_.openGripper();
    const auto ready = model_.solve_pose(pick_at(kAbove), arm_.state().q_command);
    finish("ready", arm_.move_joint(ready));
    try_the_table();
    pick();
    carry();
    place();
    finish("home", arm_.move_joint({}));
  }

 private:
  void finish(const std::string& step, const MotionHandle& motion) {
    const MotionOutcome outcome = interrupt::wait(arm_, motion);
    require(outcome == MotionOutcome::kDone,
            step + ": " + to_string(outcome) + " (" + to_string(arm_.state().reason) + ")");
    const auto at = arm_.pose().position;
    std::printf("%-9s tool at %6.3f, %6.3f, %6.3f m\n", step.c_str(), at[0], at[1], at[2]);
  }

  void try_the_table() {
    if (!surroundings(model_, Jaws::kEmpty)) {
      std::puts("built without the collision component: nothing keeps the arm from the table");
      return;
    }
    bool refused = false;
    try {
      arm_.move_linear(pick_at(-0.03), kSlowly);  // nothing moves when it throws
    } catch (const kelvara::MotionError& error) {
      std::printf("refused   %s\n", error.what());
      refused = error.code() == kelvara::MotionErrorCode::kCollision;
    }
    require(refused, "a move through the table was not refused as a collision");
  }

  void pick() {
    finish("down", arm_.move_linear(pick_at(kAtCube), kSlowly));
    arm_.closeGripper();
    interrupt::wait(arm_, 1.5);
    const double width = arm_.get_gripper_distance();
    std::printf("closed    on %.1f mm\n", 1000.0 * width);
    require(width > 0.8 * kCube && width < 1.2 * kCube, "the cube is not between the jaws");
    finish("lift", arm_.move_linear(pick_at(kAbove), kSlowly));
    arm_.set_environment(surroundings(model_, Jaws::kCarryCube));
  }

  void carry() {
    const MotionHandle carry = arm_.move_linear(place_at(kAbove), kBriskly);
    while (carry.progress() < 0.5 && !carry.is_done()) {
      interrupt::wait(arm_, 0.005);
    }
    finish("stopped", arm_.stop());  // on the line
    require(carry.wait() == MotionOutcome::kStopped, "the carry was not stopped");
    finish("carried", arm_.move_linear(place_at(kAbove), kBriskly));
  }

  void place() {
    arm_.set_environment(surroundings(model_, Jaws::kEmpty));  // the cube is to touch the table
    finish("set down", arm_.move_linear(place_at(kAtCube), kSlowly));
    arm_.openGripper();
    interrupt::wait(arm_, 1.5);
    finish("up", arm_.move_linear(place_at(kAbove), kSlowly));
  }

  ArmController arm_;
  RobotKinematics model_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: pick_and_place INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.with_gripper = true;
  options.velocity_scale = 0.25;  // no joint faster than 2.6 rad/s
  try {
    interrupt::catch_signals();
    PickAndPlace(options).run();
  } catch (const std::exception& error) {
    std::cerr << "pick_and_place: " << error.what() << '\n';
    return 1;
  }
}
