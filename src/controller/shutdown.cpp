#include "controller/arm_controller_impl.hpp"

namespace {

constexpr int kQuietAfterDisableUs = 1000;

}  // namespace

void ArmController::Impl::request_stop_and_join() {
  exit_flag = true;
  if (control_thread.joinable()) {
    control_thread.join();
  }
  if (monitor_thread.joinable()) {
    monitor_thread.join();
  }
}

void ArmController::cleanup() {
  if (cleaned_up.exchange(true) || !impl_) {
    return;
  }
  // Threads first, so that nothing is sent after the disable.
  impl_->request_stop_and_join();
  try {
    impl_->hardware.disable_all();
    impl_->hardware.recv_all(kQuietAfterDisableUs);
  } catch (...) {
    // A bus that fails now must not keep the rest from being released.
  }
  impl_.reset();
}

ArmController::~ArmController() {
  cleanup();
  if (impl_) {
    impl_->request_stop_and_join();
  }
}
