// Calls with any numbers: the result is finite and keeps the limits, or is one clear error.

#include <array>

#include "fuzz/calls.hpp"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  silence_reports();
  fuzz::model();  // from the current directory's config
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  // The committed corpus depends on this order.
  constexpr std::array kCalls{fuzz::plan_and_play, fuzz::sample_septic, fuzz::solve_by_jacobian,
                              fuzz::solve_by_kdl,  fuzz::stream_poses,  fuzz::turn_jaws,
                              fuzz::run_setpoints};
  kCalls[input.choose(kCalls.size())](input);
  return 0;
}
