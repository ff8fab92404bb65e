#include <limits>

#include "simulation/virtual_can/virtual_can_hub.hpp"
#include "support/test_bus.hpp"

namespace {

class VirtualInterface : public CanInterface {
 public:
  VirtualInterface(const std::string& name, int mtu) : hub_(name, {mtu}) {}
  void set_up(bool up) override { hub_.set_up(up); }
  void set_queue_full(bool full) override {
    hub_.fail_next_writes_with_enobufs(full ? std::numeric_limits<unsigned>::max() : 0);
  }
  void set_queue_stopped(bool stopped) override { hub_.set_stopped(stopped); }

 private:
  kelvara::simulation::VirtualCanHub hub_;
};

}  // namespace

std::unique_ptr<CanInterface> make_interface(const std::string& name, int mtu) {
  return std::make_unique<VirtualInterface>(name, mtu);
}
