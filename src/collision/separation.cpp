#include "collision/separation.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <optional>
#include <vector>

#include <fcl/narrowphase/distance.h>

namespace kelvara::collision {
namespace {

using Eigen::Vector3d;

constexpr double kGjkTolerance = 1e-9;  // m, where GJK stops
constexpr double kTouching = 1e-6;      // m; a shorter distance has no reliable direction
// The gap along GJK's direction must come this close to its distance, m.
constexpr double kTolerance = 1e-5;

// Turns of the search for the largest gap, rad: of every start, then of the best one.
constexpr double kFirstTurn = 0.2;
constexpr double kCoarseTurn = 0.01;
constexpr double kFineTurn = 1e-6;
constexpr int kTurnDirections = 8;
constexpr double kGoldenAngle = 2.399963229728653;  // rad, so that directions do not repeat
constexpr double kLeastGain = 1e-3;                 // m, times the square of the turn
constexpr std::size_t kStarts = 6;
constexpr double kMinCross = 1e-6;  // sine between axes that have a common normal

struct NearestPoints {
  double distance;
  Vector3d on_a, on_b;
};

/// The nearest points of two solids. Nothing when they touch and when FCL fails.
///
/// FCL's own penetration depth is not used: its expanding polytope algorithm ends the process on an
/// assertion for some pairs of boxes and cylinders.
std::optional<NearestPoints> nearest_points(const PlacedSolid& a, const PlacedSolid& b) try {
  fcl::DistanceRequestd request(true);
  request.distance_tolerance = kGjkTolerance;
  fcl::DistanceResultd result;
  fcl::distance(a.solid.geometry.get(), a.pose, b.solid.geometry.get(), b.pose, request, result);
  if (!(result.min_distance > kTouching)) {
    return std::nullopt;
  }
  return NearestPoints{result.min_distance, result.nearest_points[0], result.nearest_points[1]};
} catch (const std::exception&) {  // of a degenerate simplex
  return std::nullopt;
}

/// Turns the normal, by less and less, to where the gap is larger.
Separation widen(const PlacedSolid& a, const PlacedSolid& b, Separation best, double first_turn,
                 double last_turn) {
  double turn = first_turn;
  double angle = 0.0;
  while (turn > last_turn) {
    const Vector3d x = best.normal.unitOrthogonal();
    const Vector3d y = best.normal.cross(x);
    Separation wider = best;
    for (int i = 0; i < kTurnDirections; ++i) {
      angle += kGoldenAngle;
      const Vector3d turned =
          (best.normal + turn * (std::cos(angle) * x + std::sin(angle) * y)).normalized();
      if (const double width = gap(a, b, turned); width > wider.distance) {
        wider = {width, turned};
      }
    }
    const bool is_worthwhile = wider.distance > best.distance + kLeastGain * turn * turn;
    turn = is_worthwhile ? turn : 0.5 * turn;
    best = wider;
  }
  return best;
}

/// The directions among which the shortest way out of an overlap is, or near which: both solids'
/// axes, their common normals, and the line of the centres.
std::vector<Vector3d> candidate_normals(const PlacedSolid& a, const PlacedSolid& b) {
  std::vector<Vector3d> normals{b.pose.translation() - a.pose.translation()};
  for (int i = 0; i < 3; ++i) {
    normals.push_back(a.pose.linear().col(i));
    normals.push_back(b.pose.linear().col(i));
    for (int j = 0; j < 3; ++j) {
      normals.push_back(a.pose.linear().col(i).cross(b.pose.linear().col(j)));
    }
  }
  return normals;
}

/// Searches all directions for the largest gap, from the best ones of the candidates.
Separation search(const PlacedSolid& a, const PlacedSolid& b) {
  std::vector<Separation> starts;
  for (const Vector3d& direction : candidate_normals(a, b)) {
    if (direction.norm() > kMinCross) {
      const Vector3d normal = direction.normalized();
      starts.push_back({gap(a, b, normal), normal});
      starts.push_back({gap(a, b, -normal), -normal});
    }
  }
  const auto wider = [](const Separation& x, const Separation& y) {
    return x.distance > y.distance;
  };
  const std::size_t count = std::min(kStarts, starts.size());
  std::partial_sort(starts.begin(), starts.begin() + static_cast<std::ptrdiff_t>(count),
                    starts.end(), wider);
  starts.resize(count);
  for (Separation& start : starts) {
    start = widen(a, b, start, kFirstTurn, kCoarseTurn);
  }
  const Separation best = *std::min_element(starts.begin(), starts.end(), wider);
  return widen(a, b, best, kCoarseTurn, kFineTurn);
}

}  // namespace

double gap(const PlacedSolid& a, const PlacedSolid& b, const Vector3d& normal) {
  const Vector3d between = b.pose.translation() - a.pose.translation();
  return normal.dot(between) - a.solid.extent(a.pose.linear().transpose() * normal) -
         b.solid.extent(-(b.pose.linear().transpose() * normal));
}

Separation separation(const PlacedSolid& a, const PlacedSolid& b) {
  if (a.solid.is_floor()) {
    return {gap(a, b, Vector3d::UnitZ()), Vector3d::UnitZ()};
  }
  const std::optional<NearestPoints> nearest = nearest_points(a, b);
  if (!nearest) {
    return search(a, b);
  }
  const Vector3d normal = (nearest->on_b - nearest->on_a).normalized();
  const Separation found{gap(a, b, normal), normal};
  return nearest->distance - found.distance < kTolerance ? found : search(a, b);
}

Vector3d contact_point(const PlacedSolid& a, const PlacedSolid& b, const Separation& separation) {
  constexpr double kApart = 1e-4;  // m
  const Vector3d half_way = 0.5 * separation.distance * separation.normal;
  if (!a.solid.is_floor()) {
    // Moved apart along the normal, the solids have nearest points where they touch.
    PlacedSolid moved = b;
    moved.pose.translation() += (kApart - separation.distance) * separation.normal;
    if (const std::optional<NearestPoints> nearest = nearest_points(a, moved)) {
      return nearest->on_a + half_way;
    }
  }
  return b.pose * b.solid.support(-(b.pose.linear().transpose() * separation.normal)) - half_way;
}

}  // namespace kelvara::collision
