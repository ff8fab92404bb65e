// Received frames of any identifier, length and data. Only a whole frame with a motor's feedback
// identifier may change its record, and only to values within its model's ranges.

#include <linux/can.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <cstdarg>

#include "kelvara/hardware/kelvara.hpp"

#include "fuzz/input.hpp"

// ---- The bus: a pair of datagram sockets; the linker replaces the socket calls ----

namespace {
int peer = -1;  // the fuzzer's end of the pair
}

extern "C" {
int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends) == 0, "socketpair() succeeds");
  peer = ends[0];
  return ends[1];
}
int __wrap_bind(int /*fd*/, const sockaddr* /*address*/, socklen_t /*length*/) { return 0; }
int __wrap_setsockopt(int /*fd*/, int /*level*/, int /*name*/, const void* /*value*/,
                      socklen_t /*length*/) {
  return 0;
}
int __wrap_ioctl(int /*fd*/, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  va_arg(arguments, ifreq*)->ifr_flags = IFF_UP;
  va_end(arguments);
  return 0;
}
}

namespace {

using namespace kelvara::damiao_motor;
using kelvara::can::socket::Kelvara;

std::uint32_t take_id(Input& input) {
  const auto bits = input.take<std::uint16_t>();
  return (bits & CAN_SFF_MASK) | ((bits & 0x8000U) != 0 ? CAN_EFF_FLAG : 0U);
}

void add_motors(Kelvara& hardware, Input& input) {
  std::vector<MotorType> types(input.choose(8));
  std::vector<unsigned> can_ids(types.size());
  std::vector<unsigned> master_ids(types.size());
  const auto take_type = [&] {
    return static_cast<MotorType>(input.choose(MOTOR_LIMIT_PARAMS.size()));
  };
  for (std::size_t k = 0; k < types.size(); ++k) {
    types[k] = take_type();
    can_ids[k] = take_id(input);
    master_ids[k] = take_id(input);
  }
  hardware.init_arm_motors(types, can_ids, master_ids);
  if (input.flip()) {
    const MotorType type = take_type();
    const unsigned can_id = take_id(input);
    hardware.init_gripper_motor(type, can_id, take_id(input));
  }
}

std::vector<Motor> all_motors(Kelvara& hardware) {
  std::vector<Motor> motors = hardware.get_arm().get_motors();
  for (Motor& motor : hardware.get_gripper().get_motors()) {
    motors.push_back(std::move(motor));
  }
  return motors;
}

auto state_of(const Motor& motor) {
  return std::tuple(motor.position, motor.velocity, motor.torque, motor.t_mos, motor.t_rotor,
                    motor.feedback_id, motor.error_code);
}

void check_state(const Motor& motor) {
  const auto [pmax, vmax, tmax] = Motor::get_limit_param(motor.type);
  require(std::abs(motor.position) <= pmax && std::abs(motor.velocity) <= vmax &&
              std::abs(motor.torque) <= tmax,
          "feedback is within the motor's ranges");
  const auto fits = [](int value, int max) { return value >= 0 && value <= max; };
  require(fits(motor.t_mos, 255) && fits(motor.t_rotor, 255) && fits(motor.feedback_id, 15) &&
              fits(motor.error_code, 15),
          "feedback fits its fields");
}

/// Sends a frame, or a truncated one, with the identifier of one of the motors or any other.
void receive_frame(Kelvara& hardware, CallbackMode mode, bool fd, Input& input) {
  const std::vector<Motor> before = all_motors(hardware);
  canfd_frame frame{};
  const bool known = input.flip() && !before.empty();
  frame.can_id = known ? before[input.choose(static_cast<unsigned>(before.size()))].master_id
                       : input.take<std::uint32_t>();
  frame.len = input.take<std::uint8_t>();
  frame.flags = input.take<std::uint8_t>();
  const auto head = input.take<std::array<std::uint8_t, 8>>();
  std::copy(head.begin(), head.end(), frame.data);
  const std::size_t size = input.flip() ? (fd ? CANFD_MTU : CAN_MTU) : input.choose(CANFD_MTU + 1);
  require(write(peer, &frame, size) == static_cast<ssize_t>(size), "the bus accepts the frame");
  hardware.recv_all(0);

  // A classic socket truncates longer frames to a classic one.
  const bool whole = fd ? size == CANFD_MTU : size >= CAN_MTU;
  const std::vector<Motor> after = all_motors(hardware);
  for (std::size_t k = 0; k < after.size(); ++k) {
    const bool taken = whole && frame.len >= 8 && frame.can_id == after[k].master_id;
    check_state(after[k]);
    require((taken && mode == CallbackMode::STATE) || state_of(after[k]) == state_of(before[k]),
            "only whole feedback changes a motor's state");
    require((taken && mode == CallbackMode::PARAM && head[2] == 0x33) ||
                after[k].temp_params.size() == before[k].temp_params.size(),
            "only a query reply adds a register value");
  }
}

void send_commands(Kelvara& hardware, bool fd, Input& input) {
  auto& arm = hardware.get_arm();
  const int index = input.take<std::int8_t>();
  const int rid = input.take<std::int32_t>();
  switch (input.choose(6)) {
    case 0:
      arm.mit_control_one(
          index, {input.number(), input.number(), input.number(), input.number(), input.number()});
      break;
    case 1:
      arm.pos_vel_control_one(index, {input.take<float>(), input.take<float>()});
      break;
    case 2:
      arm.write_param_one(index, rid, input.take<float>());
      break;
    case 3:
      hardware.set_timeout_all(input.take<unsigned>());
      break;
    case 4:
      hardware.switch_all_motors_mode(rid);
      hardware.query_param_all(rid);
      break;
    default:
      hardware.get_gripper().set_distance(input.number(), input.number(), input.number());
      hardware.refresh_all();
  }
  canfd_frame frame{};
  for (ssize_t size = 0; (size = read(peer, &frame, sizeof(frame))) > 0;) {
    require(size == static_cast<ssize_t>(fd ? CANFD_MTU : CAN_MTU) && frame.len == 8,
            "commands are whole frames of eight bytes");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  silence_reports();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool fd = input.flip();
  {
    Kelvara hardware("can0", fd);
    add_motors(hardware, input);
    CallbackMode mode = CallbackMode::STATE;
    while (!input.empty()) {
      switch (input.choose(8)) {
        case 0:
          mode = static_cast<CallbackMode>(input.choose(4));
          hardware.set_callback_mode_all(mode);
          break;
        case 1:
          send_commands(hardware, fd, input);
          break;
        default:
          receive_frame(hardware, mode, fd, input);
      }
    }
  }
  close(peer);
  return 0;
}
