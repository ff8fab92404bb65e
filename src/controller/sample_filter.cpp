#include "controller/sample_filter.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace kelvara::controller {
namespace {

// A joint that is pushed can turn faster than the motor drives it.
constexpr double kSpeedMargin = 2.0;
// What a sample may be off in any case, rad: its time is that of the round, not its own.
constexpr double kPositionMargin = 0.1;
constexpr int kConfirmations = 2;

}  // namespace

bool SampleFilter::reaches(const Point& from, double position, motion::TimePoint time) const {
  const double elapsed_s = std::max(0.0, std::chrono::duration<double>(time - from.time).count());
  return std::abs(position - from.position) <=
         kPositionMargin + kSpeedMargin * max_speed_ * elapsed_s;
}

bool SampleFilter::accept(double position, motion::TimePoint time) {
  if (!has_last_ || reaches(last_, position, time)) {
    has_last_ = true;
    has_candidate_ = false;
    last_ = {position, time};
    return true;
  }
  if (!has_candidate_ || !reaches(candidate_, position, time)) {
    has_candidate_ = true;
    confirmations_ = 0;
  } else if (time > candidate_.time) {
    ++confirmations_;
  }
  candidate_ = {position, time};
  if (confirmations_ < kConfirmations) {
    return false;
  }
  has_candidate_ = false;
  last_ = candidate_;
  return true;
}

}  // namespace kelvara::controller
