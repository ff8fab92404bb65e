#pragma once

namespace kelvara::canbus {

/// Counts the forks between the process that loaded the library and this one: it differs between a
/// process and its children. Costs no system call; any thread may call it. A child of `vfork` or
/// `posix_spawn` is not counted: it only executes another program.
unsigned process_generation();

}  // namespace kelvara::canbus
