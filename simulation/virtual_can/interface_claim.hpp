#pragma once

#include <string>

#include "simulation/virtual_can/descriptor.hpp"
#include "simulation/virtual_can/interface_directory.hpp"

namespace kelvara::simulation {

/// A new interface of the runtime directory. Nobody finds it until it is published, and no other
/// one can be claimed. Its state file stays locked as long as this lives.
struct InterfaceClaim {
  InterfaceName interface;
  Descriptor state_file;
  Descriptor guard;  // the lock of the directory, until publication
};

/// @throws std::invalid_argument unless the name has 1 to 15 characters without '/' and white
///         space, and is neither "." nor "..".
void check_interface_name(const std::string& name);

/// Creates an interface's state file and locks it. Blocks while another interface is being set up.
/// @throws std::runtime_error when the name is busy, or the runtime directory cannot be used.
InterfaceClaim claim_interface(const std::string& name);

/// Makes the interface visible. Call when its hub accepts connections.
/// @throws std::runtime_error when the state file cannot be renamed.
void publish(InterfaceClaim& claim);

}  // namespace kelvara::simulation
