#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <type_traits>

/// A fuzzer's bytes, consumed from front to back, followed by zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  template <typename Value>
  Value take() {
    static_assert(std::is_trivially_copyable_v<Value>);
    Value value{};
    const std::size_t size = std::min(sizeof(Value), left_);
    if (size > 0) {
      std::memcpy(static_cast<void*>(&value), data_, size);
    }
    data_ += size;
    left_ -= size;
    return value;
  }
  /// 0 .. count - 1
  unsigned choose(unsigned count) { return take<std::uint8_t>() % count; }
  bool flip() { return choose(2) == 1; }

  /// Any double: an edge case, one of everyday size, or the next eight bytes.
  double number() {
    using Limits = std::numeric_limits<double>;
    static constexpr std::array kEdges{0.0,
                                       -0.0,
                                       1.0,
                                       -1.0,
                                       1e-6,
                                       1e9,
                                       3.14159265358979323846,
                                       Limits::min(),
                                       Limits::denorm_min(),
                                       Limits::epsilon(),
                                       Limits::max(),
                                       Limits::lowest(),
                                       Limits::infinity(),
                                       -Limits::infinity(),
                                       Limits::quiet_NaN()};
    const unsigned kind = take<std::uint8_t>();
    if (kind < kEdges.size()) {
      return kEdges[kind];
    }
    return kind < 0xE0 ? everyday_number() : take<double>();
  }
  /// -8 .. 8, as angles, speeds and lengths are.
  double everyday_number() { return take<std::int16_t>() / 4096.0; }
  template <std::size_t size>
  std::array<double, size> numbers() {
    std::array<double, size> values;
    std::generate(values.begin(), values.end(), [this] { return number(); });
    return values;
  }
  template <std::size_t size>
  std::array<double, size> everyday_numbers() {
    std::array<double, size> values;
    std::generate(values.begin(), values.end(), [this] { return everyday_number(); });
    return values;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

/// Aborts, which the fuzzer reports as a finding, unless the law holds.
inline void require(bool holds, const char* law) {
  if (!holds) {
    std::fprintf(stderr, "BROKEN: %s\n", law);
    std::abort();
  }
}

/// Discards what the library prints; findings are written to stderr directly.
inline void silence_reports() {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(nullptr);
}
