#include "kelvara/damiao_motor/motor.hpp"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvara::damiao_motor {
namespace {

TEST(Motor, RejectsTypesBeyondTheTableAndStoresRegisterValues) {
  try {
    Motor::get_limit_param(static_cast<MotorType>(13));
    FAIL() << "type 13 was accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "Invalid motor type: 13");
  }
  const auto [p, v, t] = Motor::get_limit_param(static_cast<MotorType>(8));
  EXPECT_THAT((std::array{p, v, t}), ::testing::ElementsAre(12.5, 25, 200));
  Motor motor(MotorType::V8_T28, 1, 0x11);
  EXPECT_EQ(motor.get_param(4), -1.0);
  motor.set_temp_param(4, 30.0);
  EXPECT_EQ(motor.get_param(4), 30.0);
}

}  // namespace
}  // namespace kelvara::damiao_motor
