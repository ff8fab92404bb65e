#pragma once

#include <vector>

namespace kelvara::motion {

/// The limits of a change of speed.
struct SpeedRamp {
  double acceleration;  // of the parameter s, 1/s²
  double jerk;          // 1/s³
};

/// A stretch of a path with constant limits of the parameter's rates.
struct SpeedZone {
  double length;   // of the parameter s
  double speed;    // 1/s
  SpeedRamp rise;  // to a higher speed
  SpeedRamp fall;  // to a lower one
};

struct SpeedState {
  double s = 0.0;
  double speed = 0.0;
  double acceleration = 0.0;
};

/// The parameter of a path over time: at rest at both ends, with continuous acceleration, which is
/// zero where zones meet. In each zone as fast as its limits and the speeds at its ends allow; time
/// optimal for a path of one zone. Immutable.
class SpeedProfile {
 public:
  /// @param zones At least one; lengths and limits are positive.
  explicit SpeedProfile(const std::vector<SpeedZone>& zones);

  double duration_s() const { return phases_.back().begin_s; }
  /// Before the start and after the end: at rest.
  SpeedState at(double time_s) const;

 private:
  /// A time of constant jerk.
  struct Phase {
    double begin_s = 0.0;
    SpeedState state;  // at its begin
    double jerk = 0.0;
  };

  void add(double duration_s, double jerk);
  void add_transition(double from, double to, const SpeedZone& zone);
  void add_zone(const SpeedZone& zone, double from, double to);

  std::vector<Phase> phases_;  // the last one is the rest at the end
};

}  // namespace kelvara::motion
