#pragma once

namespace kelvara::controller {

/// How the control thread is scheduled.
struct RealtimeSettings {
  int priority = 0;  // SCHED_FIFO, 1 to 99; 0: ordinary
  int cpu = -1;      // -1: any
};

/// Applies the settings to the calling thread. What the system refuses is reported in one line
/// each.
void use_realtime(const RealtimeSettings& settings);
/// Keeps the process's memory from being paged out, or reports why not. May take long.
void lock_memory();

}  // namespace kelvara::controller
