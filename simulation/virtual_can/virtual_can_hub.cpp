#include "simulation/virtual_can/virtual_can_hub.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simulation/virtual_can/control_channel.hpp"
#include "simulation/virtual_can/descriptor.hpp"
#include "simulation/virtual_can/frame_filter.hpp"
#include "simulation/virtual_can/interface_claim.hpp"
#include "simulation/virtual_can/libc_calls.hpp"

namespace kelvara::simulation {
namespace {

constexpr int kMaxMessagesPerTurn = 64;  // of one socket, so that it does not starve the others
constexpr int kBufferBytes = 1 << 20;

std::uint64_t realtime_ns() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

/// The hub's thread and what it serves. The thread alone uses the clients; the interface's page is
/// atomic.
class VirtualCanHub::Loop {
 public:
  Loop(const std::string& name, int mtu)
      : claim_(claim_interface(name)), state_(map_state(claim_.state_file.get())) {
    if (!state_) {
      throw std::runtime_error("cannot map the state of " + name);
    }
    new (state_.get()) InterfaceState;
    state_->mtu = static_cast<std::uint32_t>(mtu);
    start_listening();
    epoll_ = checked(epoll_create1(EPOLL_CLOEXEC), "epoll");
    stop_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    watch(listener_.get());
    watch(stop_.get());
    publish(claim_);
    thread_ = std::thread(&Loop::run, this);
  }

  ~Loop() {
    set_stopped(false);
    const std::uint64_t one = 1;
    if (libc::write(stop_.get(), &one, sizeof(one)) == ssize_t{sizeof(one)}) {
      thread_.join();
    }
    state_->gone = 1;
    unlink(claim_.interface.socket_path().c_str());
    unlink(claim_.interface.state_path().c_str());
  }

  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  const InterfaceName& interface() const { return claim_.interface; }
  InterfaceState& state() { return *state_; }

  void set_stopped(bool stopped) {
    if (stopped && !stopped_.owns_lock()) {
      stopped_.lock();
    } else if (!stopped && stopped_.owns_lock()) {
      stopped_.unlock();
    }
  }

 private:
  struct Client {
    Descriptor fd;
    SocketOptions options;
    bool bound = false;  // it has sent its options
  };

  void start_listening() {
    constexpr int kType = SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK;
    listener_ = checked(libc::socket(AF_UNIX, kType, 0), "cannot listen");
    const sockaddr_un address = hub_address(interface());
    if (libc::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
            0 ||
        listen(listener_.get(), SOMAXCONN) != 0) {
      throw_errno("cannot listen on " + interface().socket_path());
    }
  }

  void watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
      throw_errno("epoll_ctl");
    }
  }

  void run() {
    std::array<epoll_event, 16> events{};
    for (bool running = true; running;) {
      const int count =
          epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
      const std::lock_guard<std::mutex> lock(acting_);
      for (int i = 0; i < count && running; ++i) {
        running = handle_event(events[static_cast<std::size_t>(i)].data.fd);
      }
    }
  }

  /// @return false when the thread must end.
  bool handle_event(int fd) {
    if (fd == stop_.get()) {
      return false;
    }
    if (fd == listener_.get()) {
      accept_client();
    } else if (!serve(fd)) {
      clients_.erase(fd);
    }
    return true;
  }

  void accept_client() {
    const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
      return;
    }
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kBufferBytes, sizeof(kBufferBytes));
    clients_[fd].fd = Descriptor(fd);
    watch(fd);
  }

  /// Handles what a socket has sent; false when the socket has closed.
  bool serve(int fd) {
    const auto entry = clients_.find(fd);
    if (entry == clients_.end()) {
      return true;
    }
    for (int turn = 0; turn < kMaxMessagesPerTurn; ++turn) {
      const Arrival arrival = receive_message(fd, received_);
      if (arrival != Arrival::kMessage) {
        return arrival == Arrival::kNothing;
      }
      if (received_.is_frame()) {
        distribute(entry->second, received_.bytes.data(), received_.size);
      } else if (received_.is_control()) {
        execute(entry->second, received_.control());
        acknowledge(received_);
      }
      received_.acknowledgement.reset();
    }
    return true;
  }

  void execute(Client& client, const ControlMessage& message) {
    if (message.request != Request::kConfigure) {
      set_up(message.request == Request::kBringUp);
      return;
    }
    const bool was_bound = std::exchange(client.bound, true);
    client.options = message.options;
    if (!was_bound && state_->up == 0U) {
      send_mark(client);
    }
  }

  void set_up(bool up) {
    const bool was_up = state_->up.exchange(up ? 1U : 0U) != 0U;
    if (!was_up || up) {
      return;
    }
    ++state_->downs;
    for (auto& [fd, client] : clients_) {
      if (client.bound) {
        send_mark(client);
      }
    }
  }

  /// Delivers a frame to the sockets whose options ask for it.
  void distribute(const Client& sender, const std::uint8_t* frame, std::size_t size) {
    state_->frames.fetch_add(1, std::memory_order_relaxed);
    if (sender.options.loopback == 0U) {
      return;
    }
    canid_t id = 0;
    std::memcpy(&id, frame, sizeof(id));
    PacketHeader header;
    header.time_ns = realtime_ns();
    for (auto& [fd, client] : clients_) {
      const bool own = &client == &sender;
      if (wants(client, id, size) && (!own || client.options.receive_own != 0U)) {
        header.kind = own ? PacketKind::kOwnFrame : PacketKind::kFrame;
        deliver(fd, header, frame, size);
      }
    }
  }

  static bool wants(const Client& client, canid_t id, std::size_t size) {
    return client.bound && (size == CAN_MTU || client.options.fd_frames != 0U) &&
           passes_filters(client.options, id);
  }

  void send_mark(const Client& client) {
    PacketHeader header;
    header.kind = PacketKind::kMark;
    deliver(client.fd.get(), header, nullptr, 0);
  }

  /// Does not block: a reader that falls behind loses frames, as with the kernel's sockets.
  void deliver(int fd, PacketHeader& header, const std::uint8_t* frame, std::size_t size) {
    std::array<iovec, 2> parts{
        {{&header, sizeof(header)}, {const_cast<std::uint8_t*>(frame), size}}};
    msghdr packet{};
    packet.msg_iov = parts.data();
    packet.msg_iovlen = parts.size();
    if (libc::sendmsg(fd, &packet, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno == EAGAIN) {
      state_->dropped.fetch_add(1, std::memory_order_relaxed);
    }
  }

  InterfaceClaim claim_;
  std::shared_ptr<InterfaceState> state_;
  Descriptor listener_;
  Descriptor epoll_;
  Descriptor stop_;
  std::map<int, Client> clients_;  // by descriptor
  Received received_;
  std::mutex acting_;  // held by the thread whenever it does not wait
  std::unique_lock<std::mutex> stopped_{acting_, std::defer_lock};
  std::thread thread_;
};

VirtualCanHub::VirtualCanHub(const std::string& name, Options options) {
  check_interface_name(name);
  if (options.mtu != CAN_MTU && options.mtu != CANFD_MTU) {
    throw std::invalid_argument("the mtu must be 16 or 72");
  }
  loop_ = std::make_unique<Loop>(name, options.mtu);
}

VirtualCanHub::~VirtualCanHub() = default;

int VirtualCanHub::interface_index() const { return loop_->interface().index; }

void VirtualCanHub::set_up(bool up) {
  request_of_hub(loop_->interface(), up ? Request::kBringUp : Request::kBringDown);
}

void VirtualCanHub::fail_next_writes_with_enobufs(unsigned count) {
  loop_->state().failing_writes = count;
}

void VirtualCanHub::set_stopped(bool stopped) { loop_->set_stopped(stopped); }

}  // namespace kelvara::simulation
