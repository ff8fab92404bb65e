#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "kelvara/export.hpp"
#include "kelvara/motion_error.hpp"

namespace kelvara {

/// The state of the joints at one instant of a plan.
struct PlanSample {
  std::array<double, 6> q{};    // rad
  std::array<double, 6> dq{};   // rad/s
  std::array<double, 6> ddq{};  // rad/s²
};

/// What a plan demands of the arm. The peaks are absolute values over all samples.
struct PlanReport {
  std::array<double, 6> peak_velocity{};       // rad/s
  std::array<double, 6> peak_acceleration{};   // rad/s²
  std::array<double, 6> peak_jerk{};           // rad/s³, of successive samples' accelerations
  std::array<double, 6> peak_torque{};         // N·m, of links, payload and drives
  std::array<double, 6> velocity_limit{};      // the limits that it was planned with, likewise
  std::array<double, 6> acceleration_limit{};  // rad/s²
  std::array<double, 6> jerk_limit{};          // rad/s³
  std::array<double, 6> torque_limit{};        // N·m
  double smallest_singular_value = 0.0;        // of the tool's Jacobian (m/rad and rad/rad)
  double tool_path_m = 0.0;                    // length of the tool's path
  double tool_rotation_rad = 0.0;              // angle that the tool turns through
  double peak_tool_speed = 0.0;                // m/s
  double peak_tool_angular_speed = 0.0;        // rad/s
};

/// A motion that can be looked at before anything moves: samples at 400 Hz from its first to its
/// last instant. A value; any thread.
class KELVARA_EXPORT Plan {
 public:
  static constexpr double kSamplePeriodS = 0.0025;

  /// A plan without samples; it cannot be executed.
  Plan();
  /// @param duration_s Time of the last sample. Sample k stands at k * kSamplePeriodS, the last one
  ///                   at the end, up to a period after the one before it.
  /// @throws std::invalid_argument when the number of samples does not match the duration, and for
  ///         values that are not finite.
  Plan(std::vector<PlanSample> samples, double duration_s, const PlanReport& report);
  Plan(const Plan&);
  Plan(Plan&&) noexcept;
  Plan& operator=(const Plan&);
  Plan& operator=(Plan&&) noexcept;
  ~Plan();

  bool empty() const { return samples_.empty(); }
  double duration_s() const { return duration_s_; }
  const std::vector<PlanSample>& samples() const { return samples_; }
  const PlanReport& report() const { return report_; }
  /// Time of a sample, s.
  double sample_time_s(std::size_t index) const;
  /// The state at any time, interpolated between samples by polynomials of the fifth degree, which
  /// meet position, velocity and acceleration; before the first and after the last sample these at
  /// rest. Does not allocate. Must not be called on an empty plan.
  PlanSample at(double time_s) const;

 private:
  std::vector<PlanSample> samples_;
  double duration_s_ = 0.0;
  PlanReport report_;
};

}  // namespace kelvara
