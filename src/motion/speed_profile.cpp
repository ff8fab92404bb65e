#include "motion/speed_profile.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {
namespace {

// Halvings of an interval of speeds: down to rounding.
constexpr int kBisections = 60;

/// A change of speed, acceleration zero at both ends, as fast as the limits allow.
struct Transition {
  Transition(double from, double to, const SpeedZone& zone) {
    const SpeedRamp& ramp = to > from ? zone.rise : zone.fall;
    const double change = std::abs(to - from);
    const bool is_long = change * ramp.jerk > ramp.acceleration * ramp.acceleration;
    ramp_s = is_long ? ramp.acceleration / ramp.jerk : std::sqrt(change / ramp.jerk);
    hold_s = is_long ? change / ramp.acceleration - ramp_s : 0.0;
    jerk = std::copysign(ramp.jerk, to - from);
  }
  double duration_s() const { return 2.0 * ramp_s + hold_s; }

  double ramp_s;  // of the acceleration, at each end
  double hold_s;  // at the acceleration's limit
  double jerk;    // at the begin
};

double transition_length(double from, double to, const SpeedZone& zone) {
  return 0.5 * (from + to) * Transition(from, to, zone).duration_s();
}

/// The largest speed in [low, high] for which `fits` holds, which does for `low`.
template <typename Fits>
double largest_speed(double low, double high, Fits fits) {
  if (fits(high)) {
    return high;
  }
  for (int k = 0; k < kBisections; ++k) {
    const double middle = 0.5 * (low + high);
    (fits(middle) ? low : high) = middle;
  }
  return low;
}

/// The largest speed, at most `limit`, between which and `other` a zone has room for a transition.
template <typename Length>
double reachable_speed(double other, double limit, const SpeedZone& zone, Length length) {
  if (limit <= other) {
    return limit;
  }
  return largest_speed(other, limit, [&](double speed) { return length(speed) <= zone.length; });
}

/// The speeds where zones meet, rest at both ends included.
std::vector<double> border_speeds(const std::vector<SpeedZone>& zones) {
  std::vector<double> speeds(zones.size() + 1, 0.0);
  for (std::size_t k = zones.size() - 1; k > 0; --k) {
    const double limit = std::min(zones[k - 1].speed, zones[k].speed);
    speeds[k] = reachable_speed(speeds[k + 1], limit, zones[k], [&](double speed) {
      return transition_length(speed, speeds[k + 1], zones[k]);
    });
  }
  for (std::size_t k = 1; k < zones.size(); ++k) {
    speeds[k] = reachable_speed(speeds[k - 1], speeds[k], zones[k - 1], [&](double speed) {
      return transition_length(speeds[k - 1], speed, zones[k - 1]);
    });
  }
  return speeds;
}

SpeedState advance(const SpeedState& from, double jerk, double t) {
  return {from.s + t * (from.speed + t * (from.acceleration / 2 + t * jerk / 6)),
          from.speed + t * (from.acceleration + t * jerk / 2), from.acceleration + t * jerk};
}

}  // namespace

SpeedProfile::SpeedProfile(const std::vector<SpeedZone>& zones) : phases_{Phase{0.0, {}, 0.0}} {
  const std::vector<double> speeds = border_speeds(zones);
  double end = 0.0;
  for (std::size_t k = 0; k < zones.size(); ++k) {
    add_zone(zones[k], speeds[k], speeds[k + 1]);
    end += zones[k].length;
    phases_.back().state = {end, speeds[k + 1], 0.0};  // without the rounding of the sums
  }
}

void SpeedProfile::add(double duration_s, double jerk) {
  if (duration_s > 0.0) {
    Phase& phase = phases_.back();
    phase.jerk = jerk;
    phases_.push_back({phase.begin_s + duration_s, advance(phase.state, jerk, duration_s), 0.0});
  }
}

void SpeedProfile::add_transition(double from, double to, const SpeedZone& zone) {
  const Transition transition(from, to, zone);
  add(transition.ramp_s, transition.jerk);
  add(transition.hold_s, 0.0);
  add(transition.ramp_s, -transition.jerk);
  phases_.back().state.speed = to;
  phases_.back().state.acceleration = 0.0;
}

void SpeedProfile::add_zone(const SpeedZone& zone, double from, double to) {
  const auto ramps = [&](double peak) {
    return transition_length(from, peak, zone) + transition_length(peak, to, zone);
  };
  const double peak = largest_speed(std::max(from, to), zone.speed,
                                    [&](double speed) { return ramps(speed) <= zone.length; });
  add_transition(from, peak, zone);
  add(std::max(zone.length - ramps(peak), 0.0) / peak, 0.0);
  add_transition(peak, to, zone);
}

SpeedState SpeedProfile::at(double time_s) const {
  if (time_s >= duration_s()) {
    return phases_.back().state;
  }
  const auto after =
      std::upper_bound(phases_.begin() + 1, phases_.end() - 1, time_s,
                       [](double t, const Phase& phase) { return t < phase.begin_s; });
  const Phase& phase = *(after - 1);
  return advance(phase.state, phase.jerk, std::max(time_s - phase.begin_s, 0.0));
}

}  // namespace kelvara::motion
