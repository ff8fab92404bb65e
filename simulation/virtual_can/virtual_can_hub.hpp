#pragma once

#include <memory>
#include <string>

namespace kelvara::simulation {

/// One virtual CAN interface: carries every frame that a socket sends to the other sockets bound to
/// it, on a thread of its own. It exists in its runtime directory from construction to destruction;
/// processes that share the directory share the interface.
class VirtualCanHub {
 public:
  struct Options {
    int mtu = 72;  // bytes: 72 takes CAN-FD frames too, 16 classic ones alone
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
  /// Takes the interface down (every bound socket is told ENETDOWN once, writes fail) or up again.
  void set_up(bool up);
  /// Lets the next `count` writes of any socket fail with ENOBUFS.
  void fail_next_writes_with_enobufs(unsigned count);

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace kelvara::simulation
