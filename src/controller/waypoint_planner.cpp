#include "controller/waypoint_planner.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace kelvara::controller {
namespace {

constexpr double kRepeatDistance = 1e-9;  // rad; closer points are one
constexpr int kScanIntervals = 64;
constexpr double kReportTolerance = 1.001;
constexpr double kMaxSteps = 1e15;  // beyond any memory

/// A quintic in normalised time with given velocities and zero acceleration at both ends.
struct Quintic {
  Quintic(double q0, double q1, double vs, double ve) : start(q0), velocity(vs) {
    const double delta = q1 - q0 - vs;
    const double dv = ve - vs;
    c3 = 10.0 * delta - 4.0 * dv;
    c4 = 7.0 * dv - 15.0 * delta;
    c5 = 6.0 * delta - 3.0 * dv;
  }
  double at(double s) const { return start + s * (velocity + s * s * (c3 + s * (c4 + s * c5))); }
  double first(double s) const {
    return velocity + s * s * (3.0 * c3 + s * (4.0 * c4 + s * 5.0 * c5));
  }
  double second(double s) const { return s * (6.0 * c3 + s * (12.0 * c4 + s * 20.0 * c5)); }
  double third(double s) const { return 6.0 * c3 + s * (24.0 * c4 + s * 60.0 * c5); }

  double start, velocity;
  double c3, c4, c5;
};

/// The motion from one point to the next; velocities in radians per whole segment.
struct Segment {
  JointArray q0{}, q1{}, vs{}, ve{};
  double duration = 0.0;  // s
  std::size_t steps = 1;

  Quintic joint(std::size_t j) const { return {q0[j], q1[j], vs[j], ve[j]}; }
};

std::vector<JointArray> drop_repeats(const JointArray& start,
                                     const std::vector<JointArray>& waypoints) {
  std::vector<JointArray> points{start};
  points.reserve(waypoints.size() + 1);
  for (const JointArray& point : waypoints) {
    double distance = 0.0;
    for (std::size_t j = 0; j < kJointCount; ++j) {
      distance = std::max(distance, std::abs(point[j] - points.back()[j]));
    }
    if (distance > kRepeatDistance) {
      points.push_back(point);
    }
  }
  return points;
}

/// The mean of the neighbouring steps where both go the same way; a joint stops where it turns.
double blend_velocity(double previous_step, double next_step) {
  return previous_step * next_step > 0.0 ? 0.5 * (previous_step + next_step) : 0.0;
}

std::vector<Segment> make_segments(const std::vector<JointArray>& points) {
  std::vector<Segment> segments(points.size() - 1);
  for (std::size_t i = 0; i < segments.size(); ++i) {
    Segment& segment = segments[i];
    segment.q0 = points[i];
    segment.q1 = points[i + 1];
    segment.vs = i == 0 ? JointArray{} : segments[i - 1].ve;
    segment.ve = {};
    for (std::size_t j = 0; i + 2 < points.size() && j < kJointCount; ++j) {
      segment.ve[j] =
          blend_velocity(points[i + 1][j] - points[i][j], points[i + 2][j] - points[i + 1][j]);
    }
  }
  return segments;
}

/// The shortest time in which the segment keeps the limits.
double limit_duration(const Segment& segment, const JointArray& max_velocity,
                      const JointTrajectoryConfig& limits, double shortest) {
  double T = shortest;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double v = max_velocity[j];
    const double a = limits.max_acc_limits[j];
    const double jerk = limits.max_jerk_limits[j];
    if (!(v > 0.0) || !(a > 0.0) || !(jerk > 0.0)) {  // also what is no number
      throw std::runtime_error("joint_trajectory max limits must be positive");
    }
    const double distance = std::max({std::abs(segment.ve[j]), std::abs(segment.vs[j]),
                                      std::abs(segment.q1[j] - segment.q0[j])});
    T = std::max({T, distance / v, std::sqrt(distance / a), std::cbrt(distance / jerk)});
    const Quintic quintic = segment.joint(j);
    double peak_velocity = 0.0, peak_acceleration = 0.0, peak_jerk = 0.0;
    for (int k = 0; k <= kScanIntervals; ++k) {
      const double s = static_cast<double>(k) / kScanIntervals;
      peak_velocity = std::max(peak_velocity, std::abs(quintic.first(s)));
      peak_acceleration = std::max(peak_acceleration, std::abs(quintic.second(s)));
      peak_jerk = std::max(peak_jerk, std::abs(quintic.third(s)));
    }
    T = std::max(
        {T, peak_velocity / v, std::sqrt(peak_acceleration / a), std::cbrt(peak_jerk / jerk)});
  }
  return T;
}

/// A number of steps as an index, at least `least`.
std::size_t to_steps(double steps, std::size_t least) {
  if (!(steps < kMaxSteps)) {
    throw std::length_error("the waypoint plan would be too large");
  }
  return std::max(static_cast<std::size_t>(std::max(steps, 0.0)), least);
}

/// Shares the requested number of steps out in proportion to the segments' durations.
void share_steps(std::vector<Segment>& segments, std::size_t total) {
  const double sum = std::accumulate(segments.begin(), segments.end(), 0.0,
                                     [](double s, const Segment& g) { return s + g.duration; });
  std::size_t given = 0;
  for (Segment& segment : segments) {
    segment.steps = sum > 0.0 ? to_steps(segment.duration / sum * static_cast<double>(total), 1)
                              : std::max<std::size_t>(total / segments.size(), 1);
    given += segment.steps;
  }
  for (std::size_t i = 0; given < total; i = (i + 1) % segments.size(), ++given) {
    ++segments[i].steps;
  }
  for (std::size_t i = 0; given > total && given > segments.size(); i = (i + 1) % segments.size()) {
    if (segments[i].steps > 1) {
      --segments[i].steps;
      --given;
    }
  }
}

/// The largest absolute rates that were sampled.
struct Peaks {
  JointArray velocity{};      // rad/s
  JointArray acceleration{};  // rad/s²
  JointArray jerk{};          // rad/s³
};

void sample_segment(const Segment& segment, bool first,
                    std::vector<WaypointTrajectorySample>& samples, Peaks& peaks) {
  const double T = segment.duration;
  for (std::size_t k = first ? 0 : 1; k <= segment.steps; ++k) {
    const double s = static_cast<double>(k) / static_cast<double>(segment.steps);
    WaypointTrajectorySample& sample = samples.emplace_back();
    for (std::size_t j = 0; j < kJointCount; ++j) {
      const Quintic quintic = segment.joint(j);
      sample.q[j] = quintic.at(s);
      sample.dq[j] = quintic.first(s) / T;
      sample.ddq[j] = quintic.second(s) / (T * T);
      peaks.velocity[j] = std::max(peaks.velocity[j], std::abs(sample.dq[j]));
      peaks.acceleration[j] = std::max(peaks.acceleration[j], std::abs(sample.ddq[j]));
      peaks.jerk[j] = std::max(peaks.jerk[j], std::abs(quintic.third(s) / (T * T * T)));
    }
  }
}

std::vector<std::string> report_limits(const Peaks& peaks, const JointTrajectoryConfig& limits,
                                       double time_s) {
  std::vector<std::string> lines;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    if (peaks.velocity[j] > kReportTolerance * limits.max_vel_limits[j] ||
        peaks.acceleration[j] > kReportTolerance * limits.max_acc_limits[j] ||
        peaks.jerk[j] > kReportTolerance * limits.max_jerk_limits[j]) {
      std::ostringstream line;
      line << "[move_joint_waypoints] requested time_sec=" << time_s << " exceeds joint " << j + 1
           << " trajectory limits: vmax " << peaks.velocity[j] << "/" << limits.max_vel_limits[j]
           << ", amax " << peaks.acceleration[j] << "/" << limits.max_acc_limits[j] << ", jmax "
           << peaks.jerk[j] << "/" << limits.max_jerk_limits[j];
      lines.push_back(line.str());
    }
  }
  return lines;
}

}  // namespace

WaypointPlan plan_waypoints(const JointArray& start, const std::vector<JointArray>& waypoints,
                            const JointTrajectoryConfig& limits, const WaypointOptions& options) {
  const std::vector<JointArray> points = drop_repeats(start, waypoints);
  WaypointPlan plan;
  if (points.size() < 2) {
    plan.samples.push_back({start, {}, {}});
    return plan;
  }
  const bool time_mode = options.time_s > 0.0;
  JointArray max_velocity = limits.max_vel_limits;
  for (double& velocity : max_velocity) {
    velocity *= time_mode ? 1.0 : options.speed;
  }
  std::vector<Segment> segments = make_segments(points);
  for (Segment& segment : segments) {
    const double T = limit_duration(segment, max_velocity, limits, 1.0 / options.control_hz);
    segment.steps = to_steps(std::ceil(T * options.control_hz), 1);
    segment.duration = static_cast<double>(segment.steps) / options.control_hz;
  }
  if (time_mode) {
    share_steps(segments,
                to_steps(std::round(options.time_s * options.control_hz), segments.size()));
  }
  std::size_t count = 1;
  for (Segment& segment : segments) {
    segment.duration = static_cast<double>(segment.steps) / options.control_hz;
    count += segment.steps;
  }
  plan.samples.reserve(count);
  Peaks peaks;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    sample_segment(segments[i], i == 0, plan.samples, peaks);
  }
  if (time_mode) {
    plan.limit_reports = report_limits(peaks, limits, options.time_s);
  }
  return plan;
}

}  // namespace kelvara::controller
