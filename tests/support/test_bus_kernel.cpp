#include <cstdlib>
#include <stdexcept>

#include "support/test_bus.hpp"

namespace {

void run(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("failed: " + command);
  }
}

/// A vcan interface; needs the right to make it, as in a network namespace of the program's own.
class KernelInterface : public CanInterface {
 public:
  KernelInterface(const std::string& name, int mtu) : name_(name) {
    run("ip link add " + name_ + " mtu " + std::to_string(mtu) + " type vcan");
    set_up(true);
  }
  ~KernelInterface() override { run("ip link del " + name_); }
  void set_up(bool up) override { run("ip link set " + name_ + (up ? " up" : " down")); }
  void set_queue_full(bool full) override {
    run("tc qdisc " +
        (full ? "add dev " + name_ + " root pfifo limit 0" : "del dev " + name_ + " root"));
  }

 private:
  std::string name_;
};

}  // namespace

std::unique_ptr<CanInterface> make_interface(const std::string& name, int mtu) {
  return std::make_unique<KernelInterface>(name, mtu);
}
