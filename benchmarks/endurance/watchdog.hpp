#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <thread>

/// Ends the process with status 3 when a guarded action takes longer than 15 s.
class Watchdog {
  using Clock = std::chrono::steady_clock;

 public:
  static constexpr std::size_t kActions = 10;  // that may run at the same time
  static constexpr std::chrono::seconds kPatience{15};

  Watchdog() : thread_([this] { watch(); }) {}
  ~Watchdog() {
    stop_ = true;
    thread_.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  /// Guards an action of this index while it lives.
  class Guard {
   public:
    Guard(Watchdog& watchdog, std::size_t index) : start_(watchdog.starts_.at(index)) {
      start_ = Clock::now().time_since_epoch();
    }
    ~Guard() { start_ = Clock::duration::max(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    std::atomic<Clock::duration>& start_;
  };

 private:
  void watch() {
    while (!stop_) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      for (std::size_t i = 0; i < kActions; ++i) {
        const Clock::duration start = starts_[i];
        if (start < Clock::now().time_since_epoch() - kPatience) {
          std::fprintf(stderr, "FAILED: action %zu hangs\n", i);
          std::_Exit(3);
        }
      }
    }
  }

  struct Start : std::atomic<Clock::duration> {
    Start() : std::atomic<Clock::duration>(Clock::duration::max()) {}  // idle
    using std::atomic<Clock::duration>::operator=;
  };

  std::array<Start, kActions> starts_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};
