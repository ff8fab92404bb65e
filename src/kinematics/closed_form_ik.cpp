#include "kinematics/closed_form_ik.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::kinematics {
namespace {

// Seeds. The values are those with which the solutions of disturbed arms were found most often and
// fastest.
constexpr double kSeedInset = 0.25;  // of the slack: how far inside a boundary
constexpr double kMaxSpread = 0.2;   // rad; Newton steps bridge more
constexpr double kAnyTurn = 7.0;     // rad; a margin that every angle keeps to
constexpr int kSweep = 180;          // angles tried at most where one is free
constexpr int kSeedSweep = 12;       // angles that seeds are taken at
constexpr double kTurn = 2.0 * 3.14159265358979323846;

/// Turns a vector about a unit axis.
Vector3 turned(const Vector3& axis, const Planar& turn, const Vector3& v) {
  return turn.x * v + turn.y * cross(axis, v) + ((1.0 - turn.x) * dot(axis, v)) * axis;
}

/// The two turns with a·cos + b·sin = d.
struct TwoTurns {
  std::array<Planar, 2> turns;
  int count = 0;
};

/// @param square r² - d², where r² = a² + b²: the caller knows it without cancellation.
TwoTurns two_turns(const Planar& ab, double d, double square) {
  const double root = std::sqrt(square);
  TwoTurns found;
  found.turns[0] = unit(ab * Planar{d, root});
  found.turns[1] = unit(ab * Planar{d, -root});
  found.count = square > 0.0 ? 2 : 1;
  return found;
}

}  // namespace

ClosedFormIk::Branch ClosedFormIk::start() const {
  Branch branch;
  branch.angle = tolerance_.angle;
  branch.distance = tolerance_.distance;
  branch.margin = tolerance_.range;
  return branch;
}

/// Lets the next steps of seeds be as inexact as an angle that this one found.
void ClosedFormIk::widen(Branch& branch, double error) const {
  if (tolerance_.seeds) {
    const double spread = std::min(error, kMaxSpread);
    branch.angle += spread;
    branch.distance += spread * norm(g_.wrist_to_axis4);
    branch.margin += std::min(error, kAnyTurn);
  }
}

bool ClosedFormIk::fits(Branch& branch, std::size_t joint) const {
  const bool fit = ranges_[joint].fit(branch.q[joint], branch.margin);
  branch.clamped |= branch.q[joint] == ranges_[joint].lower;
  branch.clamped |= branch.q[joint] == ranges_[joint].upper;
  return fit;
}

/// Returns whether a square below zero is one within the slack, and sets it to 0; for seeds, moves
/// a square near zero away from it, so that there are turns on both sides of the boundary.
bool ClosedFormIk::bound(Branch& branch, double& square, double slack) const {
  if (square < -slack) {
    return false;
  }
  branch.clamped |= square < 0.0;
  square = std::max(square, tolerance_.seeds ? kSeedInset * slack : 0.0);
  return true;
}

/// Tries the hint and angles at growing distance from it; all of them for seeds, else until one has
/// solutions.
template <typename Step>
bool ClosedFormIk::sweep(double hint, Step step) const {
  const int count = tolerance_.seeds ? kSeedSweep : kSweep;
  bool any = false;
  for (int k = 0; k < count && (tolerance_.seeds || !any); ++k) {
    const int offset = k % 2 == 0 ? k / 2 : -(k + 1) / 2;
    any = step(unit_at(hint + offset * (kTurn / count))) || any;
  }
  return any;
}

void ClosedFormIk::solve(const Frame& target, CandidateSink& sink) {
  solve_shoulder(target * g_.home_inverse, sink);
}

bool ClosedFormIk::solve_shoulder(const Frame& T, CandidateSink& sink) {
  const Vector3 arm = T.rotation * g_.wrist + T.position - g_.point1;
  const double along = dot(g_.axis1, arm);
  const Vector3 across = arm - along * g_.axis1;
  const Planar ab{dot(g_.normal, across), -dot(g_.normal, cross(g_.axis1, arm))};
  const double d = dot(g_.normal, g_.wrist - g_.point1) - along * dot(g_.normal, g_.axis1);
  const double r = norm(ab);
  const double slack = tolerance_.distance;
  if (r < slack && std::abs(d) < slack) {
    Branch branch = start();
    branch.free = true;
    widen(branch, kAnyTurn);
    return sweep(hint_[0],
                 [&](const Planar& turn) { return enter_wrist(branch, T, arm, turn, sink); });
  }
  double square = (r - d) * (r + d);
  Branch branch = start();
  if (!bound(branch, square, 2.0 * slack * (r + slack))) {
    return false;
  }
  widen(branch, 2.0 * slack / std::sqrt(square));
  bool any = false;
  const TwoTurns found = two_turns(ab, d, square);
  for (int k = 0; k < found.count; ++k) {
    any = enter_wrist(branch, T, arm, found.turns[k], sink) || any;
  }
  return any;
}

bool ClosedFormIk::enter_wrist(Branch branch, const Frame& T, const Vector3& arm,
                               const Planar& turn1, CandidateSink& sink) {
  branch.q[0] = angle_of(turn1);
  if (!fits(branch, 0)) {
    return false;
  }
  const Planar back = conjugate(turn1);
  branch.rotation = {turned(g_.axis1, back, T.rotation.x), turned(g_.axis1, back, T.rotation.y),
                     turned(g_.axis1, back, T.rotation.z)};
  branch.wrist = g_.in_plane(turned(g_.axis1, back, arm) + g_.point1);
  return solve_wrist(branch, sink);
}

bool ClosedFormIk::solve_wrist(Branch& branch, CandidateSink& sink) {
  const Vector3 axis6 = branch.rotation * g_.axis6;
  const double d = dot(g_.normal, axis6);
  const double sine_squared = squared_norm(g_.in_plane(axis6));
  // n·R5·axis6 = k + r·cos(angle of joint 5 - some angle); k ± r is ±1 where axis 6 can come to lie
  // along n, and 1 ± d is taken from the sine there.
  const double k = dot(g_.normal, g_.axis5) * dot(g_.axis5, g_.axis6);
  const Planar ab{dot(g_.normal, g_.axis6) - k, dot(g_.normal, cross(g_.axis5, g_.axis6))};
  const double r = norm(ab);
  const double below = d > 0.0 ? (r + k - 1.0) + sine_squared / (1.0 + d) : r + k - d;
  const double above = d < 0.0 ? (r - k - 1.0) + sine_squared / (1.0 - d) : r - k + d;
  double square = below * above;
  if (!bound(branch, square, 2.0 * branch.angle * r)) {
    return false;
  }
  const bool aligned = sine_squared < branch.angle * branch.angle;
  widen(branch, 2.0 * branch.angle / std::sqrt(sine_squared));
  bool any = false;
  const TwoTurns found = two_turns(ab, d - k, square);
  for (int i = 0; i < found.count; ++i) {
    any = (aligned ? free_forearm(branch, found.turns[i], sink)
                   : enter_forearm(branch, found.turns[i], sink)) ||
          any;
  }
  return any;
}

/// Sets φ from the direction of axis 6.
bool ClosedFormIk::enter_forearm(const Branch& branch, const Planar& turn5, CandidateSink& sink) {
  Branch next = branch;
  next.q[4] = angle_of(turn5);
  if (!fits(next, 4)) {
    return false;
  }
  const Planar from = g_.in_plane(turned(g_.axis5, turn5, g_.axis6));
  const Planar to = g_.in_plane(branch.rotation * g_.axis6);
  next.turn_phi = unit(to * conjugate(from));
  return set_joint6(next, turn5) && solve_elbow(next, sink);
}

/// Sets φ from an angle of joint 6, where axis 6 is along n.
bool ClosedFormIk::free_forearm(const Branch& branch, const Planar& turn5, CandidateSink& sink) {
  Branch next = branch;
  next.q[4] = angle_of(turn5);
  next.free = true;
  if (!fits(next, 4)) {
    return false;
  }
  const Planar to = g_.in_plane(branch.rotation * g_.mark6);
  return sweep(hint_[5], [&](const Planar& turn6) {
    const Vector3 mark = turn6.x * g_.mark6 + turn6.y * g_.side6;
    next.turn_phi = unit(to * conjugate(g_.in_plane(turned(g_.axis5, turn5, mark))));
    return set_joint6(next, turn5) && solve_elbow(next, sink);
  });
}

bool ClosedFormIk::set_joint6(Branch& branch, const Planar& turn5) const {
  const Vector3 mark =
      turned(g_.axis5, conjugate(turn5),
             turned(g_.normal, conjugate(branch.turn_phi), branch.rotation * g_.mark6));
  branch.q[5] = std::atan2(dot(g_.side6, mark), dot(g_.mark6, mark));
  branch.phi = angle_of(branch.turn_phi);
  return fits(branch, 5);
}

bool ClosedFormIk::solve_elbow(Branch& branch, CandidateSink& sink) {
  const Planar target = branch.wrist + branch.turn_phi * g_.wrist_to_axis4 - g_.point2;
  const double upper = norm(g_.upper_arm);
  const double fore = norm(g_.forearm);
  const double product = 2.0 * upper * fore;
  const double distance = norm(target);
  const double longest = upper + fore;
  const double shortest = std::abs(upper - fore);
  double square = (longest - distance) * (longest + distance) * (distance - shortest) *
                  (distance + shortest) / (product * product);
  const double slack = branch.distance * longest * longest * longest / (product * product);
  if (distance > longest + branch.distance || distance < shortest - branch.distance ||
      !bound(branch, square, 8.0 * slack)) {
    return false;
  }
  widen(branch, 4.0 * slack / std::sqrt(square));
  const double cosine = (distance * distance - upper * upper - fore * fore) / product;
  const double sine = std::sqrt(square);
  const bool straight = place_elbow(branch, target, {cosine, sine}, sink);
  return (sine > 0.0 && place_elbow(branch, target, {cosine, -sine}, sink)) || straight;
}

/// @param bend The forearm's direction, the upper arm's being 1.
bool ClosedFormIk::place_elbow(const Branch& branch, const Planar& target, const Planar& bend,
                               CandidateSink& sink) {
  Branch next = branch;
  const Planar turn3 = unit(bend * g_.upper_arm * conjugate(g_.forearm));
  const double beta = angle_of(turn3);
  next.q[2] = g_.sign3 * beta;
  if (!fits(next, 2)) {
    return false;
  }
  const Planar arm = g_.upper_arm + turn3 * g_.forearm;
  if (norm(target) < tolerance_.distance || norm(arm) < tolerance_.distance) {
    next.free = true;
    return sweep(hint_[1], [&](const Planar& turn2) { return finish(next, turn2, beta, sink); });
  }
  return finish(next, target * conjugate(arm), beta, sink);
}

bool ClosedFormIk::finish(Branch& branch, const Planar& turn2, double beta, CandidateSink& sink) {
  branch.q[1] = angle_of(turn2);
  branch.q[3] = g_.sign4 * (branch.phi - branch.q[1] - beta);
  return fits(branch, 1) && fits(branch, 3) && sink.take(branch);
}

}  // namespace kelvara::kinematics
