#include "motion/tool_path.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace kelvara::motion {
namespace {

using kinematics::cross;
using kinematics::dot;
using kinematics::Frame;
using kinematics::norm;
using kinematics::Vector3;

constexpr double kPi = 3.14159265358979323846;
// A segment with less translation than this for each radian turns in place.
constexpr double kInPlace = 1e-3;  // m/rad
// Sine of the angle between two chords of an arc below which its three points lie on one line.
constexpr double kStraight = 1e-6;
constexpr double kCoincident = 1e-6;  // m, two points of an arc

void check_arc(const Vector3& to_via, const Vector3& to_end) {
  const double via = norm(to_via);
  const double end = norm(to_end);
  if (via < kCoincident || end < kCoincident || norm(to_end - to_via) < kCoincident) {
    throw std::invalid_argument(
        "arc: start, via and end must be three different points (two arcs make a full circle)");
  }
  if (norm(cross(to_via, to_end)) < kStraight * via * end) {
    throw std::invalid_argument("arc: start, via and end lie on one line");
  }
}

/// The circle through the origin and two points, relative to `origin`.
Circle circle_through(const Vector3& origin, const Vector3& via, const Vector3& end) {
  const Vector3 normal = cross(via, end);
  const Vector3 across = dot(via, via) * end - dot(end, end) * via;
  const Vector3 to_center = (0.5 / dot(normal, normal)) * cross(across, normal);
  const Vector3 x = -1.0 * to_center;
  return {origin + to_center, x, cross(kinematics::normalized(normal), x), norm(x)};
}

}  // namespace

VectorRates Circle::at(double s) const {
  const double angle = s / radius;
  const double c = std::cos(angle);
  const double sine = std::sin(angle);
  const Vector3 out = c * x + sine * y;
  return {center + out, (1.0 / radius) * (c * y - sine * x), (-1.0 / (radius * radius)) * out};
}

ToolPiece ToolPiece::line(const Frame& from, const Frame& to, int segment) {
  const Vector3 way = to.position - from.position;
  const Vector3 turn = rotation_between(from.rotation, to.rotation);
  ToolPiece piece;
  piece.in_place_ = norm(way) < kInPlace * norm(turn);
  piece.length_ = piece.in_place_ ? norm(turn) : norm(way);
  const double scale = piece.length_ > 0.0 ? 1.0 / piece.length_ : 0.0;
  piece.position_ = Quintic<Vector3>{{from.position, scale * way}};
  piece.reference_ = from.rotation;
  piece.rotation_ = Quintic<Vector3>{{Vector3{}, scale * turn}};
  piece.segment_ = segment;
  piece.segment_length_ = piece.length_;
  return piece;
}

ToolPiece ToolPiece::arc(const Frame& from, const Vector3& via, const Frame& to, int segment) {
  const Vector3 to_via = via - from.position;
  const Vector3 to_end = to.position - from.position;
  check_arc(to_via, to_end);
  const Circle circle = circle_through(from.position, to_via, to_end);
  const Vector3 end = to.position - circle.center;
  const double angle = std::atan2(dot(end, circle.y), dot(end, circle.x));
  ToolPiece piece = line(from, to, segment);
  piece.in_place_ = false;
  piece.length_ = circle.radius * (angle < 0.0 ? angle + 2.0 * kPi : angle);
  piece.segment_length_ = piece.length_;
  piece.position_ = circle;
  const Vector3 turn = rotation_between(from.rotation, to.rotation);
  piece.rotation_ = Quintic<Vector3>{{Vector3{}, (1.0 / piece.length_) * turn}};
  return piece;
}

ToolPiece ToolPiece::rounding(ToolPiece& before, ToolPiece& after, double distance) {
  const double leave = before.length_ - distance;
  ToolPiece piece;
  piece.length_ = 2.0 * distance;
  piece.position_ = Quintic<Vector3>::between(before.at(leave).position,
                                              after.at(distance).position, piece.length_);
  // Both segments' rotations are linear in rotation vectors from the corner.
  piece.reference_ = after.reference_;
  const Vector3 turn_before = before.rotation_.c[1];
  const Vector3 turn_after = after.rotation_.c[1];
  piece.rotation_ =
      Quintic<Vector3>::between({-distance * turn_before, turn_before, {}},
                                {distance * turn_after, turn_after, {}}, piece.length_);
  piece.segment_ = before.segment_;
  piece.segment_length_ = before.segment_length_;
  piece.next_length_ = after.segment_length_;
  before.length_ = leave;
  after.from_ = distance;
  after.length_ -= distance;
  return piece;
}

ToolPoint ToolPiece::at(double s) const {
  const double u = from_ + s;
  const VectorRates turn = rotation_.at(u);
  return {rotation_of(turn.value) * reference_,
          std::visit([u](const auto& curve) { return curve.at(u); }, position_),
          angular_rates(turn)};
}

PathPlace ToolPiece::place(double s) const {
  const bool rounds = next_length_ > 0.0;
  const double half = 0.5 * length_;
  if (rounds && s > half) {
    return {segment_ + 1, (s - half) / next_length_, s - half, false};
  }
  const double distance = rounds ? segment_length_ - half + s : from_ + s;
  return {segment_, segment_length_ > 0.0 ? distance / segment_length_ : 0.0, distance, in_place_};
}

ToolPath::ToolPath(std::vector<ToolPiece> pieces) : pieces_(std::move(pieces)) {
  double end = 0.0;
  for (const ToolPiece& piece : pieces_) {
    ends_.push_back(end += piece.length());
  }
}

std::size_t ToolPath::piece_at(double s) const {
  const auto found = std::upper_bound(ends_.begin(), ends_.end() - 1, s);
  return static_cast<std::size_t>(found - ends_.begin());
}

ToolPoint ToolPath::at(double s) const {
  const std::size_t k = piece_at(s);
  return pieces_[k].at(k == 0 ? s : s - ends_[k - 1]);
}

PathPlace ToolPath::place(double s) const {
  const std::size_t k = piece_at(s);
  return pieces_[k].place(k == 0 ? s : s - ends_[k - 1]);
}

}  // namespace kelvara::motion
