#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

/// Puts one end of a pipe or a socket in the place of standard output or standard error while it
/// lives. gtest prints its findings on standard output: check them afterwards.
class ReplacedStream {
 public:
  enum class Kind { kPipe, kSocket };

  explicit ReplacedStream(int stream, Kind kind = Kind::kPipe) : stream_(stream) {
    std::fflush(stdout);
    if (kind == Kind::kPipe ? pipe(ends_.data()) != 0
                            : socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()) != 0) {
      std::perror("ReplacedStream");
    }
    before_ = dup(stream);
    dup2(ends_[1], stream);
  }
  ~ReplacedStream() {
    std::fflush(stdout);
    dup2(before_, stream_);
    close(before_);
    close(ends_[1]);
    close_reader();
  }
  ReplacedStream(const ReplacedStream&) = delete;
  ReplacedStream& operator=(const ReplacedStream&) = delete;

  /// Writes until nothing more fits.
  void fill() const {
    const int flags = fcntl(stream_, F_GETFL);
    fcntl(stream_, F_SETFL, flags | O_NONBLOCK);
    while (write(stream_, "x", 1) == 1) {
    }
    fcntl(stream_, F_SETFL, flags);
  }
  /// Reads until nothing more is there.
  std::string read_all() const {
    std::string text;
    std::array<char, 4096> part{};
    pollfd request{ends_[0], POLLIN, 0};
    while (poll(&request, 1, 0) == 1) {
      const ssize_t size = read(ends_[0], part.data(), part.size());
      text.append(part.data(), static_cast<std::size_t>(size > 0 ? size : 0));
    }
    return text;
  }
  void close_reader() {
    if (ends_[0] >= 0) {
      close(ends_[0]);
    }
    ends_[0] = -1;
  }

 private:
  int stream_;
  int before_;
  std::array<int, 2> ends_{-1, -1};  // for reading, for writing
};
