#pragma once

#include "kelvara/hardware/kelvara.hpp"

#include "description/controller_settings.hpp"

namespace kelvara::controller {

/// Position/velocity mode: writes acceleration, deceleration and position gain to the joints'
/// motors, reads them back and prints both on standard output.
/// @throws StartupFailure when a value differs from the configured one by more than 1e-4.
void write_and_verify_motor_parameters(can::socket::Kelvara& hardware,
                                       const description::PosVelModeConfig& config);

}  // namespace kelvara::controller
