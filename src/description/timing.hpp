#pragma once

#include <chrono>
#include <cstddef>

/// The controller's periods and time-outs.
namespace kelvara::description {

// ---- Control thread ----
inline constexpr std::chrono::microseconds kControlPeriod{2500};  // 400 Hz
inline constexpr double kControlPeriodS = std::chrono::duration<double>(kControlPeriod).count();
inline constexpr std::chrono::milliseconds kFeedbackPeriod{5};
inline constexpr std::chrono::milliseconds kGripperPeriod{5};
inline constexpr std::chrono::seconds kClipReportPeriod{1};

// ---- Torque monitor ----
inline constexpr std::chrono::milliseconds kMonitorPeriod{20};
inline constexpr std::size_t kTorqueWindowSize = 10;  // passes that the average covers
inline constexpr double kWarnAfterS = 2.0;
inline constexpr double kStopAfterS = 6.0;

// ---- Motors ----
// The motors disable themselves when no frame reaches them for this long, in units of 50 µs: 50 ms.
inline constexpr unsigned kMotorTimeout = 1000;
inline constexpr std::chrono::milliseconds kMotorTimeoutTime{50};
inline constexpr unsigned kMotorTimeoutOff = 0;

// ---- How long the bus must be quiet before replies count as complete, µs ----
inline constexpr int kQuietInCycleUs = 100;
inline constexpr int kQuietAfterDisableUs = 1000;
inline constexpr int kQuietAfterCommandUs = 2000;
inline constexpr int kQuietAfterParameterUs = 20000;
inline constexpr int kQuietAfterEnableUs = 500;

}  // namespace kelvara::description
