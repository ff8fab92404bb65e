#include "simulation/simulated_arm/jaw_linkage.hpp"

#include <gtest/gtest.h>

#include "hardware/jaw_geometry.hpp"
#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

TEST(JawLinkageTest, AgreesWithTheLibrarysConversion) {
  for (double angle = 0.0; angle >= kJawOpenAngle; angle -= 0.01) {
    const double stroke = jaw_stroke_at(angle);
    EXPECT_NEAR(2.0 * stroke, can::socket::jaw_distance_from_angle(angle), 1e-12);
    EXPECT_NEAR(jaw_motor_angle_at(stroke), angle, 1e-9);
    constexpr double kStep = 1e-6;
    const double slope = (jaw_stroke_at(angle + kStep) - jaw_stroke_at(angle - kStep)) / 2e-6;
    EXPECT_NEAR(jaw_ratio_at(angle), slope, 1e-8);
  }
}

}  // namespace
}  // namespace kelvara::simulation
