#include "canbus/process_generation.hpp"

#include <pthread.h>

#include <atomic>

namespace kelvara::canbus {
namespace {

std::atomic<unsigned> generation{0};

/// Registered while the library is loaded, before the application can fork.
[[maybe_unused]] const int registration =
    pthread_atfork(nullptr, nullptr, [] { generation.fetch_add(1, std::memory_order_relaxed); });

}  // namespace

unsigned process_generation() { return generation.load(std::memory_order_relaxed); }

}  // namespace kelvara::canbus
