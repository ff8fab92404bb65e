#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "controller/sample_filter.hpp"
#include "kelvara/damiao_motor/motor_type.hpp"
#include "kelvara/damiao_motor/motor_values.hpp"
#include "kelvara/hardware/frame_observer.hpp"

#include "description/joint_array.hpp"

namespace kelvara::controller {

inline constexpr std::size_t kMotorCount = kJointCount + 1;  // with the gripper
inline constexpr std::size_t kGripperMotor = kJointCount;

/// What the arm's motors answered, and what another program commands them. Listens to every frame
/// that the hardware reads. A register reply is never taken for feedback, and a sample counts only
/// when it is plausible (see `SampleFilter`).
///
/// Used by the thread that drains the bus alone.
class MotorFeedback final : public can::socket::FrameObserver {
 public:
  /// The last sample that counts, motor side.
  struct Sample {
    damiao_motor::StateResult state{};
    motion::TimePoint time{};
    std::optional<std::uint32_t> timeout;  // register values, as the motor echoed their write
    std::optional<std::uint32_t> control_mode;
    bool answered = false;
  };

  explicit MotorFeedback(bool has_gripper);

  /// Sets the time of the frames that are read from now on.
  void begin_round(motion::TimePoint now) { now_ = now; }
  void on_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size) override;
  void on_dropped_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size) override;

  const Sample& motor(std::size_t index) const { return motors_[index].last; }
  /// Time since the motor's last sample, s; infinity before the first.
  double age_s(std::size_t index, motion::TimePoint now) const;
  /// 6, or 7 with a gripper.
  std::size_t motor_count() const { return motor_count_; }

  /// Whether any motor has echoed a register write, as motors do.
  bool has_echo() const { return has_echo_; }
  std::uint64_t implausible_samples() const { return implausible_samples_; }
  /// Frames with our motors' command identifiers that this controller did not send.
  std::uint64_t foreign_commands() const { return foreign_commands_; }
  /// The motor, from 1, that another program commanded last; 0 before any.
  int foreign_motor() const { return foreign_motor_; }

 private:
  struct MotorTrack {
    std::uint32_t can_id;
    std::uint32_t master_id;
    damiao_motor::MotorType type;
    SampleFilter filter;
    Sample last;
  };
  static MotorTrack make_track(std::size_t index);
  void count_command(std::uint32_t can_id, const std::uint8_t* data, std::size_t size);
  void take_answer(MotorTrack& track, const std::uint8_t* data, std::size_t size);
  void take_echo(MotorTrack& track, const std::uint8_t* data);
  bool commands(const MotorTrack& track, std::uint32_t can_id, const std::uint8_t* data,
                std::size_t size) const;

  std::array<MotorTrack, kMotorCount> motors_;
  std::size_t motor_count_;
  motion::TimePoint now_{};
  bool has_echo_ = false;
  std::uint64_t implausible_samples_ = 0;
  std::uint64_t foreign_commands_ = 0;
  int foreign_motor_ = 0;
};

}  // namespace kelvara::controller
