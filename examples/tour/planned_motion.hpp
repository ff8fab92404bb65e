#pragma once

#include <string>

#include <kelvara/arm_controller.hpp>
#include <kelvara/kinematics/kinematics.hpp>

#include "tour/results.hpp"

namespace tour {

/// The steps of the tour that are planned before they start, and waited for by their handles.
class PlannedMotion {
 public:
  PlannedMotion(ArmController& arm, Results& results);

  /// To the start of the line.
  void move_joints();
  /// A line of 30 cm, and half a circle back.
  void draw_line_and_arc();
  /// The line again, stopped halfway and continued at 40 % of its speed.
  void stop_and_continue();

 private:
  /// Waits for a motion's end; returns the largest distance of the measured tool from its path, m.
  double trace(const std::string& step, const kelvara::MotionHandle& motion,
               double (*distance)(const kelvara::Pose&));

  ArmController& arm_;
  Results& results_;
  RobotKinematics model_;
};

}  // namespace tour
