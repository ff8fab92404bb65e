#include "kelvara/canbus/can_socket.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <vector>

#include <gtest/gtest.h>

#include "support/captured_output.hpp"
#include "support/child_process.hpp"
#include "support/test_bus.hpp"
#include "support/waiting.hpp"

namespace kelvara::canbus {
namespace {

std::string error_of(const std::string& interface) {
  try {
    const CANSocket socket(interface, false);
  } catch (const CANSocketException& error) {
    return error.what();
  }
  return "";
}

/// Sends this thread's process SIGALRM at intervals; each interrupts a system call.
class Alarms {
 public:
  explicit Alarms(suseconds_t interval_us) {
    count = 0;
    struct sigaction handler {};
    handler.sa_handler = [](int) { ++count; };
    sigaction(SIGALRM, &handler, &before_);
    set_interval(interval_us);
  }
  ~Alarms() {
    set_interval(0);
    sigaction(SIGALRM, &before_, nullptr);
  }
  Alarms(const Alarms&) = delete;
  Alarms& operator=(const Alarms&) = delete;

  static inline std::atomic<int> count{0};

 private:
  static void set_interval(suseconds_t interval_us) {
    const itimerval timer{{0, interval_us}, {0, interval_us}};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  struct sigaction before_ {};
};

/// Uses up the descriptors below FD_SETSIZE, which are those that select() takes.
class HighDescriptors {
 public:
  HighDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit more{rlim_t{2} * FD_SETSIZE, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &more);
    do {
      used_.push_back(dup(STDIN_FILENO));
    } while (used_.back() >= 0 && used_.back() < FD_SETSIZE);
  }
  ~HighDescriptors() {
    for (const int fd : used_) {
      close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &before_);
  }
  HighDescriptors(const HighDescriptors&) = delete;
  HighDescriptors& operator=(const HighDescriptors&) = delete;

  bool reach_far_enough() const { return used_.back() >= FD_SETSIZE; }

 private:
  rlimit before_{};
  std::vector<int> used_;
};

TEST(CanSocket, CarriesWholeFramesBothWays) {
  TestBus bus;
  BusPeer peer;
  CANSocket classic(TestBus::kInterface, false);
  can_frame frame{};
  frame.can_id = 0x123;
  frame.can_dlc = 2;
  frame.data[0] = 0xAB;
  EXPECT_TRUE(classic.write_can_frame(frame));
  EXPECT_EQ(peer.receive(), (std::vector{parse_frame("123#AB00")}));
  EXPECT_FALSE(classic.is_data_available(0));
  peer.send(parse_frame("011#0102"));
  EXPECT_TRUE(classic.is_data_available(2'000'000));
  EXPECT_TRUE(classic.read_can_frame(frame));
  EXPECT_EQ(frame.can_id, 0x11U);
  EXPECT_EQ(frame.can_dlc, 2);
  EXPECT_FALSE(classic.read_can_frame(frame)) << "the queue is empty; the read times out";

  CANSocket fd(TestBus::kInterface, true);
  canfd_frame fd_frame{};
  peer.send(parse_frame("011#0102"));
  EXPECT_TRUE(fd.is_data_available(2'000'000));
  EXPECT_FALSE(fd.read_canfd_frame(fd_frame)) << "a classic frame is shorter than a CAN-FD frame";
  peer.send(parse_frame("012#0304", true));
  EXPECT_TRUE(fd.is_data_available(2'000'000));
  EXPECT_TRUE(fd.read_canfd_frame(fd_frame));
  EXPECT_EQ(fd_frame.len, 2);
}

TEST(CanSocket, CutsLongInterfaceNameToFifteenCharacters) {
  TestBus bus;
  const auto interface = make_interface("abcdefghijklmno");
  EXPECT_EQ(error_of("abcdefghijklmnopqrstuvwxyz"), "");
}

TEST(CanSocket, RefusesInterfacesThatAreMissingOrDown) {
  TestBus bus;
  CapturedOutput output;
  EXPECT_EQ(error_of("can9"), "Socket error: Failed to initialize socket for interface: can9");
  EXPECT_EQ(output.err(), "");
  bus.interface().set_up(false);
  EXPECT_EQ(error_of("can0"), "Socket error: Failed to initialize socket for interface: can0");
  EXPECT_EQ(output.err(),
            "CAN interface \"can0\" is DOWN. Did you run: sudo ip link set can0 up type can "
            "bitrate 1000000 ?\n");
}

TEST(CanSocket, FailsWithoutOutputOnceClosedAndWhenTheBusFails) {
  TestBus bus;
  CANSocket socket(TestBus::kInterface, false);
  can_frame frame{};
  bus.interface().set_queue_full(true);
  EXPECT_FALSE(socket.write_can_frame(frame));
  EXPECT_EQ(socket.last_write_error(), ENOBUFS);
  bus.interface().set_queue_full(false);
  EXPECT_TRUE(socket.write_can_frame(frame));
  EXPECT_EQ(socket.refused_frames(), 1U);
  bus.interface().set_up(false);
  EXPECT_TRUE(socket.is_data_available(2'000'000)) << "the interface's error is pending";
  EXPECT_FALSE(socket.read_can_frame(frame));
  EXPECT_FALSE(socket.is_data_available(0)) << "the error is reported once";
  EXPECT_FALSE(socket.write_can_frame(frame));
  bus.interface().set_up(true);
  EXPECT_TRUE(socket.write_can_frame(frame));
  socket.cleanup();
  socket.cleanup();
  EXPECT_FALSE(socket.write_can_frame(frame));
  EXPECT_FALSE(socket.read_can_frame(frame));
  EXPECT_FALSE(socket.is_data_available(0));
}

TEST(CanSocket, RefusesFramesWithoutBlockingForLongWhileNothingLeavesTheQueue) {
  TestBus bus;
  CANSocket socket(TestBus::kInterface, false);
  const can_frame frame{};
  bus.interface().set_queue_stopped(true);
  while (socket.write_can_frame(frame)) {
  }
  EXPECT_EQ(socket.refused_frames(), 1U);
  EXPECT_EQ(socket.last_write_error(), EAGAIN);
  {
    const Alarms alarms(300);
    for (int k = 0; k < 20; ++k) {
      EXPECT_FALSE(socket.write_can_frame(frame));
      EXPECT_EQ(socket.last_write_error(), EAGAIN) << "a signal does not end the write";
    }
  }
  EXPECT_EQ(socket.refused_frames(), 21U);
  bus.interface().set_queue_stopped(false);
  EXPECT_TRUE(eventually([&] { return socket.write_can_frame(frame); })) << "the queue empties";
}

TEST(CanSocket, WaitsForTheWholeTimeAlthoughSignalsArrive) {
  TestBus bus;
  CANSocket low(TestBus::kInterface, false);
  const HighDescriptors used;
  ASSERT_TRUE(used.reach_far_enough());
  CANSocket high(TestBus::kInterface, false);
  for (CANSocket* socket : {&low, &high}) {
    constexpr std::chrono::milliseconds kWait{60};
    const auto start = std::chrono::steady_clock::now();
    const Alarms alarms(5'000);
    EXPECT_FALSE(socket->is_data_available(60'000));
    EXPECT_GE(std::chrono::steady_clock::now() - start, kWait);
    EXPECT_GT(Alarms::count, 0);
  }
}

TEST(CanSocket, BelongsToTheProcessThatConstructedItAndIsClosedOnExec) {
  TestBus bus;
  const int next_descriptor = dup(STDIN_FILENO);
  close(next_descriptor);
  CANSocket socket(TestBus::kInterface, false);
  EXPECT_EQ(fcntl(next_descriptor, F_GETFD), FD_CLOEXEC);
  BusPeer peer;
  peer.send(parse_frame("011#0102"));
  can_frame frame{};
  EXPECT_EQ(status_of_child([&] {
              const bool acted = socket.write_can_frame(frame) || socket.read_can_frame(frame) ||
                                 socket.is_data_available(100'000);
              CANSocket own(TestBus::kInterface, false);
              return acted || socket.refused_frames() > 0 || !own.write_can_frame(frame);
            }),
            0);
  EXPECT_EQ(peer.receive().size(), 1U) << "from the child's own socket";
  EXPECT_TRUE(socket.read_can_frame(frame));
  EXPECT_EQ(frame.can_id, 0x11U) << "the child did not take it";
  EXPECT_TRUE(socket.write_can_frame(frame));
}

}  // namespace
}  // namespace kelvara::canbus
