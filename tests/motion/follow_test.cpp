#include "motion/follow.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "description/timing.hpp"
#include "motion/joint_move.hpp"

namespace kelvara::motion {
namespace {

using description::kControlPeriodS;

/// One joint that follows a stream, at times of the test's own.
class Follower {
 public:
  explicit Follower(const RateLimits& limits, double catch_up = 1.0) : limits_(limits) {
    stream_.velocity.fill(limits.velocity);
    stream_.limits.acceleration.fill(limits.acceleration);
    stream_.limits.jerk.fill(limits.jerk);
    stream_.catch_up = catch_up;
    bounds_.velocity.fill(1e3);
  }
  /// Position limits of the joint, at ± this angle.
  void set_range(double limit) {
    bounds_.joints.urdf_lower.fill(-limit);
    bounds_.joints.urdf_upper.fill(limit);
    bounds_.joints.urdf_has_limit.set();
  }
  /// Streams `target` from now on for so long; each target arrives up to `jitter` periods late, and
  /// some of them never.
  template <typename Check>
  void run(const std::function<double(double)>& target, double duration_s, Check check) {
    for (const double end_s = now_s_ + duration_s; now_s_ < end_s; now_s_ += kControlPeriodS) {
      while (next_s_ + late_s_ <= now_s_) {
        if (!(random() < lost_share)) {
          JointArray q{};
          q.fill(target(next_s_));
          stream_.append({next_s_ - 1e5, now_s_, q});
        }
        next_s_ += period_s;
        late_s_ = jitter * period_s * random();
      }
      step();
      ASSERT_NO_FATAL_FAILURE(check(now_s_ + kControlPeriodS));
    }
  }
  /// The stream has ended.
  void run_out(double duration_s) {
    for (const double end_s = now_s_ + duration_s; now_s_ < end_s; now_s_ += kControlPeriodS) {
      step();
    }
  }
  const JointState& joint() const { return joint_; }
  double worst_share() const { return worst_share_; }

  double period_s = 0.01, jitter = 0.0, lost_share = 0.0;

 private:
  double random() { return std::uniform_real_distribution<double>(0.0, 1.0)(random_); }
  void step() {
    Instant instant;
    instant.time_s = now_s_;
    instant.standing.q.fill(joint_.q);
    instant.standing.dq.fill(joint_.dq);
    instant.standing.ddq.fill(joint_.ddq);
    const SetPoint point = stream_.evaluate(instant, bounds_, Approach::kReference);
    const JointState next{point.q[0], point.dq[0], point.model_ddq[0]};
    const double jerk = (next.ddq - joint_.ddq) / kControlPeriodS;
    // The command is the path of that acceleration: neither position nor velocity may jump.
    const double jump =
        std::abs(next.dq - joint_.dq - 0.5 * (joint_.ddq + next.ddq) * kControlPeriodS) /
        (0.25 * limits_.jerk * kControlPeriodS * kControlPeriodS);
    worst_share_ =
        std::max({worst_share_, std::abs(next.dq) / limits_.velocity,
                  std::abs(next.ddq) / limits_.acceleration, std::abs(jerk) / limits_.jerk, jump});
    joint_ = next;
  }

  RateLimits limits_;
  Follow stream_;
  SetPointLimits bounds_;
  JointState joint_;
  double now_s_ = 1.0, next_s_ = 1.0, late_s_ = 0.0, worst_share_ = 0.0;
  std::mt19937 random_{7};
};

struct Cases {
  double in(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  }
  RateLimits limits() {
    const double a = std::exp(in(std::log(1.0), std::log(20.0)));
    return {in(0.3, 4.0), a, a * in(10.0, 30.0)};
  }
  std::mt19937 random{11};
};

constexpr auto kNoCheck = [](double) {};
constexpr double kRounding = 1.0 + 1e-9;

TEST(Follow, ReachesAJumpOfTheTargetsWithoutOvershoot) {
  Cases cases;
  for (int k = 0; k < 100; ++k) {
    const RateLimits limits = cases.limits();
    Follower follower(limits);
    follower.period_s = cases.in(0.001, 0.01);
    const double step = cases.in(0.1, 1.5);
    const std::string what = "case " + std::to_string(k) + ": step of " + std::to_string(step);
    double farthest = 0.0;
    const double least_s = JointMove({}, step, limits).duration_s();
    follower.run([&](double) { return 0.0; }, 0.1, kNoCheck);
    follower.run([&](double) { return step; }, 1.2 * least_s + 0.3,
                 [&](double) { farthest = std::max(farthest, follower.joint().q); });
    EXPECT_LE(farthest, step + 1e-3) << what;
    EXPECT_NEAR(follower.joint().q, step, 1e-3) << what;
    EXPECT_LE(follower.worst_share(), kRounding) << what;
  }
}

/// Also the sines that no joint can follow: it then goes no farther than the targets.
TEST(Follow, KeepsItsLimitsOnEveryStreamAndTheCourseOfOneInsideThem) {
  Cases cases;
  for (int k = 0; k < 200; ++k) {
    const RateLimits limits = cases.limits();
    Follower follower(limits);
    follower.period_s = cases.in(0.001, 0.05);
    follower.jitter = 0.3;
    const bool is_feasible = k % 2 == 0;
    const double w = is_feasible ? cases.in(2.0, 7.0) : cases.in(6.0, 12.0);
    const double most =
        std::min({limits.velocity / w, limits.acceleration / (w * w), limits.jerk / (w * w * w)});
    const double size = is_feasible ? 0.5 * most : 2.0 * most;
    const auto sine = [&](double t) { return size * std::sin(w * (t - 1.0)); };
    double error = 0.0, farthest = 0.0;
    const double lag_s = 1.5 * std::max(follower.period_s, 0.004);
    follower.run(sine, 5.0, [&](double now_s) {
      farthest = std::max(farthest, std::abs(follower.joint().q));
      if (now_s > 3.0) {
        error = std::max(error, std::abs(follower.joint().q - sine(now_s - lag_s)));
      }
    });
    const std::string what =
        "case " + std::to_string(k) + ": " + std::to_string(size) + " rad at " + std::to_string(w) +
        " rad/s, limits " + std::to_string(limits.velocity) + ' ' +
        std::to_string(limits.acceleration) + ' ' + std::to_string(limits.jerk);
    EXPECT_LE(follower.worst_share(), kRounding) << what;
    EXPECT_LE(farthest, 1.05 * size + 0.01) << what;
    if (is_feasible) {
      // Arrival varies by a third of a period.
      EXPECT_LE(error, 3e-3 + 0.3 * follower.period_s * w * size) << what;
    }
    follower.run_out(
        0.5 + 2.0 * (limits.velocity / limits.acceleration + limits.acceleration / limits.jerk));
    EXPECT_EQ(follower.joint().dq, 0.0) << what << ", which has ended";
  }
}

TEST(Follow, KeepsItsLimitsWhenTargetsAreLost) {
  Cases cases;
  for (int k = 0; k < 50; ++k) {
    Follower follower(cases.limits());
    follower.period_s = cases.in(0.001, 0.05);
    follower.jitter = 1.0;
    follower.lost_share = 0.3;
    follower.set_range(0.4);
    const auto noisy = [&](double t) { return 0.4 * std::sin(4.0 * t) + cases.in(-0.01, 0.01); };
    follower.run(
        [&](double t) { return std::clamp(noisy(t), -0.4, 0.4); }, 5.0,
        [&](double) { ASSERT_LE(std::abs(follower.joint().q), 0.4 + 1e-9) << "case " << k; });
    EXPECT_LE(follower.worst_share(), kRounding) << "case " << k;
  }
}

TEST(Follow, CatchesUpSlowlyButFollowsAFastStream) {
  const RateLimits limits{2.5, 8.0, 80.0};
  double fastest = 0.0;
  Follower far(limits, 0.3);
  far.run([](double) { return 2.0; }, 4.0,
          [&](double) { fastest = std::max(fastest, far.joint().dq); });
  EXPECT_LE(fastest, 0.3 * 2.5 * kRounding) << "the first target is far away";
  EXPECT_GE(fastest, 0.3 * 2.5 * 0.99);
  EXPECT_NEAR(far.joint().q, 2.0, 1e-3);

  Follower behind(limits, 0.3);
  const auto ramp = [](double t) { return 0.5 + 2.2 * (t - 1.0); };
  behind.run(ramp, 4.0, kNoCheck);
  EXPECT_NEAR(behind.joint().dq, 2.2, 1e-3);
  EXPECT_NEAR(behind.joint().q, ramp(5.0 - 0.015), 2e-3) << "the lag of one and a half periods";
  EXPECT_LE(behind.worst_share(), kRounding);
}

TEST(Follow, AveragesTheNoiseOfItsTargets) {
  const RateLimits limits{2.5, 8.0, 80.0};
  for (const double period_s : {0.02, 0.01, 0.001}) {
    for (const double size : {0.0, 0.3}) {
      Cases cases;
      Follower follower(limits);
      follower.period_s = period_s;
      const auto sine = [&](double t) { return size * std::sin(2.0 * (t - 1.0)); };
      const double lag_s = 1.5 * std::max(period_s, 0.004);
      double error = 0.0;
      follower.run([&](double t) { return sine(t) + cases.in(-1e-3, 1e-3); }, 8.0,
                   [&](double now_s) {
                     if (now_s > 3.0) {
                       error = std::max(error, std::abs(follower.joint().q - sine(now_s - lag_s)));
                     }
                   });
      EXPECT_LE(error, size > 0.0 ? 8e-3 : 2e-3) << size << " rad, every " << period_s << " s";
      EXPECT_LE(follower.worst_share(), kRounding);
    }
  }
}

TEST(Follow, DoesNotOvershootASmallJumpOfASlowStream) {
  for (const double step : {0.005, 0.02}) {
    Follower follower({2.5, 8.0, 80.0});
    follower.period_s = 0.05;
    double farthest = 0.0;
    follower.run([&](double t) { return t > 2.0 ? step : 0.0; }, 4.0,
                 [&](double) { farthest = std::max(farthest, follower.joint().q); });
    EXPECT_LE(farthest, step + 2e-3);
    EXPECT_NEAR(follower.joint().q, step, 1e-4);
  }
}

TEST(Follow, StaysFiniteWhateverTheStampsAre) {
  const double huge = std::numeric_limits<double>::max();
  const double tiny = std::numeric_limits<double>::min();
  for (const std::array<double, 3>& stamps :
       {std::array<double, 3>{0.0, tiny, 2.0 * tiny}, {-huge, 0.0, huge}, {0.0, tiny, huge}}) {
    Follow stream;
    stream.velocity.fill(1.0);
    stream.limits.acceleration.fill(5.0);
    stream.limits.jerk.fill(50.0);
    SetPointLimits bounds;
    bounds.velocity.fill(1.0);
    for (const double stamp : stamps) {
      JointArray q{};
      q.fill(stamp > 0.0 ? 1.0 : 0.0);
      stream.append({stamp, 10.0, q});
      Instant instant;
      instant.time_s = 10.05;
      const SetPoint point = stream.evaluate(instant, bounds, Approach::kReference);
      EXPECT_LE(std::abs(point.q[0]), 1e-3) << stamp;  // false for NaN
      EXPECT_LE(std::abs(point.dq[0]), 50.0 * kControlPeriodS * kControlPeriodS) << stamp;
    }
  }
}

}  // namespace
}  // namespace kelvara::motion
