#pragma once

#include <linux/can.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/export.hpp"

namespace kelvara::canbus {

/// A device on the bus: its identifiers and its handling of received frames. The callbacks run on
/// the thread that drains the bus.
class KELVARA_EXPORT CANDevice {
 public:
  /// @param send_id     Identifier of the commands to the device.
  /// @param response_id Identifier of its replies.
  /// @param aux_id      A third identifier; this class only stores it.
  /// @param canfd       true: the device uses CAN-FD frames.
  CANDevice(std::uint32_t send_id, std::uint32_t response_id, std::uint32_t aux_id, bool canfd)
      : send_can_id(send_id),
        response_can_id(response_id),
        aux_can_id(aux_id),
        canfd_enabled(canfd) {}
  virtual ~CANDevice();

  CANDevice(const CANDevice&) = delete;
  CANDevice& operator=(const CANDevice&) = delete;

  /// Handles a received frame.
  virtual void callback(const can_frame& frame) = 0;
  virtual void callback(const canfd_frame& frame) = 0;

  std::uint32_t get_send_can_id() const { return send_can_id; }
  std::uint32_t get_response_can_id() const { return response_can_id; }
  std::uint32_t get_aux_can_id() const { return aux_can_id; }
  bool is_canfd_enabled() const { return canfd_enabled; }

 protected:
  std::uint32_t send_can_id;
  std::uint32_t response_can_id;
  std::uint32_t aux_can_id;
  bool canfd_enabled;
};

/// The devices of one bus, keyed by the identifier of their replies; dispatches each received frame
/// to the device with its identifier. Takes no lock: change the registry only while no other thread
/// uses it.
class KELVARA_EXPORT CANDeviceCollection {
 public:
  /// @param socket The bus; must outlive the collection.
  explicit CANDeviceCollection(CANSocket& socket);
  /// @param on_change Called after each change of the registry, on the thread that made it.
  CANDeviceCollection(CANSocket& socket, std::function<void()> on_change);
  ~CANDeviceCollection();

  CANDeviceCollection(const CANDeviceCollection&) = delete;
  CANDeviceCollection& operator=(const CANDeviceCollection&) = delete;

  /// Registers a device under its response identifier and replaces the device already there.
  /// Ignores null.
  void add_device(const std::shared_ptr<CANDevice>& device);
  /// Removes the entry under the device's response identifier, whichever device it holds. Ignores
  /// null.
  void remove_device(const std::shared_ptr<CANDevice>& device);

  /// Passes the frame to the device registered under its whole 32-bit identifier, flag bits
  /// included; drops a frame with an unknown identifier silently.
  void dispatch_frame_callback(can_frame& frame);
  void dispatch_frame_callback(canfd_frame& frame);

  /// The registry, in ascending order of response identifier.
  const std::map<std::uint32_t, std::shared_ptr<CANDevice>>& get_devices() const {
    return devices_;
  }
  CANSocket& get_socket() const { return socket_; }

 private:
  void report_change() const;

  CANSocket& socket_;
  std::map<std::uint32_t, std::shared_ptr<CANDevice>> devices_;
  const std::function<void()> on_change_;  // may be empty
};

}  // namespace kelvara::canbus
