#include "motion/waypoint_planner.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

#include "description/classic_stream.hpp"

namespace kelvara::motion {
namespace {

using description::JointTrajectoryConfig;

constexpr double kRepeatDistance = 1e-9;  // rad; closer points are one
constexpr int kScanIntervals = 64;
constexpr double kReportTolerance = 1.001;
constexpr std::size_t kMaxSamples = kMaxPlanBytes / sizeof(WaypointTrajectorySample);

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

/// The largest absolute rates of one joint, or of its normalised segment.
struct Rates {
  double velocity = 0.0;
  double acceleration = 0.0;
  double jerk = 0.0;
};

Rates scan_peaks(const Quintic& quintic) {
  Rates peaks;
  for (int k = 0; k <= kScanIntervals; ++k) {
    const double s = static_cast<double>(k) / kScanIntervals;
    peaks.velocity = std::max(peaks.velocity, std::abs(quintic.first(s)));
    peaks.acceleration = std::max(peaks.acceleration, std::abs(quintic.second(s)));
    peaks.jerk = std::max(peaks.jerk, std::abs(quintic.third(s)));
  }
  return peaks;
}

/// The shortest duration at which rates of a normalised segment keep the limits.
double shortest_duration(const Rates& normalised, const Rates& limits) {
  return std::max({normalised.velocity / limits.velocity,
                   std::sqrt(normalised.acceleration / limits.acceleration),
                   std::cbrt(normalised.jerk / limits.jerk)});
}

/// The shortest time in which the segment keeps the limits, at least `shortest`.
double limit_duration(const Segment& segment, const JointArray& max_velocity,
                      const JointTrajectoryConfig& config, double shortest) {
  double T = shortest;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const Rates limits{max_velocity[j], config.max_acc_limits[j], config.max_jerk_limits[j]};
    if (!(limits.velocity > 0.0 && limits.acceleration > 0.0 && limits.jerk > 0.0)) {  // or NaN
      throw std::runtime_error("joint_trajectory max limits must be positive");
    }
    const double distance = std::max({std::abs(segment.ve[j]), std::abs(segment.vs[j]),
                                      std::abs(segment.q1[j] - segment.q0[j])});
    T = std::max({T, shortest_duration({distance, distance, distance}, limits),
                  shortest_duration(scan_peaks(segment.joint(j)), limits)});
  }
  return T;
}

[[noreturn]] void refuse_size() { throw std::length_error("the waypoint plan would be too large"); }

/// A number of steps as an index, at least `least`.
std::size_t to_steps(double steps, std::size_t least) {
  if (!(steps < static_cast<double>(kMaxSamples))) {  // or NaN
    refuse_size();
  }
  return std::max(static_cast<std::size_t>(std::max(steps, 0.0)), least);
}

/// Distributes the requested number of steps in proportion to the segments' durations.
void distribute_steps(std::vector<Segment>& segments, std::size_t total) {
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

using JointRates = std::array<Rates, kJointCount>;

void sample_segment(const Segment& segment, bool first,
                    std::vector<WaypointTrajectorySample>& samples, JointRates& peaks) {
  const double T = segment.duration;
  for (std::size_t k = first ? 0 : 1; k <= segment.steps; ++k) {
    const double s = static_cast<double>(k) / static_cast<double>(segment.steps);
    WaypointTrajectorySample& sample = samples.emplace_back();
    for (std::size_t j = 0; j < kJointCount; ++j) {
      const Quintic quintic = segment.joint(j);
      sample.q[j] = quintic.at(s);
      sample.dq[j] = quintic.first(s) / T;
      sample.ddq[j] = quintic.second(s) / (T * T);
      peaks[j].velocity = std::max(peaks[j].velocity, std::abs(sample.dq[j]));
      peaks[j].acceleration = std::max(peaks[j].acceleration, std::abs(sample.ddq[j]));
      peaks[j].jerk = std::max(peaks[j].jerk, std::abs(quintic.third(s) / (T * T * T)));
    }
  }
}

/// One line for each joint whose limits the requested time exceeds.
std::vector<std::string> report_limits(const JointRates& peaks, const JointTrajectoryConfig& config,
                                       double time_s) {
  std::vector<std::string> lines;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const Rates limits{config.max_vel_limits[j], config.max_acc_limits[j],
                       config.max_jerk_limits[j]};
    if (peaks[j].velocity > kReportTolerance * limits.velocity ||
        peaks[j].acceleration > kReportTolerance * limits.acceleration ||
        peaks[j].jerk > kReportTolerance * limits.jerk) {
      description::ClassicStream line;
      line << "[move_joint_waypoints] requested time_sec=" << time_s << " exceeds joint " << j + 1
           << " trajectory limits: vmax " << peaks[j].velocity << "/" << limits.velocity
           << ", amax " << peaks[j].acceleration << "/" << limits.acceleration << ", jmax "
           << peaks[j].jerk << "/" << limits.jerk;
      lines.push_back(line.str());
    }
  }
  return lines;
}

/// Gives every segment its number of steps and its duration.
void time_segments(std::vector<Segment>& segments, const JointTrajectoryConfig& config,
                   const WaypointOptions& options) {
  const double hz = options.control_hz;
  const bool time_mode = options.time_s > 0.0;
  JointArray max_velocity = config.max_vel_limits;
  for (double& velocity : max_velocity) {
    velocity *= time_mode ? 1.0 : options.speed;
  }
  for (Segment& segment : segments) {
    const double T = limit_duration(segment, max_velocity, config, 1.0 / hz);
    segment.steps = to_steps(std::ceil(T * hz), 1);
    segment.duration = static_cast<double>(segment.steps) / hz;
  }
  if (time_mode) {
    distribute_steps(segments, to_steps(std::round(options.time_s * hz), segments.size()));
  }
  for (Segment& segment : segments) {
    segment.duration = static_cast<double>(segment.steps) / hz;
  }
}

/// Samples the whole motion into storage that is reserved once; returns the peak rates.
JointRates sample_segments(const std::vector<Segment>& segments,
                           std::vector<WaypointTrajectorySample>& samples) {
  const std::size_t count =
      std::accumulate(segments.begin(), segments.end(), std::size_t{1},
                      [](std::size_t n, const Segment& g) { return n + g.steps; });
  if (count > kMaxSamples) {
    refuse_size();
  }
  samples.reserve(count);
  JointRates peaks;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    sample_segment(segments[i], i == 0, samples, peaks);
  }
  return peaks;
}

}  // namespace

WaypointPlan plan_waypoints(const JointArray& start, const std::vector<JointArray>& waypoints,
                            const JointTrajectoryConfig& config, const WaypointOptions& options) {
  const std::vector<JointArray> points = drop_repeats(start, waypoints);
  WaypointPlan plan;
  if (points.size() < 2) {
    plan.samples.push_back({start, {}, {}});
    return plan;
  }
  std::vector<Segment> segments = make_segments(points);
  time_segments(segments, config, options);
  const JointRates peaks = sample_segments(segments, plan.samples);
  if (options.time_s > 0.0) {
    plan.limit_reports = report_limits(peaks, config, options.time_s);
  }
  return plan;
}

}  // namespace kelvara::motion
