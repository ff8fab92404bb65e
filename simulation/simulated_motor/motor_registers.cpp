#include "simulation/simulated_motor/motor_registers.hpp"

#include <cmath>

#include "simulation/simulated_motor/motor_frames.hpp"

namespace kelvara::simulation {
namespace {

constexpr std::uint8_t kAcceleration = 4;
constexpr std::uint8_t kDeceleration = 5;
constexpr std::uint8_t kMasterId = 7;
constexpr std::uint8_t kMotorId = 8;
constexpr std::uint8_t kTimeout = 9;
constexpr std::uint8_t kControlMode = 10;
constexpr std::uint8_t kPositionRange = 21;
constexpr std::uint8_t kVelocityRange = 22;
constexpr std::uint8_t kTorqueRange = 23;
constexpr std::uint8_t kPositionGain = 27;
constexpr double kTimeoutUnitS = 50e-6;

std::uint32_t bits_of_range(double range) { return bits_of(static_cast<float>(range)); }

}  // namespace

MotorRegisters::MotorRegisters(const MotorModel& model, unsigned can_id, unsigned master_id)
    : values_{{kAcceleration, bits_of(2.0F)},
              {kDeceleration, bits_of(2.0F)},
              {kMasterId, master_id},
              {kMotorId, can_id},
              {kTimeout, 0},
              {kControlMode, kMitMode},
              {kPositionRange, bits_of_range(model.pmax)},
              {kVelocityRange, bits_of_range(model.vmax)},
              {kTorqueRange, bits_of_range(model.tmax)},
              {kPositionGain, bits_of(10.0F)}} {}

void MotorRegisters::write(std::uint8_t rid, std::uint32_t value) {
  const bool known_mode = value == kMitMode || value == kPositionVelocityMode;
  const bool range = rid >= kPositionRange && rid <= kTorqueRange;
  const bool tuning = rid == kAcceleration || rid == kDeceleration || rid == kPositionGain;
  if (read_only_ || range || (rid == kControlMode && !known_mode) ||
      (tuning && !std::isfinite(float_of(value)))) {
    return;
  }
  values_[rid] = value;
}

std::uint32_t MotorRegisters::read(std::uint8_t rid) const {
  const auto entry = values_.find(rid);
  return entry == values_.end() ? 0U : entry->second;
}

double MotorRegisters::number(std::uint8_t rid) const { return float_of(read(rid)); }

unsigned MotorRegisters::control_mode() const { return read(kControlMode); }
double MotorRegisters::acceleration() const { return std::abs(number(kAcceleration)); }
double MotorRegisters::deceleration() const { return std::abs(number(kDeceleration)); }
double MotorRegisters::position_gain() const { return number(kPositionGain); }
double MotorRegisters::timeout_s() const { return read(kTimeout) * kTimeoutUnitS; }

}  // namespace kelvara::simulation
