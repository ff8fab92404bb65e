#pragma once

namespace kelvara {

/// Options of one move.
struct MoveOptions {
  /// Fraction of the joints' and the tool's speed limits, (0, 1]; 0: the settings'
  /// `default_speed_percent`, or 1 where a duration is given. Accelerations and jerks keep their
  /// limits.
  double speed = 0.0;
  double duration_s = 0.0;  // exactly this long; 0: as fast as the limits allow
};

}  // namespace kelvara
