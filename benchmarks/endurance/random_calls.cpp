#include "benchmarks/endurance/random_calls.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

void require_finite(bool finite) {
  if (!finite) {
    throw std::logic_error("a query returned NaN or infinity");
  }
}

}  // namespace

std::vector<double> RandomCalls::joints(double reach) {
  std::vector<double> values(6);
  std::generate(values.begin(), values.end(), [&] { return between(-reach, reach); });
  return values;
}

/// Mostly ordinary, sometimes extreme.
double RandomCalls::number() {
  switch (below(60)) {
    case 0:
      return std::nan("");
    case 1:
      return HUGE_VAL;
    case 2:
      return -1e300;
    case 3:
      return 0.0;
    default:
      return between(-0.2, 1.0);
  }
}

std::vector<double> RandomCalls::numbers() {
  std::vector<double> values(below(60) == 0 ? 5 : 6);
  std::generate(values.begin(), values.end(), [this] { return number(); });
  return values;
}

void RandomCalls::attempt(const std::function<void()>& action) {
  ++calls_;
  try {
    action();
  } catch (const std::invalid_argument&) {
    ++refused_;
  } catch (const std::length_error&) {
    ++refused_;
  } catch (const std::runtime_error&) {  // stopped, or no feedback yet
    ++refused_;
  }
}

void RandomCalls::call(ArmController& arm) {
  attempt([&] {
    switch (below(7)) {
      case 0:
      case 1:
        return move(arm);
      case 6:
        return move_planned(arm);
      case 2:
        return move_tool(arm);
      case 3:
        return move_gripper(arm);
      case 4:
        return call_invalid(arm);
      default:
        return query(arm);
    }
  });
}

void RandomCalls::call_without_moving(ArmController& arm) {
  attempt([&] { below(2) == 0 ? call_invalid(arm) : query(arm); });
}

void RandomCalls::move(ArmController& arm) {
  switch (below(7)) {
    case 0:
      return arm.set_joint(numbers(), number());
    case 1:
      return arm.set_joint_raw(numbers(), numbers());
    case 2:
      return arm.move_joint_waypoints({numbers(), numbers()}, number(), 0.0, 400.0);
    case 3:
      return arm.move_joint_waypoints({numbers()}, 0.0, between(0.05, 1.1), 400.0);
    case 4:
      return arm.identify_gravity_compensation();
    case 5:
      return arm.identify_gravity_compensation_kdl();
    default: {
      const std::lock_guard<std::mutex> lock(serialised_);
      arm.recover();
    }
  }
}

void RandomCalls::move_planned(ArmController& arm) {
  std::array<double, 6> target{};
  std::generate(target.begin(), target.end(), [this] { return number(); });
  const kelvara::MoveOptions options{below(2) == 0 ? 1.0 : number(), 0.0};
  kelvara::Pose pose = arm.commanded_pose();
  pose.position[below(3)] += 0.1 * number();
  switch (below(8)) {
    case 0:
    case 1:
      return static_cast<void>(arm.move_joint(target, options));
    case 2:
      return static_cast<void>(arm.move_linear(pose, options));
    case 3:
      return static_cast<void>(arm.move_arc(arm.pose(), pose, options));
    case 4:
      return arm.set_speed_override(number());
    case 5:
      return arm.follow(target, number());
    case 6:
      return static_cast<void>(
          arm.execute(arm.planner(1.0).plan_joint(arm.state().q_command, target)));
    default:
      return static_cast<void>(arm.stop().wait_for(0.1 * number()));
  }
}

void RandomCalls::move_tool(ArmController& arm) {
  if (below(2) == 0) {
    return arm.set_end_effector_pose({number(), number(), number()}, {0, 0, number()}, number());
  }
  const std::lock_guard<std::mutex> lock(serialised_);
  arm.set_end_effector_pose_raw({0.5, 0.1 * number(), 0.3}, {0, 0, 0.1 * number()});
}

void RandomCalls::move_gripper(ArmController& arm) {
  switch (below(6)) {
    case 0:
      return arm.openGripper();
    case 1:
      return arm.closeGripper();
    case 2:
      return arm.setGripperPosition(number());
    case 3:
      return arm.setGripperPosition_raw(number());
    case 4:
      return arm.setGripperDistance(0.1 * number());
    default:
      return arm.setGripperDistance(0.1 * number(), 20.0 * number(), number());
  }
}

void RandomCalls::query(ArmController& arm) {
  switch (below(6)) {
    case 0:
      return require_finite(arm.get_joint().allFinite() && arm.get_joint_torques().allFinite());
    case 1:
      return require_finite(arm.get_joint_velocities().allFinite());
    case 2:
      return require_finite(std::isfinite(arm.get_end_effector_pose()[0]));
    case 3:
      return require_finite(std::isfinite(arm.get_gripper_position() + arm.get_gripper_distance()));
    case 4:
      return static_cast<void>(arm.solve_ik({number(), 0.1, 0.3}, {0, 0, number()}, {}));
    default: {
      const kelvara::ArmState state = arm.state();
      return require_finite(std::isfinite(state.q[0] + state.q_command[5] + state.tau_command[1]));
    }
  }
}

void RandomCalls::call_invalid(ArmController& arm) {
  std::vector<double> broken = joints(0.5);
  broken[static_cast<std::size_t>(below(6))] = std::nan("");
  switch (below(5)) {
    case 0:
      arm.set_joint(broken, 1.0);
      break;
    case 1:
      arm.set_joint(joints(0.5), -1.0);
      break;
    case 2:
      arm.set_joint_raw(broken, joints(0.5));
      break;
    case 3:
      arm.move_joint_waypoints({}, 1.0, 0.0, 400.0);
      break;
    default:
      arm.move_joint_waypoints({broken}, 1.0, 0.0, 400.0);
  }
  throw std::domain_error("an invalid argument was accepted");
}
