#include "controller/sleep_until.hpp"

#include <time.h>

#include <cerrno>

namespace kelvara::controller {

void sleep_until(motion::TimePoint wake) {
  const auto remaining =
      std::chrono::duration_cast<std::chrono::nanoseconds>(wake - motion::Clock::now()).count();
  if (remaining <= 0) {
    return;
  }
  constexpr long kNanosecondsPerSecond = 1'000'000'000;
  timespec time{remaining / kNanosecondsPerSecond, remaining % kNanosecondsPerSecond};
  while (nanosleep(&time, &time) != 0 && errno == EINTR) {
  }
}

}  // namespace kelvara::controller
