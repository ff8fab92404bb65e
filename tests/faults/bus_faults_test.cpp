// What the bus and the motors can do wrong while the arm moves: every fault is injected in the
// middle of the same move, for 60 cycles (150 ms), on a loop whose time is the test's.

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <deque>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/closed_loop.hpp"

namespace {

using kelvara::JointArray;
using kelvara::damiao_motor::ControlMode;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;
using Replies = std::vector<canfd_frame>;

constexpr std::size_t kFaultyMotor = 2;  // the motor whose own faults are injected
constexpr double kPeakRate = 2.1875;
const JointArray kTarget{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};

struct Fault {
  const char* name;
  std::function<void(ClosedLoop&)> begin;
  std::function<void(ClosedLoop&)> end;
  bool bus_takes_frames = true;
  int cycles = 60;
  bool motors_disable_themselves = false;  // recovery then needs a new controller
  const char* line = "";                   // on standard error
};

std::ostream& operator<<(std::ostream& out, const Fault& fault) { return out << fault.name; }

/// A fault in the answers: `change` is applied to those of every frame.
Fault in_replies(const char* name, std::function<void(Replies&)> change) {
  return {name, [change](ClosedLoop& loop) { loop.hardware.change_replies(change); },
          [](ClosedLoop& loop) { loop.hardware.change_replies({}); }};
}

Fault in_identifiers(const char* name, canid_t flag) {
  return in_replies(name, [flag](Replies& replies) {
    for (canfd_frame& reply : replies) {
      reply.can_id |= flag;
    }
  });
}

Fault silence(const char* name, int cycles, bool lasting) {
  return {
      name,
      [](ClosedLoop& loop) { loop.hardware.arm().motor(kFaultyMotor).set_silent(true); },
      [](ClosedLoop& loop) { loop.hardware.arm().motor(kFaultyMotor).set_silent(false); },
      true,
      cycles,
      lasting,
      lasting ? "[DM ERR] recv_id=0x13 feedback_id=3 ERR: 0x1 -> 0xd (Communication lost)" : ""};
}

Fault interface_down(const char* name, int cycles, bool lasting) {
  return {
      name,
      [](ClosedLoop& loop) { loop.hardware.bus().interface().set_up(false); },
      [](ClosedLoop& loop) { loop.hardware.bus().interface().set_up(true); },
      false,
      cycles,
      lasting,
      lasting ? "[DM ERR] recv_id=0x16 feedback_id=6 ERR: 0x1 -> 0xd (Communication lost)" : ""};
}

std::vector<Fault> faults() {
  const auto lose_third = [count = 0](Replies& replies) mutable {
    if (++count % 3 == 0) {
      replies.clear();
    }
  };
  const auto double_all = [](Replies& replies) {
    replies.insert(replies.end(), replies.begin(), replies.end());
  };
  const auto delay = [held = std::deque<canfd_frame>()](Replies& replies) mutable {
    held.insert(held.end(), replies.begin(), replies.end());
    replies.clear();
    while (held.size() > 60) {  // some 15 ms
      replies.push_back(held.front());
      held.pop_front();
    }
  };
  const auto shorten = [](Replies& replies) {
    std::for_each(replies.begin(), replies.end(), [](canfd_frame& reply) { reply.len = 5; });
  };
  const auto lengthen = [](Replies& replies) {
    std::for_each(replies.begin(), replies.end(), [](canfd_frame& reply) { reply.len = 64; });
  };
  const auto flood = [](Replies& replies) {
    canfd_frame stranger{};
    stranger.can_id = 0x30;
    stranger.len = 8;
    replies.insert(replies.end(), 200, stranger);
  };
  const auto misname = [](Replies& replies) {
    std::for_each(replies.begin(), replies.end(), [](canfd_frame& reply) { reply.can_id += 0x40; });
  };
  const auto jump = [](Replies& replies) {
    for (canfd_frame& reply : replies) {
      reply.data[1] = static_cast<std::uint8_t>(reply.data[1] + 5);  // half a radian
    }
  };
  return {
      in_replies("answers_lost", lose_third),
      in_replies("every_answer_lost", [](Replies& replies) { replies.clear(); }),
      in_replies("answers_doubled", double_all),
      in_replies("answers_late", delay),
      in_replies("answers_short", shorten),
      in_replies("answers_long", lengthen),  // lost on classic CAN, which has no such frames
      in_replies("answers_misnamed", misname),
      in_replies("answers_flooded", flood),
      in_replies("encoders_jump", jump),
      in_identifiers("answers_extended", CAN_EFF_FLAG),
      in_identifiers("answers_remote", CAN_RTR_FLAG),
      in_identifiers("error_frames", CAN_ERR_FLAG),
      silence("motor_silent_for_a_moment", 12, false),
      silence("motor_silent", 60, true),
      interface_down("interface_down_for_a_moment", 12, false),
      interface_down("interface_down", 60, true),
      {"transmit_queue_full",
       [](ClosedLoop& loop) { loop.hardware.bus().interface().set_queue_full(true); },
       [](ClosedLoop& loop) { loop.hardware.bus().interface().set_queue_full(false); }, false, 12},
  };
}

double distance_from_target(const ClosedLoop& loop) {
  double largest = 0.0;
  for (std::size_t i = 0; i < 6; ++i) {
    largest = std::max(largest, std::abs(loop.true_positions()[i] - kTarget[i]));
  }
  return largest;
}

/// A move of one second to the target, and its hold; the fault is injected at 0.25 s.
void move_through(ClosedLoop& loop, const Fault& fault, CommandWatch& watch) {
  loop.impl->publish_joint_trajectory_command({kTarget.begin(), kTarget.end()}, 1.0);
  for (int k = 0; k < 600; ++k) {
    if (k == 100) {
      fault.begin(loop);
    }
    if (k == 100 + fault.cycles) {
      fault.end(loop);
    }
    if (k >= 100 && k < 100 + fault.cycles && !fault.bus_takes_frames) {
      loop.cycle_unheard();
    } else {
      loop.cycle();
    }
    watch.look();
  }
}

/// The motors' torque lifts an unknown load slowly.
void settle(ClosedLoop& loop) {
  for (int k = 0; k < 400; ++k) {
    loop.cycle();
  }
}

/// MIT mode on classic CAN, with and without a load that the model does not know; position/velocity
/// mode on CAN-FD.
struct Drive {
  const char* name;
  ControlMode mode;
  double load_kg;
  double sag;  // rad, that the load bends the joints by
};

std::ostream& operator<<(std::ostream& out, const Drive& drive) { return out << drive.name; }

struct BusFaults : ::testing::TestWithParam<std::tuple<Fault, Drive>> {};

TEST_P(BusFaults, TheArmCarriesOnWithoutAJumpOrIsBroughtBack) {
  const auto& [fault, drive] = GetParam();
  ClosedLoop loop(drive.mode, {}, drive.mode == POS_VEL_MODE, drive.load_kg);
  CommandWatch watch(JointArray{});
  move_through(loop, fault, watch);
  EXPECT_FALSE(loop.impl->flags.exit_flag);
  EXPECT_THAT(loop.output.err(), ::testing::HasSubstr(fault.line));
  EXPECT_EQ(loop.output.err().find("exception"), std::string::npos);
  const double cycle_s = std::chrono::duration<double>(ClosedLoop::kPeriod).count();
  if (!fault.motors_disable_themselves) {
    EXPECT_LT(watch.largest_step(), 1.1 * kPeakRate * 0.8 * cycle_s) << "at peak speed";
  } else {
    EXPECT_FALSE(loop.hardware.arm().motor(kFaultyMotor).is_enabled())
        << "nothing enables it again";
    loop.make_controller(drive.mode);
    const Fault none{"", [](ClosedLoop&) {}, [](ClosedLoop&) {}};
    CommandWatch second_watch;
    move_through(loop, none, second_watch);
    EXPECT_LT(second_watch.largest_step(), 1.1 * kPeakRate * 3.0 * cycle_s) << "from where it sank";
    settle(loop);
  }
  EXPECT_LT(distance_from_target(loop), 0.02 + drive.sag);
}

std::string case_name(const ::testing::TestParamInfo<BusFaults::ParamType>& chosen) {
  const auto& [fault, drive] = chosen.param;
  return std::string(fault.name) + drive.name;
}

INSTANTIATE_TEST_SUITE_P(
    InMotion, BusFaults,
    ::testing::Combine(::testing::ValuesIn(faults()),
                       ::testing::Values(Drive{"_mit", MIT_MODE, 0.0, 0.0},
                                         Drive{"_mit_loaded", MIT_MODE, 1.5, 0.15},
                                         Drive{"_pos_vel", POS_VEL_MODE, 0.0, 0.0})),
    case_name);

struct MotorErrors : ::testing::TestWithParam<std::pair<unsigned, std::string>> {};

TEST_P(MotorErrors, AreReportedOnceAndOnlyThatMotorDisablesItself) {
  const auto& [code, text] = GetParam();
  ClosedLoop loop(MIT_MODE);
  CommandWatch watch(JointArray{});
  const Fault error{
      "", [code = code](ClosedLoop& l) { l.hardware.arm().motor(kFaultyMotor).raise_error(code); },
      [](ClosedLoop&) {}};
  move_through(loop, error, watch);
  std::ostringstream line;
  line << "[DM ERR] recv_id=0x13 feedback_id=3 ERR: 0x1 -> 0x" << std::hex << code << " (" << text
       << ")";
  const std::string lines = loop.output.err();
  EXPECT_THAT(lines, ::testing::HasSubstr(line.str()));
  EXPECT_EQ(lines.find(line.str()), lines.rfind(line.str()));
  EXPECT_FALSE(loop.hardware.arm().motor(kFaultyMotor).is_enabled());
  EXPECT_TRUE(loop.hardware.arm().motor(0).is_enabled());
  EXPECT_NEAR(loop.true_positions()[0], kTarget[0], 0.02) << "the others continue";
  loop.make_controller(MIT_MODE);
  EXPECT_TRUE(loop.hardware.arm().motor(kFaultyMotor).is_enabled());
}

INSTANTIATE_TEST_SUITE_P(EachCode, MotorErrors,
                         ::testing::ValuesIn(std::vector<std::pair<unsigned, std::string>>{
                             {0x8, "Over-voltage"},
                             {0x9, "Under-voltage"},
                             {0xA, "Over-current"},
                             {0xB, "MOS over-temperature"},
                             {0xC, "Coil over-temperature"},
                             {0xD, "Communication lost"},
                             {0xE, "Overload"}}));

TEST(SilentFromTheStart, AMotorReadsAsZeroAndTheOthersMove) {
  ClosedLoop loop(MIT_MODE);
  loop.hardware.arm().motor(0).raise_error(0xD);
  loop.hardware.arm().motor(0).set_silent(true);
  loop.make_controller(MIT_MODE);
  loop.impl->publish_joint_trajectory_command({kTarget.begin(), kTarget.end()}, 1.0);
  for (int k = 0; k < 500; ++k) {
    loop.cycle();
  }
  JointArray q{};
  ASSERT_TRUE(loop.impl->state.try_get_latest_joint_state(q));
  EXPECT_EQ(q[0], 0.0);
  EXPECT_NEAR(q[5], kTarget[5], 0.02);
  EXPECT_LT(std::abs(loop.true_positions()[0]), 0.2) << "it is not driven";
}

TEST(Flood, DoesNotKeepADrainOfTheBus) {
  ClosedLoop loop(MIT_MODE);
  std::atomic<bool> drained{false};
  std::atomic<bool> gave_up{false};
  std::thread flooder([&] {
    BusPeer peer;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!drained && !gave_up) {
      peer.send({0x30, "00", false});
      gave_up = std::chrono::steady_clock::now() > end;
    }
  });
  loop.impl->hardware.recv_all(100'000);  // far longer than a pause of the flood
  drained = true;
  flooder.join();
  EXPECT_FALSE(gave_up) << "it returned because the flood ended";
}

}  // namespace
