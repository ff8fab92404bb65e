#include "hardware/jaw_geometry.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "support/captured_output.hpp"

namespace kelvara::can::socket {
namespace {

TEST(JawGeometry, AngleAndDistanceAreInverse) {
  for (double distance = 0.0; distance <= 0.085; distance += 0.0005) {
    EXPECT_NEAR(jaw_distance_from_angle(jaw_angle_from_distance(distance)), distance, 1e-6);
  }
  // The ends of the jaws' travel are those of the motor's.
  EXPECT_NEAR(jaw_angle_from_distance(0.085), -1.235463, 2e-3);
  EXPECT_NEAR(jaw_angle_from_distance(0.0), 0.0, 2e-3);
  CapturedOutput output;
  EXPECT_EQ(jaw_distance_from_angle(1.056071 + M_PI / 2), -1.0);
  EXPECT_EQ(output.err().rfind("Error: Kinematics singularity, sqrt arg=", 0), 0U) << output.err();
}

}  // namespace
}  // namespace kelvara::can::socket
