#pragma once

#include <string>

#include "simulation/virtual_can/descriptor.hpp"
#include "simulation/virtual_can/interface_directory.hpp"

namespace kelvara::simulation {

/// A new interface of the runtime directory. Its state file stays locked as long as this lives.
struct InterfaceClaim {
  InterfaceName interface;
  Descriptor lock;
};

/// @throws std::invalid_argument unless the name has 1 to 15 characters without '/' and white
///         space, and is neither "." nor "..".
void check_interface_name(const std::string& name);

/// Creates an interface's state file and locks it.
/// @throws std::runtime_error when the name is busy, or the runtime directory cannot be used.
InterfaceClaim claim_interface(const std::string& name);

}  // namespace kelvara::simulation
