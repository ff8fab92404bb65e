#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kelvara/canbus/can_device_collection.hpp"
#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/damiao_motor/dm_motor_device.hpp"
#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"
#include "kelvara/export.hpp"
#include "kelvara/hardware/arm_component.hpp"
#include "kelvara/hardware/frame_observer.hpp"
#include "kelvara/hardware/gripper_component.hpp"

namespace kelvara::can::socket {

/// Facade of the arm's hardware: owns the socket, the arm and the gripper, decodes received frames
/// into the motor records and forwards group commands to every registered motor collection. Takes
/// no lock: one thread may receive while another sends. The destructor closes the socket and sends
/// nothing.
class KELVARA_EXPORT Kelvara {
 public:
  /// Opens the interface; sends nothing.
  /// @param interface Interface name, for example "can0".
  /// @param canfd     true: sends and receives CAN-FD frames; false: classic ones.
  /// @throws canbus::CANSocketException when it cannot be opened.
  Kelvara(const std::string& interface, bool canfd);
  ~Kelvara();

  Kelvara(const Kelvara&) = delete;
  Kelvara& operator=(const Kelvara&) = delete;

  /// Creates the joint motors and registers the arm; see `ArmComponent::init_motor_devices`.
  /// @throws std::invalid_argument when an identifier list is too short.
  void init_arm_motors(const std::vector<damiao_motor::MotorType>& types,
                       const std::vector<unsigned>& can_ids,
                       const std::vector<unsigned>& master_ids);
  /// Creates the gripper motor and registers the gripper.
  void init_gripper_motor(damiao_motor::MotorType type, unsigned can_id, unsigned master_id);
  /// Adds the collection's present devices to the receive side, and the collection to the receivers
  /// of group commands. Registering a collection twice sends every group command to it twice. The
  /// collection must outlive this object.
  void register_dm_device_collection(damiao_motor::DMDeviceCollection& collection);

  /// Reads and dispatches frames; blocks until the bus has been quiet for `timeout_us`
  /// microseconds. On a bus that never falls silent it returns once at least 64 frames have been
  /// read and ten time-outs (at least 1 ms) have elapsed. On CAN-FD it drops classic frames.
  void recv_all(int timeout_us);
  /// Passes every whole frame that a drain reads to `observer`, before its device handles it. Null
  /// removes the observer; it must outlive its registration. Call it while no other thread drains
  /// the bus.
  void set_frame_observer(FrameObserver* observer) { frame_observer_ = observer; }

  // Group commands: the same operation on every registered collection, in order of registration.
  void enable_all();
  void disable_all();
  void set_zero_all();
  void refresh_all();
  void set_timeout_all(unsigned timeout);
  void switch_all_motors_mode(int mode);
  void query_param_all(int rid);
  void query_acc_all();
  void query_dec_all();
  void query_kp_apr_all();
  /// Every collection takes its values from index 0 of the list.
  void set_acc_all(const std::vector<float>& values);
  void set_dec_all(const std::vector<float>& values);
  void set_kp_apr_all(const std::vector<float>& values);
  void set_callback_mode_all(damiao_motor::CallbackMode mode);

  ArmComponent& get_arm() { return *arm_; }
  GripperComponent& get_gripper() { return *gripper_; }
  canbus::CANSocket& get_socket() { return *socket_; }
  const canbus::CANSocket& get_socket() const { return *socket_; }

 private:
  template <typename Operation, typename... Arguments>
  void forward(Operation operation, const Arguments&... arguments);
  bool receive_one();
  template <typename Frame>
  void dispatch(Frame& frame, std::size_t size);

  std::string interface_name;
  bool canfd_enabled;
  // The order matters: members are destroyed in reverse, the socket last.
  std::unique_ptr<canbus::CANSocket> socket_;
  std::unique_ptr<ArmComponent> arm_;
  std::unique_ptr<GripperComponent> gripper_;
  std::unique_ptr<canbus::CANDeviceCollection> device_collection;
  std::vector<damiao_motor::DMDeviceCollection*> collections;
  FrameObserver* frame_observer_ = nullptr;  // not owned; may be null
};

}  // namespace kelvara::can::socket
