#pragma once

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
#include "kelvara/hardware/gripper_component.hpp"

namespace kelvara::can::socket {

/// The hardware behind one object: opens the bus, owns the arm and gripper motors, drains received
/// frames into their records and forwards group commands to every registered motor collection.
/// Takes no lock. Destruction closes the socket and sends nothing.
class KELVARA_EXPORT Kelvara {
 public:
  /// Opens the interface; sends nothing.
  /// @throws canbus::CANSocketException when it cannot be opened.
  Kelvara(const std::string& interface, bool canfd);
  ~Kelvara();

  Kelvara(const Kelvara&) = delete;
  Kelvara& operator=(const Kelvara&) = delete;

  /// Creates and registers the joint motors; see `ArmComponent::init_motor_devices`.
  void init_arm_motors(const std::vector<damiao_motor::MotorType>& types,
                       const std::vector<unsigned>& can_ids,
                       const std::vector<unsigned>& master_ids);
  /// Creates and registers the gripper motor.
  void init_gripper_motor(damiao_motor::MotorType type, unsigned can_id, unsigned master_id);
  /// Adds the collection's devices to the receive side and the collection to those that group
  /// commands go to; twice registered, twice commanded. It must outlive this object.
  void register_dm_device_collection(damiao_motor::DMDeviceCollection& collection);

  /// Reads and dispatches frames until the bus has been quiet for `timeout_us` microseconds. On a
  /// bus that is never quiet it returns after ten time-outs (at least 1 ms) and 64 frames.
  void recv_all(int timeout_us);

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

 private:
  template <typename Operation, typename... Arguments>
  void forward(Operation operation, const Arguments&... arguments);
  bool receive_one();

  std::string interface_name;
  bool canfd_enabled;
  // Destroyed in reverse: the collections' list first, the socket last.
  std::unique_ptr<canbus::CANSocket> socket_;
  std::unique_ptr<ArmComponent> arm_;
  std::unique_ptr<GripperComponent> gripper_;
  std::unique_ptr<canbus::CANDeviceCollection> device_collection;
  std::vector<damiao_motor::DMDeviceCollection*> collections;
};

}  // namespace kelvara::can::socket
