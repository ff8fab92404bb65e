#include "simulation/simulated_arm/jaw_linkage.hpp"

#include <gtest/gtest.h>

#include "hardware/jaw_geometry.hpp"
#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

TEST(JawLinkageTest, AgreesWithTheLibrarysConversion) {
  constexpr double kStep = 1e-6;  // rad
  for (int part = 0; part <= 100; ++part) {
    const double angle = kJawOpenAngle * part / 100.0;
    const double stroke = jaw_stroke_at(angle);
    EXPECT_NEAR(2.0 * stroke, can::socket::jaw_distance_from_angle(angle), 1e-12);
    EXPECT_NEAR(jaw_motor_angle_at(stroke), angle, 1e-9);
    const double slope =
        (jaw_stroke_at(angle + kStep) - jaw_stroke_at(angle - kStep)) / (2.0 * kStep);
    EXPECT_NEAR(jaw_ratio_at(angle), slope, 1e-8);
  }
}

}  // namespace
}  // namespace kelvara::simulation
