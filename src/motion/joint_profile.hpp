#pragma once

#include <array>
#include <cstddef>

namespace kelvara::motion {

/// One joint at one instant.
struct JointState {
  double q = 0.0;    // rad
  double dq = 0.0;   // rad/s
  double ddq = 0.0;  // rad/s²

  /// The state after `time_s` of constant jerk (rad/s³); before, for a negative time.
  JointState after(double time_s, double jerk) const {
    return {q + time_s * (dq + time_s * (ddq / 2.0 + time_s * jerk / 6.0)),
            dq + time_s * (ddq + time_s * jerk / 2.0), ddq + time_s * jerk};
  }
  /// The velocity at which the joint arrives when its acceleration ends at the limit of the jerk.
  double coasting_velocity(double jerk_limit) const {
    return dq + ddq * (ddq < 0.0 ? -ddq : ddq) / (2.0 * jerk_limit);
  }
  /// The same state seen in the other direction, for a `sign` of -1.
  JointState times(double sign) const { return {sign * q, sign * dq, sign * ddq}; }
};

/// The limits of one joint's rates.
struct RateLimits {
  double velocity;      // rad/s
  double acceleration;  // rad/s²
  double jerk;          // rad/s³
};

/// One joint's motion: pieces of constant jerk one after the other. A value.
class JointProfile {
 public:
  /// A joint at rest at 0.
  JointProfile() = default;
  explicit JointProfile(const JointState& start) : end_(start) {}

  /// Adds a piece at the end; none for a duration of zero or less.
  void append(double duration_s, double jerk);
  /// From here on the pieces are those that lead to rest.
  void begin_tail() { tail_ = count_; }
  /// Ends at rest at exactly `target`: the tail's states are computed from there backwards, so that
  /// what rounding left over lies within the motion.
  void close(double target);

  double duration_s() const { return duration_s_; }
  const JointState& end() const { return end_; }
  /// The state at a time; before the start that of the start, after the end that of the end.
  JointState at(double time_s) const;

 private:
  static constexpr std::size_t kMaxPieces = 16;
  struct Piece {
    double begin_s = 0.0;
    double duration_s = 0.0;
    double jerk = 0.0;  // rad/s³
    JointState begin;
  };

  std::array<Piece, kMaxPieces> pieces_{};
  std::size_t count_ = 0;
  std::size_t tail_ = 0;  // the index of its first piece
  JointState end_;
  double duration_s_ = 0.0;
};

}  // namespace kelvara::motion
