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
  void set_queue_full(bool full) override { set_queue(full, "pfifo limit 0"); }
  void set_queue_stopped(bool stopped) override { set_queue(stopped, "plug limit 10000000"); }

 private:
  void set_queue(bool add, const std::string& kind) {
    run("tc qdisc " + (add ? "add dev " + name_ + " root " + kind : "del dev " + name_ + " root"));
  }

  std::string name_;
};

}  // namespace

std::unique_ptr<CanInterface> make_interface(const std::string& name, int mtu) {
  return std::make_unique<KernelInterface>(name, mtu);
}
