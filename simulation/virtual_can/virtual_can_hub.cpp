#include "simulation/virtual_can/virtual_can_hub.hpp"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simulation/virtual_can/frame_filter.hpp"
#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/real_calls.hpp"

namespace kelvara::simulation {
namespace {

constexpr int kFirstIndex = 3;
constexpr int kMaxMessagesPerTurn = 64;  // of one socket, so that none starves the others
constexpr int kBufferBytes = 1 << 20;

/// A file descriptor with an owner.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    if (fd_ >= 0) {
      real::close(fd_);
    }
  }
  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));  // NOLINT(concurrency-mt-unsafe)
}

Descriptor checked(int fd, const std::string& what) {
  if (fd < 0) {
    fail(what);
  }
  return Descriptor(fd);
}

void check_name(const std::string& name) {
  const bool bad_character = std::any_of(name.begin(), name.end(), [](unsigned char c) {
    return c == '/' || std::isspace(c) != 0 || std::iscntrl(c) != 0;
  });
  if (name.empty() || name.size() > 15 || bad_character || name == "." || name == "..") {
    throw std::invalid_argument("'" + name + "' is not an interface name");
  }
}

/// Creates the interface's state file, locked; the lock is the sign that the hub lives.
Descriptor claim_interface(const std::string& name, InterfaceName& claimed) {
  const std::string directory = runtime_directory();
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
    fail("cannot create " + directory);
  }
  // One hub at a time chooses its index.
  const Descriptor guard =
      checked(open((directory + "/lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600),
              "cannot use " + directory);
  if (flock(guard.get(), LOCK_EX) != 0) {
    fail("cannot lock " + directory);
  }
  int index = kFirstIndex;
  for (const InterfaceName& interface : list_interfaces()) {
    if (interface.name == name) {
      throw std::runtime_error("interface " + name + " is busy: it has a hub already");
    }
    index = interface.index == index ? index + 1 : index;
  }
  claimed = {index, name};
  unlink(claimed.state_path().c_str());
  unlink(claimed.socket_path().c_str());
  Descriptor state =
      checked(open(claimed.state_path().c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600),
              "cannot create " + claimed.state_path());
  if (ftruncate(state.get(), sizeof(InterfaceState)) != 0 ||
      flock(state.get(), LOCK_EX | LOCK_NB) != 0) {
    fail("cannot set up " + claimed.state_path());
  }
  return state;
}

std::uint64_t realtime_ns() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(now.tv_nsec);
}

/// The largest message that a socket sends, and the descriptor that may come with it.
struct Received {
  alignas(ControlMessage) std::array<std::uint8_t, sizeof(ControlMessage)> bytes{};
  std::size_t size = 0;
  Descriptor passed;
};

enum class Arrival { kMessage, kNothing, kEnd };

Arrival receive(int fd, Received& message) {
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  iovec part{message.bytes.data(), message.bytes.size()};
  msghdr packet{};
  packet.msg_iov = &part;
  packet.msg_iovlen = 1;
  packet.msg_control = control.data();
  packet.msg_controllen = control.size();
  const ssize_t size = real::recvmsg(fd, &packet, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
    return Arrival::kNothing;
  }
  if (size <= 0) {
    return Arrival::kEnd;
  }
  message.size = static_cast<std::size_t>(size);
  const cmsghdr* rights = CMSG_FIRSTHDR(&packet);
  if (rights != nullptr && rights->cmsg_type == SCM_RIGHTS) {
    int passed = -1;
    std::memcpy(&passed, CMSG_DATA(rights), sizeof(passed));
    message.passed = Descriptor(passed);
  }
  return Arrival::kMessage;
}

}  // namespace

/// The hub's state and thread.
class VirtualCanHub::Loop {
 public:
  Loop(const std::string& name, int mtu)
      : lock_(claim_interface(name, interface_)), state_(map_state(interface_)) {
    if (!state_) {
      throw std::runtime_error("cannot map " + interface_.state_path());
    }
    new (state_.get()) InterfaceState;
    state_->mtu = static_cast<std::uint32_t>(mtu);
    listener_ = checked(real::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                        "cannot listen");
    const sockaddr_un address = hub_address(interface_);
    if (real::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
            0 ||
        listen(listener_.get(), SOMAXCONN) != 0) {
      fail("cannot listen on " + interface_.socket_path());
    }
    epoll_ = checked(epoll_create1(EPOLL_CLOEXEC), "epoll");
    stop_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    watch(listener_.get());
    watch(stop_.get());
    thread_ = std::thread(&Loop::run, this);
  }

  ~Loop() {
    const std::uint64_t one = 1;
    if (real::write(stop_.get(), &one, sizeof(one)) == ssize_t{sizeof(one)}) {
      thread_.join();
    }
    state_->gone = 1;
    unlink(interface_.socket_path().c_str());
    unlink(interface_.state_path().c_str());
  }

  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  const InterfaceName& interface() const { return interface_; }
  InterfaceState& state() { return *state_; }

 private:
  struct Client {
    Descriptor fd;
    SocketOptions options;
    bool bound = false;  // it has said what it wants
  };

  void watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
      fail("epoll_ctl");
    }
  }

  void run() {
    std::array<epoll_event, 16> events{};
    for (;;) {
      const int count =
          epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
      for (int i = 0; i < count; ++i) {
        const int fd = events[static_cast<std::size_t>(i)].data.fd;
        if (fd == stop_.get()) {
          return;
        }
        if (fd == listener_.get()) {
          accept_client();
        } else if (!serve(fd)) {
          clients_.erase(fd);
        }
      }
    }
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

  /// Takes what the socket has sent; false when it has gone.
  bool serve(int fd) {
    const auto entry = clients_.find(fd);
    if (entry == clients_.end()) {
      return true;
    }
    for (int turn = 0; turn < kMaxMessagesPerTurn; ++turn) {
      Received& message = received_;
      const Arrival arrival = receive(fd, message);
      if (arrival != Arrival::kMessage) {
        return arrival == Arrival::kNothing;
      }
      if (message.size == CAN_MTU || message.size == CANFD_MTU) {
        carry(entry->second, message.bytes.data(), message.size);
      } else if (message.size == sizeof(ControlMessage)) {
        ControlMessage request;
        std::memcpy(static_cast<void*>(&request), message.bytes.data(), sizeof(request));
        obey(entry->second, request);
      }
      message.passed = Descriptor();
    }
    return true;
  }

  void obey(Client& client, const ControlMessage& message) {
    if (message.request == Request::kConfigure) {
      const bool was_bound = std::exchange(client.bound, true);
      client.options = message.options;
      if (!was_bound && state_->up == 0U) {
        send_mark(client);
      }
    } else {
      set_up(message.request == Request::kBringUp);
    }
    const char done = 1;
    if (real::write(received_.passed.get(), &done, 1) != 1) {
      return;  // whoever asked no longer waits
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

  void carry(const Client& sender, const std::uint8_t* frame, std::size_t size) {
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
      if (!client.bound || (own && client.options.receive_own == 0U) ||
          (size == CANFD_MTU && client.options.fd_frames == 0U) ||
          !passes_filters(client.options, id)) {
        continue;
      }
      header.kind = own ? PacketKind::kOwnFrame : PacketKind::kFrame;
      deliver(fd, header, frame, size);
    }
  }

  void send_mark(const Client& client) {
    PacketHeader header;
    header.kind = PacketKind::kMark;
    deliver(client.fd.get(), header, nullptr, 0);
  }

  /// Never waits: a reader that does not keep up misses frames, as with the kernel's sockets.
  void deliver(int fd, PacketHeader& header, const std::uint8_t* frame, std::size_t size) {
    std::array<iovec, 2> parts{
        {{&header, sizeof(header)}, {const_cast<std::uint8_t*>(frame), size}}};
    msghdr packet{};
    packet.msg_iov = parts.data();
    packet.msg_iovlen = parts.size();
    if (real::sendmsg(fd, &packet, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && errno == EAGAIN) {
      state_->dropped.fetch_add(1, std::memory_order_relaxed);
    }
  }

  InterfaceName interface_;
  Descriptor lock_;
  std::shared_ptr<InterfaceState> state_;
  Descriptor listener_;
  Descriptor epoll_;
  Descriptor stop_;
  std::map<int, Client> clients_;  // the thread's alone, by descriptor
  Received received_;
  std::thread thread_;
};

VirtualCanHub::VirtualCanHub(const std::string& name, Options options) {
  check_name(name);
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

}  // namespace kelvara::simulation
