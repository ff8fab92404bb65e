#pragma once

#include "simulation/virtual_can/protocol.hpp"

namespace kelvara::simulation {

/// Whether a socket's filters let a frame with this identifier (flag bits included) pass.
bool passes_filters(const SocketOptions& options, canid_t id);

}  // namespace kelvara::simulation
