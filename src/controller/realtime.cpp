#include "controller/realtime.hpp"

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

void report(const char* what, int error) {
  if (error != 0) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc's is safe for known errors
    diagnostics::error_line() << "[ArmController] " << what << ": " << std::strerror(error);
  }
}

int pin_to(int cpu) {
  if (cpu >= CPU_SETSIZE) {
    return EINVAL;
  }
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(cpu), &set);
  return pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
}

}  // namespace

void use_realtime(const RealtimeSettings& settings) {
  if (settings.cpu >= 0) {
    report("the control thread is not bound to its processor", pin_to(settings.cpu));
  }
  if (settings.priority > 0) {
    sched_param parameters{};
    parameters.sched_priority = settings.priority;
    report("the control thread has no real-time priority",
           pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters));
  }
}

void lock_memory() {
  report("memory is not locked", mlockall(MCL_CURRENT | MCL_FUTURE) == 0 ? 0 : errno);
}

}  // namespace kelvara::controller
