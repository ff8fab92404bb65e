// Calls with any numbers: what comes of them is finite and keeps the limits, or is one clear error.

#include <cmath>
#include <memory>

#include <Eigen/Core>

#include "controller/finite.hpp"
#include "controller/pose_stream.hpp"
#include "controller/setpoint.hpp"
#include "controller/waypoint_planner.hpp"
#include "hardware/jaw_geometry.hpp"
#include "kelvara/arm_controller.hpp"
#include "kelvara/kinematics/kinematics.hpp"

#include "fuzz/input.hpp"

namespace {

using namespace kelvara::controller;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

constexpr double kMaxSamples = 20'000.0;  // more would only cost time
constexpr double kSmallest = 1e-300;      // below it numbers lose their digits
constexpr double kPi = 3.14159265358979323846;

RobotKinematics& model() {
  static RobotKinematics instance;
  return instance;
}

/// The arm's own, now and then without those of some joint.
JointLimits take_joint_limits(Input& input) {
  JointLimits limits;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    limits.lower[j] = model().joint_lower()[j];
    limits.upper[j] = model().joint_upper()[j];
    limits.has_limit[j] = model().joint_has_limits()[j];
  }
  if (input.flip()) {
    limits.has_limit = input.take<std::uint8_t>();
  }
  return limits;
}

/// As a caller may give it: finite, put inside the limits.
JointArray take_target(Input& input, const JointLimits& limits) {
  JointArray target =
      input.flip() ? input.numbers<kJointCount>() : input.everyday_numbers<kJointCount>();
  for (std::size_t j = 0; j < kJointCount; ++j) {
    target[j] = std::isfinite(target[j]) && limits.has_limit[j]
                    ? limits.clamp_joint(j, target[j])
                    : std::fmod(std::isfinite(target[j]) ? target[j] : 0.0, 1e6);
  }
  return target;
}

// ---- Set-points -----------------------------------------------------------

void check_setpoint(const SetPoint& point, const SetPointLimits& limits,
                    const JointArray& measured) {
  for (const JointArray& values :
       {point.q, point.dq, point.velocity_limit, point.model_q, point.model_dq, point.model_ddq}) {
    require(all_finite(values), "a set-point is finite");
  }
  for (std::size_t j = 0; j < kJointCount; ++j) {
    // Without a motion to make, the arm is held where it is, even beyond a limit.
    require(point.torque_only || !limits.joints.has_limit[j] || point.q[j] == measured[j] ||
                (point.q[j] >= limits.joints.lower[j] && point.q[j] <= limits.joints.upper[j]),
            "a set-point keeps the joint limits");
    require(point.velocity_limit[j] >= 0.0 && point.velocity_limit[j] <= limits.velocity[j],
            "a set-point keeps the velocity limits");
  }
}

TimePoint take_time(Input& input) {
  constexpr std::int64_t kCentury = 3'000'000'000'000'000'000;
  const std::int64_t time = input.flip() ? input.take<std::int64_t>() % kCentury
                                         : input.take<std::uint16_t>() * std::int64_t{100'000};
  return TimePoint(std::chrono::nanoseconds(time));
}

/// Cycles of one command after another, with a reference that lives through them.
void run_setpoints(Input& input, const WaypointSamples& samples = nullptr, double dt_s = 0.0025) {
  SetPointLimits limits{take_joint_limits(input), kJointVelocityLimits, {}};
  for (double& acceleration : limits.acceleration) {
    const double value = input.number();
    acceleration = value >= 0.0 ? value : 15.0;  // others do not pass the configuration
  }
  MitReference reference;
  for (int cycle = 0; cycle < 8 && !input.empty(); ++cycle) {
    CommandSlot command;
    command.command_type = samples && input.flip() ? kWaypointTrajectory : input.choose(8);
    command.target_q = take_target(input, limits.joints);
    command.target_dq = take_target(input, {});
    command.traj_start_q = input.everyday_numbers<kJointCount>();
    command.traj_duration_s = input.number();
    command.waypoints = samples;
    command.waypoint_dt_s = dt_s;
    command.traj_start_time = command.waypoints_start_time = take_time(input);
    const auto mode = input.flip() ? MIT_MODE : POS_VEL_MODE;
    const JointArray measured = input.everyday_numbers<kJointCount>();
    for (TimePoint now = take_time(input); now < TimePoint::max() && input.flip();
         now = take_time(input)) {
      check_setpoint(evaluate_setpoint(command, measured, now, limits, mode, reference), limits,
                     measured);
    }
  }
}

// ---- Waypoints ------------------------------------------------------------

/// More samples than a plan can come to; the planner's own numbers are not trusted for that.
double bound_samples(const std::vector<JointArray>& points, const JointTrajectoryConfig& limits,
                     const WaypointOptions& options) {
  double way = 0.0;
  for (std::size_t i = 1; i < points.size(); ++i) {
    for (std::size_t j = 0; j < kJointCount; ++j) {
      way += std::abs(points[i][j] - points[i - 1][j]);
    }
  }
  const auto at_least = [way](double limit) { return limit > 0.0 ? way / limit : 0.0; };
  double time = 0.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    time += at_least(limits.max_vel_limits[j] * options.speed) +
            std::sqrt(at_least(limits.max_acc_limits[j])) +
            std::cbrt(at_least(limits.max_jerk_limits[j]));
  }
  return 20.0 * time * options.control_hz * static_cast<double>(points.size());
}

void plan_and_play(Input& input) {
  const JointLimits joints = take_joint_limits(input);
  std::vector<JointArray> points{input.everyday_numbers<kJointCount>()};
  for (unsigned left = 1 + input.choose(6); left > 0; --left) {
    points.push_back(take_target(input, joints));
  }
  JointTrajectoryConfig limits{input.numbers<kJointCount>(), input.numbers<kJointCount>(),
                               input.numbers<kJointCount>()};
  WaypointOptions options;
  options.control_hz = input.flip() ? 400.0 : input.number();
  options.time_s = input.flip() ? input.number() : 0.0;
  options.speed = std::abs(input.number());
  if (options.control_hz <= 0.0 || options.time_s < 0.0 || !(options.speed > 0.0) ||
      options.speed > 1.0) {
    return;  // refused before the planner
  }
  const double asked = options.time_s * options.control_hz;
  if (!(bound_samples(points, limits, options) < kMaxSamples) ||
      (asked > kMaxSamples && asked < 1e15)) {
    return;
  }
  WaypointPlan plan;
  try {
    plan = plan_waypoints(points.front(), {points.begin() + 1, points.end()}, limits, options);
  } catch (const std::runtime_error&) {
    return;
  } catch (const std::length_error&) {
    return;
  }
  for (const WaypointTrajectorySample& sample : plan.samples) {
    require(all_finite(sample.q) && all_finite(sample.dq) && all_finite(sample.ddq),
            "a plan is finite");
    for (std::size_t j = 0; j < kJointCount && plan.samples.size() > 1 && options.time_s == 0.0;
         ++j) {
      require(!(std::abs(sample.dq[j]) > 1.01 * options.speed * limits.max_vel_limits[j]) &&
                  !(std::abs(sample.ddq[j]) > 1.01 * limits.max_acc_limits[j]),
              "a plan keeps the limits");
    }
  }
  require(plan.samples.front().q == points.front(), "a plan begins at the start");
  for (std::size_t j = 0; j < kJointCount; ++j) {
    require(std::abs(plan.samples.back().q[j] - points.back()[j]) <=
                1e-8 + 1e-12 * std::abs(points.back()[j]) * static_cast<double>(points.size()),
            "a plan ends at the last point");
  }
  run_setpoints(input, std::make_shared<const std::vector<WaypointTrajectorySample>>(plan.samples),
                1.0 / options.control_hz);
}

// ---- Sampled moves --------------------------------------------------------

void sample_septic(Input& input) {
  const auto take_joints = [&] {
    std::vector<double> q(input.choose(8));
    std::generate(q.begin(), q.end(), [&] { return input.number(); });
    return q;
  };
  const std::vector<double> start = take_joints();
  const std::vector<double> end = input.flip() ? take_joints() : start;
  const double tf = input.number();
  const double freq = input.number();
  if (tf / (1.0 / freq) > kMaxSamples) {
    return;
  }
  SeptupleTrajectory move;
  try {
    move = ArmController::generate_septuple_trajectory(start, end, tf, freq);
  } catch (const std::invalid_argument&) {
    return;
  } catch (const std::runtime_error&) {
    return;
  } catch (const std::length_error&) {
    return;
  }
  require(all_finite(move.time), "the times are finite");
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double q0 = start[start.size() == 1 ? 0 : j];
    const double q1 = end[end.size() == 1 ? 0 : j];
    if (!(std::abs(q0) < 1e6) || !(std::abs(q1) < 1e6)) {
      continue;
    }
    const double slack =
        1e-6 * std::abs(q1 - q0) + 1e-12 * (std::abs(q0) + std::abs(q1)) + kSmallest;
    for (const double q : move.joints[j][0]) {
      require(q >= std::min(q0, q1) - slack && q <= std::max(q0, q1) + slack,
              "a move lies between its ends");
    }
    require(all_finite(move.joints[j][1]) && all_finite(move.joints[j][2]),
            "a move's rates are finite");
  }
}

// ---- Kinematics -----------------------------------------------------------

void solve_by_jacobian(Input& input) {
  const auto position = input.numbers<3>();
  const auto euler = input.numbers<3>();
  const auto q = input.numbers<kJointCount>();
  const Eigen::VectorXd seed = Eigen::Map<const Eigen::VectorXd>(q.data(), kJointCount);
  const double threshold = input.number();
  const int iterations = static_cast<int>(input.choose(30));
  const auto solution = model().inverse_kinematics_jacobian(
      Eigen::Vector3d(position.data()), Eigen::Vector3d(euler.data()), seed, threshold, threshold,
      iterations, input.number());
  require(!solution.success || solution.q.allFinite(), "a solution is a number");
  if (solution.q.size() == seed.size() && iterations > 0 && solution.q != seed && seed == seed) {
    require(solution.q.cwiseAbs().maxCoeff() <= kPi, "angles lie within half a turn");
  }
  if (solution.success && threshold < 1.0) {
    const Eigen::Vector3d reached = model().forward_kinematics(solution.q).topRightCorner<3, 1>();
    require((reached - Eigen::Vector3d(position.data())).norm() < threshold + 1e-9,
            "a solution reaches the target");
  }
}

void solve_by_kdl(Input& input) {
  const auto position = input.numbers<3>();
  const auto euler = input.numbers<3>();
  const auto seed = input.numbers<kJointCount>();
  std::vector<double> solution;
  if (!model().solve_ik_kdl({position.begin(), position.end()}, {euler.begin(), euler.end()},
                            {seed.begin(), seed.end()}, solution)) {
    require(solution.empty(), "a failure leaves the result alone");
    return;
  }
  for (std::size_t j = 0; j < kJointCount; ++j) {
    require(solution[j] >= model().joint_lower()[j] && solution[j] <= model().joint_upper()[j],
            "a solution keeps the joint limits");
  }
  const auto dq = input.everyday_numbers<kJointCount>();
  require(all_finite(model().dynamic_compensation_kdl(solution, {dq.begin(), dq.end()}, solution)),
          "torques are finite");
}

/// Finite solutions at any times, as the solver gives them.
void stream_poses(Input& input) {
  PoseStream stream;
  while (!input.empty()) {
    const JointArray q = input.everyday_numbers<kJointCount>();
    for (const double velocity : stream.step(q, take_time(input))) {
      require(std::abs(velocity) <= 20.9, "a streamed velocity keeps its limit");
    }
  }
}

void turn_jaws(Input& input) {
  using namespace kelvara::can::socket;
  const double number = input.number();
  require(!is_jaw_distance_in_range(number) || std::isfinite(jaw_angle_from_distance(number)),
          "a jaw angle is finite");
  require(!std::isfinite(number) || std::isfinite(jaw_distance_from_angle(number)),
          "a jaw distance is finite");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  silence_reports();
  model();  // from the current directory's config
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  constexpr std::array kCalls{plan_and_play, sample_septic, solve_by_jacobian,
                              solve_by_kdl,  stream_poses,  turn_jaws};
  const unsigned call = input.choose(kCalls.size() + 1);
  if (call == kCalls.size()) {
    run_setpoints(input);
  } else {
    kCalls[call](input);
  }
  return 0;
}
