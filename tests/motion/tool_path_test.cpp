#include "motion/tool_path.hpp"

#include <cmath>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

namespace kelvara::motion {
namespace {

using kinematics::Frame;
using kinematics::norm;
using kinematics::Rotation;
using kinematics::Vector3;

struct ToolPathGeometry : ::testing::Test {
  Vector3 vector(double size) {
    std::uniform_real_distribution<double> part(-1.0, 1.0);
    return size * kinematics::normalized({part(random), part(random), part(random)});
  }

  static double difference(const Rotation& A, const Rotation& B) {
    return norm(A.x - B.x) + norm(A.y - B.y) + norm(A.z - B.z);
  }

  Frame frame() { return {rotation_of(vector(2.0)), vector(0.5)}; }

  std::mt19937 random{5};
};

TEST_F(ToolPathGeometry, FindsTheRotationVectorAtEveryAngle) {
  for (const double angle : {0.0, 1e-9, 1e-3, 0.0999, 0.1001, 1.0, 2.0, 3.1, 3.1415926}) {
    for (int k = 0; k < 50; ++k) {
      const Vector3 phi = vector(angle);
      EXPECT_LT(norm(rotation_vector_of(rotation_of(phi)) - phi), 1e-14) << angle;
    }
  }
}

TEST_F(ToolPathGeometry, DerivesTheAngularVelocityOfARotationVector) {
  constexpr double h = 1e-4;
  for (int k = 0; k < 100; ++k) {
    const Quintic<Vector3> curve{{vector(0.03 * k), vector(1.0), vector(1.0), vector(1.0)}};
    const auto rates = angular_rates(curve.at(0.0));
    const auto turn = [&](double s) { return rotation_of(curve.at(s).value); };
    const Vector3 turned = (0.5 / h) * rotation_between(turn(-h), turn(h));
    EXPECT_LT(norm(rates.first - turned), 1e-6);
    const Vector3 change =
        (0.5 / h) * (angular_rates(curve.at(h)).first - angular_rates(curve.at(-h)).first);
    EXPECT_LT(norm(rates.second - change), 1e-6);
  }
}

TEST_F(ToolPathGeometry, LeadsArcsThroughTheirThreePoints) {
  for (int k = 0; k < 100; ++k) {
    const Frame from = frame();
    const Frame to = frame();
    const Vector3 via = vector(0.5);
    const ToolPiece arc = ToolPiece::arc(from, via, to, 1);
    EXPECT_LT(norm(arc.at(0.0).position.value - from.position), 1e-12);
    EXPECT_LT(norm(arc.at(arc.length()).position.value - to.position), 1e-12);
    EXPECT_LT(difference(arc.at(arc.length()).rotation, to.rotation), 1e-12);
    double nearest = 1.0;
    for (int i = 0; i <= 10000; ++i) {
      const Vector3 point = arc.at(arc.length() * i / 10000).position.value;
      nearest = std::min(nearest, norm(point - via));
    }
    EXPECT_LT(nearest, 1e-4 * arc.length());
  }
  const Frame origin;
  const Frame end{{}, {0.2, 0.0, 0.0}};
  EXPECT_THROW(ToolPiece::arc(origin, {0.1, 1e-9, 0.0}, end, 1), std::invalid_argument);
  EXPECT_THROW(ToolPiece::arc(origin, {0.1, 0.1, 0.0}, origin, 1), std::invalid_argument);
}

TEST_F(ToolPathGeometry, RoundsCornersSmoothlyWithinTheirDistance) {
  for (int k = 0; k < 100; ++k) {
    const Frame corner = frame();
    ToolPiece before = k % 2 == 0 ? ToolPiece::line(frame(), corner, 1)
                                  : ToolPiece::arc(frame(), vector(0.5), corner, 1);
    ToolPiece after = k % 3 == 0 ? ToolPiece::arc(corner, vector(0.5), frame(), 2)
                                 : ToolPiece::line(corner, frame(), 2);
    const double distance = 0.1 * std::min(before.length(), after.length());
    const ToolPiece rounding = ToolPiece::rounding(before, after, distance);
    const auto meet = [](const ToolPoint& left, const ToolPoint& right) {
      EXPECT_LT(norm(left.position.value - right.position.value), 1e-12);
      EXPECT_LT(norm(left.position.first - right.position.first), 1e-9);
      EXPECT_LT(norm(left.position.second - right.position.second), 1e-6);
      EXPECT_LT(difference(left.rotation, right.rotation), 1e-12);
      EXPECT_LT(norm(left.angular.first - right.angular.first), 1e-9);
      EXPECT_LT(norm(left.angular.second - right.angular.second), 1e-6);
    };
    meet(before.at(before.length()), rounding.at(0.0));
    meet(rounding.at(rounding.length()), after.at(0.0));
    for (int i = 0; i <= 100; ++i) {
      const ToolPoint point = rounding.at(rounding.length() * i / 100);
      EXPECT_LE(norm(point.position.value - corner.position), distance * (1.0 + 1e-9));
    }
  }
}

}  // namespace
}  // namespace kelvara::motion
