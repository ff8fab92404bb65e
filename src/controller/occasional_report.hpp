#pragma once

#include <cstdint>

#include "motion/clock.hpp"

namespace kelvara::controller {

/// Decides when to report events that are counted: the first at once, then at most once in ten
/// seconds.
class OccasionalReport {
 public:
  /// @param count The events so far.
  /// @return how many to report now; 0 for none.
  std::uint64_t due(std::uint64_t count, motion::TimePoint now) {
    if (count == reported_ || now < next_) {
      return 0;
    }
    const std::uint64_t news = count - reported_;
    reported_ = count;
    next_ = now + std::chrono::seconds(10);
    return news;
  }

 private:
  std::uint64_t reported_ = 0;
  motion::TimePoint next_{};
};

}  // namespace kelvara::controller
