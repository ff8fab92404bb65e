#pragma once

#include <string>

namespace kelvara::controller {

/// Ends the process with status 1 after one line on standard error. For start-up alone: an arm must
/// not move with settings, or from a pose, that were found unsafe.
[[noreturn]] void fail_startup(const std::string& message);

}  // namespace kelvara::controller
