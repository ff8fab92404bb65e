#include "motion/joint_segment.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "motion/root_finding.hpp"

namespace kelvara::motion {

JointSegment::JointSegment(const JointState& from, const JointState& to, double duration_s)
    : curve_(
          Quintic<double>::between({from.q, from.dq, from.ddq}, {to.q, to.dq, to.ddq}, duration_s)),
      duration_s_(duration_s) {}

double JointSegment::velocity(double t) const {
  const auto& c = curve_.c;
  return c[1] + t * (2.0 * c[2] + t * (3.0 * c[3] + t * (4.0 * c[4] + t * 5.0 * c[5])));
}

double JointSegment::acceleration(double t) const {
  const auto& c = curve_.c;
  return 2.0 * c[2] + t * (6.0 * c[3] + t * (12.0 * c[4] + t * 20.0 * c[5]));
}

JointState JointSegment::at(double t) const {
  return {curve_.at(t).value, velocity(t), acceleration(t)};
}

double JointSegment::peak_velocity(double begin_s, double end_s) const {
  const double sign = acceleration(end_s) > 0.0 ? 1.0 : -1.0;
  double peak = std::max(std::abs(velocity(begin_s)), std::abs(velocity(end_s)));
  if (sign * acceleration(begin_s) < 0.0) {
    const double turn_s = find_root(
        [this, sign](double t) -> Slope {
          return {sign * acceleration(t), sign * jerk(t)};
        },
        begin_s, end_s, 0.5 * (begin_s + end_s));
    peak = std::max(peak, std::abs(velocity(turn_s)));
  }
  return peak;
}

double JointSegment::stretch(const RateLimits& limits) const {
  const auto& [c0, c1, c2, c3, c4, c5] = curve_.c;
  if (!std::isfinite(c0 + c1 + c2 + c3 + c4 + c5)) {
    return HUGE_VAL;
  }
  const double h = duration_s_;
  // Where the jerk is extreme, and where it is zero; NaN, where it never is, becomes an end.
  const auto inside = [h](double t) { return t > 0.0 ? std::min(t, h) : 0.0; };
  const double middle = inside(-c4 / (5.0 * c5));
  const double root = std::sqrt(4.0 * c4 * c4 - 10.0 * c5 * c3);
  const double q = -(2.0 * c4 + std::copysign(root, c4));
  const auto [first, second] = std::minmax({inside(q / (10.0 * c5)), inside(c3 / q)});
  const std::array<double, 4> times{0.0, first, second, h};
  double peak_v = 0.0;
  double peak_a = std::abs(acceleration(0.0));
  for (std::size_t k = 1; k < times.size(); ++k) {
    peak_v = std::max(peak_v, peak_velocity(times[k - 1], times[k]));
    peak_a = std::max(peak_a, std::abs(acceleration(times[k])));
  }
  const double peak_j = std::max({std::abs(jerk(0.0)), std::abs(jerk(middle)), std::abs(jerk(h))});
  return std::max({peak_v / limits.velocity, std::sqrt(peak_a / limits.acceleration),
                   std::cbrt(peak_j / limits.jerk)});
}

}  // namespace kelvara::motion
