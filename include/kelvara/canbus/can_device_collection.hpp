#pragma once

#include <linux/can.h>

#include <cstdint>
#include <map>
#include <memory>

#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/export.hpp"

namespace kelvara::canbus {

/// A device on the bus: the identifiers it is spoken to and answers with, and what it does with a
/// received frame. The callbacks run on the thread that drains the bus.
class KELVARA_EXPORT CANDevice {
 public:
  /// @param send_id     Identifier the device is commanded on.
  /// @param response_id Identifier its replies carry.
  /// @param aux_id      A third identifier, kept for the device's own use.
  /// @param canfd       true: the device speaks CAN-FD.
  CANDevice(std::uint32_t send_id, std::uint32_t response_id, std::uint32_t aux_id, bool canfd)
      : send_can_id(send_id),
        response_can_id(response_id),
        aux_can_id(aux_id),
        canfd_enabled(canfd) {}
  virtual ~CANDevice();

  CANDevice(const CANDevice&) = delete;
  CANDevice& operator=(const CANDevice&) = delete;

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

/// The devices of one bus by the identifier of their replies; hands each received frame to the one
/// device that owns its identifier. Takes no lock: devices are added before the bus is drained.
class KELVARA_EXPORT CANDeviceCollection {
 public:
  /// @param socket The bus; must outlive the collection.
  explicit CANDeviceCollection(CANSocket& socket);
  ~CANDeviceCollection();

  CANDeviceCollection(const CANDeviceCollection&) = delete;
  CANDeviceCollection& operator=(const CANDeviceCollection&) = delete;

  /// Registers a device under its response identifier, replacing one already there. Null: ignored.
  void add_device(const std::shared_ptr<CANDevice>& device);
  /// Removes whatever is registered under the device's response identifier. Null: ignored.
  void remove_device(const std::shared_ptr<CANDevice>& device);

  /// Gives the frame to the device registered under its whole 32-bit identifier, flag bits
  /// included; a frame that nobody owns is dropped silently.
  void dispatch_frame_callback(can_frame& frame);
  void dispatch_frame_callback(canfd_frame& frame);

  /// The registry, in ascending order of response identifier.
  const std::map<std::uint32_t, std::shared_ptr<CANDevice>>& get_devices() const {
    return devices_;
  }
  CANSocket& get_socket() const { return socket_; }

 private:
  CANSocket& socket_;
  std::map<std::uint32_t, std::shared_ptr<CANDevice>> devices_;
};

}  // namespace kelvara::canbus
