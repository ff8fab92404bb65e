#include <algorithm>
#include <cmath>
#include <ctime>
#include <stdexcept>
#include <variant>
#include <vector>

#include "controller/controller_setup.hpp"
#include "controller/motion_starter.hpp"
#include "kelvara/motion/plan.hpp"

#include "description/finite.hpp"
#include "description/timing.hpp"
#include "fuzz/calls.hpp"

namespace fuzz {
namespace {

using namespace kelvara::controller;
using namespace kelvara::motion;
using kelvara::JointArray;
using kelvara::kJointCount;
using kelvara::Plan;
using kelvara::PlanSample;
using kelvara::description::all_finite;
using kelvara::description::kControlPeriod;
using kelvara::description::kControlPeriodS;

// What a plan made by hand may deviate from its own velocities.
constexpr double kPositionSlack = 1e-3;  // rad
constexpr double kVelocitySlack = 0.1;   // rad/s

const ControllerSetup& setup() {
  static const ControllerSetup instance = load_setup({}, model());
  return instance;
}

/// The cycles of a controller on an arm that follows exactly, without threads and bus. Whatever
/// sleeps to wait for cycles runs them.
class Loop {
 public:
  explicit Loop(const JointArray& start) {
    instant_.standing.q = start;
    instant_.now = TimePoint(kControlPeriod);
    cycle();
    current = this;
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;
  ~Loop() { current = nullptr; }

  void cycle() {
    const PlanSample before = instant_.standing;
    instant_.now += kControlPeriod;
    instant_.time_s = std::chrono::duration<double>(instant_.now.time_since_epoch()).count();
    instant_.speed_override = speed_override;
    instant_.measured = before.q;
    const CommandSnapshot snapshot = slot.snapshot(instant_);
    instant_.clock = snapshot.clock;
    const SetPoint point =
        evaluate(snapshot.command, instant_, setup().limits, Approach::kReference);
    check(point, before);
    if (point.end) {
      slot.complete(snapshot.number, {.target_q = *point.end, .is_hold = point.full_dynamics});
    }
    instant_.reference = point.reference;
    instant_.clock = point.clock;
    instant_.standing = {point.q, point.dq, point.model_ddq};
    state.publish_standing(
        {snapshot.number, instant_.standing, point.clock, point.moving, point.torque_only, true});
  }

  double time_s() const { return instant_.time_s; }

  static inline Loop* current = nullptr;
  double speed_override = 1.0;
  CommandSlot slot;
  StateBuffer state;
  MotionStarter starter{setup(), model(), slot, state};

 private:
  static void check(const SetPoint& point, const PlanSample& before) {
    const SetPointLimits& limits = setup().limits;
    require(all_finite(point.q) && all_finite(point.dq) && all_finite(point.model_ddq),
            "a command is finite");
    for (std::size_t j = 0; j < kJointCount; ++j) {
      const double fastest = limits.velocity[j] + kVelocitySlack;
      require(std::abs(point.dq[j]) <= fastest, "a command keeps the velocity limits");
      require(std::abs(point.q[j] - before.q[j]) <= fastest * kControlPeriodS + kPositionSlack,
              "a command does not jump");
      require(point.q[j] >= limits.joints.urdf_lower[j] - kPositionSlack &&
                  point.q[j] <= limits.joints.urdf_upper[j] + kPositionSlack,
              "a command keeps the joint limits");
    }
  }

  Instant instant_;
};

/// A motion of one joint from rest to rest, now and then with any number in it.
std::vector<PlanSample> take_samples(Input& input, const JointArray& start) {
  const std::size_t periods = 1 + input.choose(200);
  const double duration = static_cast<double>(periods) * Plan::kSamplePeriodS;
  const std::size_t joint = input.choose(kJointCount);
  const double way = input.everyday_number();
  std::vector<PlanSample> samples(periods + 1, PlanSample{start, {}, {}});
  for (std::size_t k = 0; k <= periods; ++k) {
    const double s = static_cast<double>(k) / static_cast<double>(periods);
    samples[k].q[joint] += way * s * s * s * (10.0 + s * (6.0 * s - 15.0));
    samples[k].dq[joint] = way * 30.0 * s * s * (1.0 - s) * (1.0 - s) / duration;
    samples[k].ddq[joint] = way * 60.0 * s * (1.0 - s) * (1.0 - 2.0 * s) / (duration * duration);
  }
  for (unsigned left = input.choose(3); left > 0; --left) {
    PlanSample& sample = samples[input.take<std::uint8_t>() % samples.size()];
    JointArray& values = std::array{&sample.q, &sample.dq, &sample.ddq}[input.choose(3)][0];
    double& value = values[input.choose(kJointCount)];
    value = input.flip() ? input.number() : value + 1e-3 * input.everyday_number();
  }
  return samples;
}

/// Executes a plan made by hand; one that is refused changes nothing.
void execute(Input& input, Loop& loop) {
  const auto samples = take_samples(input, loop.state.standing().state.q);
  const double periods = static_cast<double>(samples.size()) - 1.0;
  const double duration = input.choose(8) == 0 ? input.number() : periods * Plan::kSamplePeriodS;
  const std::uint64_t before = loop.slot.number();
  try {
    loop.starter.execute(Plan(samples, duration, {}));
  } catch (const kelvara::MotionError&) {
    require(loop.slot.number() == before, "a plan that is refused changes nothing");
  } catch (const std::invalid_argument&) {
    require(loop.slot.number() == before, "a plan that is refused changes nothing");
  }
}

/// Moves from whatever the arm does, while the cycles go on.
void move(Input& input, Loop& loop) {
  const auto planner = loop.starter.planner({0.25 + 0.25 * input.choose(4), 0.0});
  const JointArray target = take_configuration(input);
  const bool is_line = input.choose(4) == 0;
  const unsigned cycles = input.choose(10);
  try {
    loop.starter.move(
        is_line ? MotionStarter::From::kRest : MotionStarter::From::kMotion,
        [&](const PlanSample& start) {
          for (unsigned k = 0; k < cycles; ++k) {
            loop.cycle();
          }
          return is_line ? planner.plan_linear(start.q, {model().pose(target)})
                         : planner.plan_joint(start, target);
        },
        [](const Plan&) {});
  } catch (const kelvara::MotionError&) {
    return;  // the line cannot be done
  }
}

void follow(Input& input, Loop& loop, double& stamp_s) {
  stamp_s = input.choose(8) == 0 ? input.number() : stamp_s + 1e-2 * input.everyday_number();
  StampedTarget target{stamp_s, loop.time_s(), take_configuration(input)};
  if (!std::isfinite(stamp_s)) {
    return;  // the controller refuses it
  }
  Follow stream;
  stream.velocity = setup().motion.velocity;
  stream.catch_up = setup().joint_trajectory.default_speed_percent;
  stream.limits = {setup().motion.acceleration, setup().motion.jerk};
  loop.slot.follow(stream, target);
}

/// Whatever the arm does, a stop brings it to rest.
void check_stop(Loop& loop) {
  constexpr int kLongest = 4000;  // cycles
  const kelvara::MotionHandle stop = loop.starter.stop();
  for (int k = 0; k < kLongest && !stop.is_done(); ++k) {
    loop.cycle();
  }
  require(stop.is_done(), "a stop ends");
  require(loop.state.standing().state.dq == JointArray{}, "a stopped arm rests");
}

}  // namespace

extern "C" int __real_nanosleep(const timespec* time, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* time, timespec* left);

extern "C" int __wrap_nanosleep(const timespec* time, timespec* left) {
  if (Loop::current == nullptr) {
    return __real_nanosleep(time, left);
  }
  Loop::current->cycle();
  return 0;
}

void command_motions(Input& input) {
  Loop loop(take_configuration(input));
  double stamp_s = 0.0;
  for (int calls = 0; calls < 12 && !input.empty(); ++calls) {
    switch (input.choose(5)) {
      case 0:
        execute(input, loop);
        break;
      case 1:
        move(input, loop);
        break;
      case 2:
        follow(input, loop, stamp_s);
        break;
      case 3:
        loop.speed_override = input.choose(5) / 4.0;
        break;
      default:
        loop.starter.stop();
    }
    for (unsigned left = 1 + input.choose(60); left > 0; --left) {
      loop.cycle();
    }
  }
  check_stop(loop);
}

}  // namespace fuzz
