#pragma once

#include "kelvara/damiao_motor/motor_values.hpp"

#include "motion/clock.hpp"

namespace kelvara::controller {

/// Decides which of a motor's feedback samples count. A sample that the motor could not have
/// reached since the last one that counts is held back until samples of two later rounds of
/// feedback lie where it could have gone from there.
class SampleFilter {
 public:
  /// @param max_speed The motor's speed range, rad/s.
  explicit SampleFilter(double max_speed) : max_speed_(max_speed) {}

  /// Takes the position of a sample.
  /// @param time When its round of feedback was read; samples of one round share it.
  /// @return whether the sample counts.
  bool accept(double position, motion::TimePoint time);

 private:
  struct Point {
    double position = 0.0;  // rad, motor side
    motion::TimePoint time{};
  };
  bool reaches(const Point& from, double position, motion::TimePoint time) const;

  double max_speed_;
  bool has_last_ = false;
  Point last_;
  bool has_candidate_ = false;
  Point candidate_;
  int confirmations_ = 0;
};

}  // namespace kelvara::controller
