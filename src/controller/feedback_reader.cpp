#include "controller/feedback_reader.hpp"

#include "hardware/jaw_geometry.hpp"

#include "description/timing.hpp"

namespace kelvara::controller {

bool FeedbackReader::update(motion::TimePoint now) {
  if (has_read_ && now < next_feedback) {
    return false;
  }
  advance_past(next_feedback, description::kFeedbackPeriod, now);
  feedback_.begin_round(now);
  hardware_.get_arm().refresh_all();
  hardware_.recv_all(description::kQuietInCycleUs);
  has_read_ = true;
  publish();
  return true;
}

void FeedbackReader::publish() {
  read_motors();
  state_.publish_state(measured_.q, measured_.dq, measured_.gripper);
  state_.publish_torque(measured_.tau);
}

void FeedbackReader::read_motors() {
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const damiao_motor::StateResult& motor = feedback_.motor(i).state;
    measured_.q[i] = setup_.motor_signs.to_joint(i, motor.position);
    measured_.dq[i] = setup_.motor_signs.to_joint(i, motor.velocity);
    measured_.tau[i] = setup_.motor_signs.to_joint(i, motor.torque);
  }
  if (setup_.has_gripper) {
    const double angle = feedback_.motor(kGripperMotor).state.position;
    measured_.gripper = GripperState{hardware_.get_gripper().opening_at_angle(angle),
                                     can::socket::jaw_distance_from_angle(angle)};
  }
}

}  // namespace kelvara::controller
