#pragma once

#include <memory>
#include <string>

namespace kelvara::simulation {

/// One virtual CAN interface: owns a thread that delivers every frame that a socket sends to the
/// other sockets bound to the interface. The interface exists in the runtime directory from
/// construction to destruction; processes that share the directory share the interface. Any thread
/// may call the members.
class VirtualCanHub {
 public:
  struct Options {
    int mtu = 72;  // bytes: 72 accepts CAN-FD and classic frames, 16 only classic ones
  };

  /// @param name 1 to 15 characters without '/' and white space, for example "can0".
  /// @throws std::invalid_argument for a bad name or mtu.
  /// @throws std::runtime_error when the name is busy, or the runtime directory cannot be used.
  explicit VirtualCanHub(const std::string& name) : VirtualCanHub(name, Options{}) {}
  VirtualCanHub(const std::string& name, Options options);
  ~VirtualCanHub();

  VirtualCanHub(const VirtualCanHub&) = delete;
  VirtualCanHub& operator=(const VirtualCanHub&) = delete;

  int interface_index() const;
  /// Takes the interface down (each bound socket reports ENETDOWN once, writes fail) or up again.
  /// Blocks until the hub's thread has done it.
  void set_up(bool up);
  /// Makes the next `count` writes of any socket fail with ENOBUFS.
  void fail_next_writes_with_enobufs(unsigned count);
  /// Stops the delivery of frames, or resumes it. While it is stopped writes block once the send
  /// buffer of their socket is full, and every request to the hub blocks. Resume on the thread that
  /// stopped it.
  void set_stopped(bool stopped);

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace kelvara::simulation
