#include "motion/joint_move.hpp"

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace kelvara::motion {
namespace {

/// A start, a target and limits; prints itself.
struct Case {
  JointState start;
  double target;
  RateLimits limits;

  friend std::ostream& operator<<(std::ostream& out, const Case& c) {
    return out << std::hexfloat << "start " << c.start.q << ' ' << c.start.dq << ' ' << c.start.ddq
               << " target " << c.target << " limits " << c.limits.velocity << ' '
               << c.limits.acceleration << ' ' << c.limits.jerk;
  }
};

class Cases {
 public:
  double in(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  /// A state inside the limits, some at rest, on a limit, or almost at the target.
  Case next() {
    const auto any = [this](double scale) { return scale * std::exp(in(-2.0, 2.0)); };
    Case c{{in(-2.0, 2.0), 0.0, 0.0}, in(-2.0, 2.0), {any(2.0), any(8.0), any(80.0)}};
    const auto part = [this] { return in(0.0, 1.0) < 0.2 ? std::round(in(-1, 1)) : in(-1, 1); };
    c.start.dq = c.limits.velocity * part();
    c.start.ddq = c.limits.acceleration * part();
    if (std::abs(c.start.coasting_velocity(c.limits.jerk)) > c.limits.velocity) {
      c.start.ddq = 0.0;
    }
    if (in(0.0, 1.0) < 0.3) {
      const double rest = JointMove::stop(c.start, c.limits).end().q;
      c.target = rest + in(-1.0, 1.0) * std::pow(10.0, in(-9.0, 0.0));
    }
    return c;
  }

 private:
  std::mt19937_64 random_{11};
};

/// Checks ends, limits and continuity. Between two samples position and velocity may differ from
/// the states before by no more than what the jerk allows.
void check(const JointProfile& profile, const Case& c) {
  constexpr int kSamples = 24;
  const double h = profile.duration_s() / kSamples;
  const double change = c.limits.jerk * h * (1.0 + 1e-9);
  JointState last = c.start;
  for (int k = 0; k <= kSamples; ++k) {
    const JointState now = profile.at(k < kSamples ? h * k : profile.duration_s());
    ASSERT_LE(std::abs(now.dq), c.limits.velocity * (1.0 + 1e-9)) << c;
    ASSERT_LE(std::abs(now.ddq), c.limits.acceleration * (1.0 + 1e-9)) << c;
    const double step = k == 0 ? 0.0 : h;
    const JointState straight = last.after(step, 0.0);
    ASSERT_NEAR(now.ddq, straight.ddq, change + 1e-10) << c;
    ASSERT_NEAR(now.dq, straight.dq, change * step / 2.0 + 1e-11) << c;
    ASSERT_NEAR(now.q, straight.q, change * step * step / 6.0 + 1e-12) << c;
    last = now;
  }
  ASSERT_EQ(last.q, c.target) << c;
  ASSERT_EQ(last.dq, 0.0) << c;
  ASSERT_EQ(last.ddq, 0.0) << c;
}

TEST(JointMove, KeepsLimitsAndEndsExactlyFromAnyState) {
  Cases cases;
  for (int k = 0; k < 100'000; ++k) {
    const Case c = cases.next();
    const JointMove move(c.start, c.target, c.limits);
    ASSERT_NO_FATAL_FAILURE(check(move.fastest(), c));
    const double duration = move.duration_s() * (1.0 + std::pow(10.0, cases.in(-6.0, 0.5)));
    const JointProfile slow = move.lasting(duration);
    ASSERT_NO_FATAL_FAILURE(check(slow, c));
    ASSERT_LE(slow.duration_s(), duration * (1.0 + 1e-9)) << c;
    const double early_s = duration - slow.duration_s();
    const bool is_at_rest = c.start.dq == 0.0 && c.start.ddq == 0.0;
    const double limit_time_s =
        c.limits.acceleration / c.limits.jerk + std::sqrt(c.limits.velocity / c.limits.jerk);
    ASSERT_LE(early_s, is_at_rest ? 1e-9 : 0.3 * limit_time_s) << c;
  }
}

/// The reference: a joint simulated with switching times that bisection finds.
struct Simulation {
  double q, v, a;  // in the direction of the motion
  double time = 0.0;

  void apply(double jerk, double duration, double max_a) {
    const double until_limit = std::max((std::copysign(max_a, jerk) - a) / jerk, 0.0);
    for (const auto& [j, t] : {std::pair{jerk, std::min(duration, until_limit)},
                               std::pair{0.0, std::max(duration - until_limit, 0.0)}}) {
      q += t * (v + t * (a / 2.0 + t * j / 6.0));
      v += t * (a + t * j / 2.0);
      a += t * j;
      time += t;
    }
  }
};

template <typename Predicate>
double bisect(double high, Predicate is_too_far) {
  double low = 0.0;
  for (int k = 0; k < 60; ++k) {
    const double middle = 0.5 * (low + high);
    (is_too_far(middle) ? high : low) = middle;
  }
  return 0.5 * (low + high);
}

Simulation braked(Simulation from, const RateLimits& limits) {
  const auto brake_for = [&](double time) {
    Simulation s = from;
    s.apply(-limits.jerk, time, limits.acceleration);
    s.apply(s.a < 0.0 ? limits.jerk : -limits.jerk, std::abs(s.a) / limits.jerk, 1e9);
    return s;
  };
  return brake_for(bisect(100.0, [&](double time) { return brake_for(time).v < 0.0; }));
}

/// The shortest time when the joint accelerates in one direction first, then brakes.
double reference_duration(const Case& c, double sign) {
  const Simulation start{0.0, sign * c.start.dq, sign * c.start.ddq};
  const double distance = sign * (c.target - c.start.q);
  const auto accelerated = [&](double time) {
    Simulation s = start;
    s.apply(c.limits.jerk, time, c.limits.acceleration);
    return s;
  };
  const double longest = bisect(100.0, [&](double time) {
    const Simulation s = accelerated(time);
    return s.v + s.a * std::abs(s.a) / (2.0 * c.limits.jerk) > c.limits.velocity;
  });
  const Simulation cruising = braked(accelerated(longest), c.limits);
  if (cruising.q <= distance) {
    return cruising.time + (distance - cruising.q) / c.limits.velocity;
  }
  const double time = bisect(longest, [&](double t) {
    const Simulation s = braked(accelerated(t), c.limits);
    return s.v > -1e-9 && s.q > distance;  // else it moves backwards and needs more time
  });
  const Simulation end = braked(accelerated(time), c.limits);
  const bool arrives = std::abs(end.q - distance) < 1e-11 && std::abs(end.v) < 1e-9;
  return arrives ? end.time : HUGE_VAL;
}

TEST(JointMove, IsAsFastAsTheBestOfBisectedSwitchingTimes) {
  Cases cases;
  for (int k = 0; k < 5000; ++k) {
    const Case c = cases.next();
    const double best = std::min(reference_duration(c, 1.0), reference_duration(c, -1.0));
    ASSERT_TRUE(std::isfinite(best)) << c;
    ASSERT_NEAR(JointMove(c.start, c.target, c.limits).duration_s(), best, 0.01 * best) << c;
  }
}

TEST(JointMove, GoesNoFartherThanBrakingAtOnce) {
  Cases cases;
  for (int k = 0; k < 5000; ++k) {
    const Case c = cases.next();
    const JointProfile stop = JointMove::stop(c.start, c.limits);
    const JointMove move(c.start, c.target, c.limits);
    const JointProfile profile = move.lasting(move.duration_s() * cases.in(1.0, 2.0));
    double low = c.target;
    double high = c.target;
    for (double t = 0.0; t < stop.duration_s(); t += stop.duration_s() / 200.0) {
      low = std::min(low, stop.at(t).q);
      high = std::max(high, stop.at(t).q);
    }
    const double slack = 1e-3 * stop.duration_s() * c.limits.velocity + 1e-9;
    for (double t = 0.0; t < profile.duration_s(); t += profile.duration_s() / 50.0) {
      ASSERT_GE(profile.at(t).q, std::min(low, stop.end().q) - slack) << c << " at " << t;
      ASSERT_LE(profile.at(t).q, std::max(high, stop.end().q) + slack) << c << " at " << t;
    }
  }
}

TEST(JointMove, ReturnsInsideTheLimitsFromAStateBeyondThem) {
  const RateLimits limits{1.0, 5.0, 50.0};
  for (const JointState& start :
       {JointState{0.0, 1.8, 0.0}, JointState{0.0, -1.8, 9.0}, JointState{0.0, 0.9, 4.0},
        JointState{0.0, 0.2, -8.0}, JointState{0.0, 3.0, -2.0}}) {
    const JointProfile profile = JointMove(start, 1.0, limits).fastest();
    const double excess =
        std::max({std::abs(start.dq), std::abs(start.coasting_velocity(50.0)), 1.0});
    const double inside_s = std::abs(start.ddq) / 50.0 + (excess - 1.0) / 5.0 + 0.4;
    for (double t = 0.0; t <= profile.duration_s(); t += 1e-3) {
      const JointState state = profile.at(t);
      EXPECT_LE(std::abs(state.dq), t < inside_s ? excess + 1e-9 : 1.0 + 1e-9) << t;
      EXPECT_LE(std::abs(state.ddq), t < 0.1 ? 9.0 : 5.0 + 1e-9) << t;
    }
    EXPECT_EQ(profile.at(0.0).dq, start.dq);
    EXPECT_EQ(profile.end().q, 1.0);
  }
}

}  // namespace
}  // namespace kelvara::motion
