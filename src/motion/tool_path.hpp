#pragma once

#include <array>
#include <variant>
#include <vector>

#include "kinematics/frame.hpp"

#include "motion/quintic.hpp"
#include "motion/rotation_vector.hpp"

namespace kelvara::motion {

/// A circle by its centre and two perpendicular radii; `s` is the arc's length from the first one.
struct Circle {
  kinematics::Vector3 center, x, y;  // m
  double radius;                     // m

  VectorRates at(double s) const;
};

/// The tool at one point of its path, with the derivatives by the path's parameter.
struct ToolPoint {
  kinematics::Rotation rotation;
  VectorRates position;  // m
  VectorRates angular;   // `first` and `second`: angular velocity and its derivative
};

/// A place in the terms of the segments that the caller gave.
struct PathPlace {
  int segment;      // from 1
  double fraction;  // of the segment
  double distance;  // from the segment's start, m; rad where the tool turns in place
  bool in_place;    // the tool turns in place
};

/// A stretch of the tool's path: a part of a line, of an arc, or the rounding of a corner. Its
/// parameter is the length in metres, of a rotation in place the angle in radians; a rounding's is
/// the length of the two stretches that it replaces. The orientation follows the shortest rotation
/// between the segment's ends, in proportion to the parameter.
class ToolPiece {
 public:
  /// The line between two frames. @param segment Its number in the caller's list, from 1.
  static ToolPiece line(const kinematics::Frame& from, const kinematics::Frame& to, int segment);
  /// The arc from `from` by `via` to `to`.
  /// @throws std::invalid_argument for three points on one line, and for two that coincide.
  static ToolPiece arc(const kinematics::Frame& from, const kinematics::Vector3& via,
                       const kinematics::Frame& to, int segment);
  /// Cuts the last `distance` off `before` and the first off `after`, two whole segments that meet,
  /// and returns what joins them with continuous curvature, within `distance` of their corner.
  static ToolPiece rounding(ToolPiece& before, ToolPiece& after, double distance);

  ToolPoint at(double s) const;
  double length() const { return length_; }
  bool in_place() const { return in_place_; }
  PathPlace place(double s) const;

 private:
  std::variant<Quintic<kinematics::Vector3>, Circle> position_;
  kinematics::Rotation reference_;         // what `rotation_` turns
  Quintic<kinematics::Vector3> rotation_;  // rotation vector, base frame
  double from_ = 0.0;                      // parameter of the curves at the piece's start
  double length_ = 0.0;
  bool in_place_ = false;
  int segment_ = 1;
  double segment_length_ = 0.0;  // of the whole segment
  double next_length_ = 0.0;     // of a rounding: of the segment after the corner
};

/// Pieces that the tool passes without stopping.
class ToolPath {
 public:
  explicit ToolPath(std::vector<ToolPiece> pieces);

  double length() const { return ends_.back(); }
  ToolPoint at(double s) const;
  PathPlace place(double s) const;
  /// The parameter at the end of each piece.
  const std::vector<double>& ends() const { return ends_; }

 private:
  std::size_t piece_at(double s) const;

  std::vector<ToolPiece> pieces_;
  std::vector<double> ends_;
};

}  // namespace kelvara::motion
