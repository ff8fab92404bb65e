#include "controller/startup_failure.hpp"

#include <cstdlib>
#include <iostream>

namespace kelvara::controller {

[[noreturn]] void fail_startup(const std::string& message) {
  std::cerr << message << std::endl;
  std::exit(1);  // NOLINT(concurrency-mt-unsafe): before any thread of the library starts
}

}  // namespace kelvara::controller
