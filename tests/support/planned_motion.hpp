#pragma once

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "controller/motion_starter.hpp"
#include "support/closed_loop.hpp"

/// A pose from which every joint can move both ways.
inline constexpr kelvara::JointArray kReady{0.0, 0.8, -0.9, 0.3, 0.4, 0.2};

/// Watches the commands of one cycle after another.
class SmoothnessWatch {
 public:
  explicit SmoothnessWatch(const ClosedLoop& loop) : loop_(loop), last_(loop.impl->arm_state()) {}

  void look() {
    const kelvara::ArmState now = loop_.impl->arm_state();
    for (std::size_t i = 0; i < kelvara::kJointCount; ++i) {
      const double step = now.q_command[i] - last_.q_command[i];
      farthest_step_ = std::max(farthest_step_, std::abs(step));
      sharpest_turn_ = std::max(sharpest_turn_, std::abs(step - last_step_[i]));
      largest_torque_step_ =
          std::max(largest_torque_step_, std::abs(now.tau_command[i] - last_.tau_command[i]));
      last_step_[i] = step;
    }
    last_ = now;
  }
  double farthest_step() const { return farthest_step_; }  // rad
  double sharpest_turn() const { return sharpest_turn_; }  // difference of successive steps, rad
  double largest_torque_step() const { return largest_torque_step_; }

 private:
  const ClosedLoop& loop_;
  kelvara::ArmState last_;
  kelvara::JointArray last_step_{};
  double farthest_step_ = 0.0;
  double sharpest_turn_ = 0.0;
  double largest_torque_step_ = 0.0;
};

inline kelvara::MotionHandle move_joint(ClosedLoop& loop, const kelvara::JointArray& target,
                                        double speed = 1.0) {
  const kelvara::MotionPlanner planner = loop.impl->motions->planner({speed, 0.0});
  return loop.impl->motions->move(
      kelvara::controller::MotionStarter::From::kMotion,
      [&](const kelvara::PlanSample& start) { return planner.plan_joint(start, target); },
      [](const kelvara::Plan&) {});
}

/// Adds a target to the stream now, with the time `time_s` on the stream's clock.
inline void stream(ClosedLoop& loop, double time_s, const kelvara::JointArray& target) {
  kelvara::motion::Follow follow;
  follow.velocity = loop.impl->setup.motion.velocity;
  follow.limits = {loop.impl->setup.motion.acceleration, loop.impl->setup.motion.jerk};
  const double now_s = std::chrono::duration<double>(loop.now.time_since_epoch()).count();
  loop.impl->slot.follow(follow, {time_s, now_s, target});
}

/// Runs until the motion has ended, ten seconds at most.
template <typename... Watch>
void finish(ClosedLoop& loop, const kelvara::MotionHandle& motion, Watch&... watch) {
  for (int k = 0; k < 4000 && !motion.is_done(); ++k) {
    loop.run(1, watch...);
  }
  ASSERT_TRUE(motion.is_done());
}

inline void go(ClosedLoop& loop, const kelvara::JointArray& target) {
  loop.run(4);
  finish(loop, move_joint(loop, target));
  loop.run(200);
}
