#pragma once

#include <linux/can.h>
#include <linux/can/error.h>

#include <array>
#include <atomic>
#include <cstdint>

/// The packets between a virtual interface's hub and its sockets, over Unix sockets that keep
/// packet boundaries, and the page of memory that they share.
///
/// A socket sends bare frames (16 or 72 bytes) and control messages, which are longer. The hub
/// sends a header before each frame.
namespace kelvara::simulation {

inline constexpr std::size_t kMaxFilters = 512;

/// The options of one socket. The hub applies them, so that a descriptor is readable only when it
/// holds something for its reader.
struct SocketOptions {
  std::uint32_t fd_frames = 0;
  std::uint32_t loopback = 1;
  std::uint32_t receive_own = 0;
  std::uint32_t join_filters = 0;
  std::uint32_t error_mask = 0;
  std::uint32_t filter_count = 1;  // initially one filter that passes every frame
  std::array<can_filter, kMaxFilters> filters{};
};

enum class Request : std::uint32_t { kConfigure = 1, kBringUp = 2, kBringDown = 3 };

/// Carries the write end of a pipe; the hub writes one byte to it when it has acted.
struct ControlMessage {
  Request request = Request::kConfigure;
  SocketOptions options;
};

/// A mark carries no frame; it wakes readers when the interface goes down. The reader checks the
/// shared page to see whether the error was already reported, e.g. by a failed write.
enum class PacketKind : std::uint32_t { kFrame = 0, kOwnFrame = 1, kMark = 2 };

/// The start of every packet from the hub.
struct PacketHeader {
  PacketKind kind = PacketKind::kFrame;
  std::uint32_t unused = 0;
  std::uint64_t time_ns = 0;  // when the hub received the frame, CLOCK_REALTIME
};

/// The page of memory that an interface's hub shares with every process.
struct InterfaceState {
  std::atomic<std::uint32_t> up{1};
  std::atomic<std::uint32_t> downs{0};  // number of times it went down
  std::atomic<std::uint32_t> gone{0};   // 1 when the interface has gone
  std::atomic<std::uint32_t> mtu{CANFD_MTU};
  std::atomic<std::uint32_t> failing_writes{0};  // number of writes that will fail with ENOBUFS
  std::atomic<std::uint64_t> frames{0};
  std::atomic<std::uint64_t> dropped{0};  // deliveries lost because a reader fell behind
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace kelvara::simulation
