#include "collision/separation.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace kelvara::collision {
namespace {

/// Solids of all four shapes at random places; `step` > 0: sizes and places on a grid, axes
/// parallel, which is where faces and edges coincide.
class RandomSolids {
 public:
  explicit RandomSolids(double step) : step_(step) {}

  Solid solid(int shape) {
    const double a = size(), b = size(), c = size();
    Solid solid = shape == 0   ? Solid::box({a, b, c})
                  : shape == 1 ? Solid::cylinder(a, b)
                  : shape == 2 ? Solid::sphere(a)
                               : Solid::capsule(a, b);
    solid.pose.translation() << place(), place(), place();
    const double turn = step_ > 0.0 ? M_PI / 2 * std::floor(uniform(0, 4)) : uniform(0, 3);
    const Eigen::Vector3d axis = step_ > 0.0 ? Eigen::Vector3d::UnitX() : direction();
    solid.pose.linear() = Eigen::AngleAxisd(turn, axis).toRotationMatrix();
    return solid;
  }

  Eigen::Vector3d direction() {
    std::normal_distribution<double> normal;
    return Eigen::Vector3d(normal(random_), normal(random_), normal(random_)).normalized();
  }

 private:
  double uniform(double lower, double upper) {
    return std::uniform_real_distribution<double>(lower, upper)(random_);
  }
  double on_grid(double value) const {
    return step_ > 0.0 ? step_ * std::round(value / step_) : value;
  }
  double size() { return std::max(0.02, on_grid(uniform(0.02, 0.2))); }
  double place() { return on_grid(uniform(-0.15, 0.15)); }

  double step_;
  std::mt19937 random_{1};
};

TEST(Separation, IsTheLargestGapOfAllDirections) {
  for (const double step : {0.0, 0.01}) {
    RandomSolids random(step);
    for (int i = 0; i < 16 * 60; ++i) {
      const Solid first = random.solid(i % 4), second = random.solid(i / 4 % 4);
      const PlacedSolid a{first, first.pose}, b{second, second.pose};
      const Separation found = separation(a, b);
      EXPECT_NEAR(found.normal.norm(), 1.0, 1e-9) << i;
      EXPECT_NEAR(gap(a, b, found.normal), found.distance, 1e-12) << i;
      for (int k = 0; k < 2000; ++k) {
        // The search may miss the best of several ways out of a deep overlap by a little.
        ASSERT_LE(gap(a, b, random.direction()), found.distance + 5e-4) << i << " step " << step;
      }
    }
  }
}

TEST(Separation, IsExactForFacesAndRounds) {
  Solid tile = Solid::box({0.4, 0.4, 0.02});
  Solid rod = Solid::cylinder(0.03, 0.2);
  rod.pose.linear() = Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitX()).toRotationMatrix();
  for (const double distance : {0.05, 1e-4, 0.0, -0.004}) {
    rod.pose.translation() << 0.1, 0.05, 0.01 + 0.03 + distance;
    const PlacedSolid a{tile, tile.pose}, b{rod, rod.pose};
    const Separation found = separation(a, b);
    EXPECT_NEAR(found.distance, distance, 1e-6);
    const Eigen::Vector3d point = contact_point(a, b, found);
    EXPECT_NEAR(point.x(), 0.1, 1e-3);
    EXPECT_LE(std::abs(point.y() - 0.05), 0.1 + 1e-6);
    EXPECT_NEAR(point.z(), 0.01 + 0.5 * distance, 1e-6);
  }
}

}  // namespace
}  // namespace kelvara::collision
