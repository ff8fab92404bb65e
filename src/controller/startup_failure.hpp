#pragma once

#include <stdexcept>
#include <string>

namespace kelvara::controller {

/// An arm must not move with settings, or from a pose, that were found unsafe.
class StartupFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Ends the process with status 1 after one line on standard error.
[[noreturn]] void fail_startup(const std::string& message);

}  // namespace kelvara::controller
