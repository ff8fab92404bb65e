// Plans and the motions that execute them: a plan keeps its limits, a command never jumps, or there
// is one clear error.

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
  constexpr std::array kCalls{fuzz::plan_joints, fuzz::plan_tool, fuzz::solve_poses,
                              fuzz::command_motions, fuzz::check_plans};
  kCalls[input.choose(kCalls.size())](input);
  return 0;
}
