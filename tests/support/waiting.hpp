#pragma once

#include <chrono>
#include <thread>

/// Waits until the condition holds; false when it does not within 20 s, far longer than any arm or
/// machine needs.
template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}
