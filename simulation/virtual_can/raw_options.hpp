#pragma once

#include <sys/socket.h>

#include "simulation/virtual_can/protocol.hpp"

/// The options of SOL_CAN_RAW. As the kernel does, each call returns 0 or an error number.
namespace kelvara::simulation {

int set_raw_option(SocketOptions& options, int name, const void* value, socklen_t length);

/// @param length In: size of `value` in bytes. Out: size of the option, also with ERANGE.
int get_raw_option(const SocketOptions& options, int name, void* value, socklen_t* length);

}  // namespace kelvara::simulation
