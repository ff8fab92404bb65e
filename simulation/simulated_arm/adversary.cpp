#include "simulation/simulated_arm/adversary.hpp"

#include <algorithm>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

namespace kelvara::simulation {
namespace {

using Frames = std::vector<canfd_frame>;
using Rates = Adversary::Rates;

constexpr unsigned kJoints = 6;
constexpr unsigned kMotors = 7;
constexpr unsigned kRegisters = 82;
constexpr canid_t kSharedId = 0x7FF;
constexpr canid_t kFeedbackOffset = 0x10;
constexpr canid_t kPositionVelocityOffset = 0x100;
constexpr std::uint8_t kQuery = 0x33;

enum class Direction { kToMotors, kToHost };

/// The faults of one direction.
class Stream {
 public:
  Stream(Direction direction, const Adversary::Options& options)
      : direction_(direction),
        rates_(direction == Direction::kToMotors ? options.to_motors : options.to_host),
        longest_delay_(options.longest_delay),
        random_(2 * options.seed + (direction == Direction::kToHost ? 1U : 0U)) {}

  void change(Frames& frames, Adversary::Counts& counts) {
    out_.clear();
    for (const canfd_frame& frame : frames) {
      release_due();
      pass(frame, counts);
      forge(counts);
    }
    frames.swap(out_);
  }

  void drop_delayed() { delayed_.clear(); }

 private:
  struct Delayed {
    unsigned frames_left;
    canfd_frame frame;
  };

  bool draw(double rate) { return std::generate_canonical<double, 32>(random_) < rate; }
  unsigned draw_below(unsigned end) { return static_cast<unsigned>(random_() % end); }
  std::uint8_t draw_byte() { return static_cast<std::uint8_t>(draw_below(256)); }

  void release_due() {
    std::erase_if(delayed_, [this](Delayed& waiting) {
      const bool due = --waiting.frames_left == 0;
      if (due) {
        out_.push_back(waiting.frame);
      }
      return due;
    });
  }

  void pass(const canfd_frame& frame, Adversary::Counts& counts) {
    if (draw(rates_.lose)) {
      ++counts.lost;
    } else if (draw(rates_.delay)) {
      ++counts.delayed;
      delayed_.push_back({1 + draw_below(longest_delay_), frame});
    } else {
      out_.push_back(frame);
      if (draw(rates_.repeat)) {
        ++counts.repeated;
        out_.push_back(frame);
      }
    }
  }

  void forge(Adversary::Counts& counts) {
    if (draw(rates_.forge_feedback)) {
      ++counts.forged_feedback;
      forge_feedback();
    }
    if (draw(rates_.forge_register)) {
      ++counts.forged_registers;
      forge_register();
    }
    if (draw(rates_.forge_command)) {
      ++counts.forged_commands;
      const canid_t offset = draw(0.5) ? kPositionVelocityOffset : 0;
      add(1 + draw_below(kJoints) + offset, {});
    }
  }

  void forge_feedback() {
    const unsigned motor = 1 + draw_below(kMotors);
    add(motor + kFeedbackOffset, {static_cast<std::uint8_t>(0x10 | motor)});
  }

  void forge_register() {
    const unsigned motor = 1 + draw_below(kMotors);
    const bool query = direction_ == Direction::kToMotors;
    add(query ? kSharedId : motor + kFeedbackOffset,
        {static_cast<std::uint8_t>(motor), 0, kQuery,
         static_cast<std::uint8_t>(draw_below(kRegisters))});
  }

  /// Adds a frame that begins with these bytes and continues with random ones.
  void add(canid_t id, const std::vector<std::uint8_t>& start) {
    canfd_frame frame{};
    frame.can_id = id;
    frame.len = 8;
    for (std::size_t i = 0; i < frame.len; ++i) {
      frame.data[i] = i < start.size() ? start[i] : draw_byte();
    }
    out_.push_back(frame);
  }

  Direction direction_;
  Rates rates_;
  unsigned longest_delay_;
  std::mt19937 random_;
  std::vector<Delayed> delayed_;
  Frames out_;
};

}  // namespace

struct Adversary::State {
  explicit State(const Options& options)
      : observe_command(options.observe_command),
        to_motors(Direction::kToMotors, options),
        to_host(Direction::kToHost, options) {}

  void change(Stream& stream, Frames& frames) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (active) {
      stream.change(frames, counts);
    }
  }

  void observe(const Frames& frames) const {
    if (observe_command) {
      std::for_each(frames.begin(), frames.end(), observe_command);
    }
  }

  const std::function<void(const canfd_frame&)> observe_command;
  std::mutex mutex;
  bool active = true;
  Stream to_motors;
  Stream to_host;
  Counts counts;
};

Adversary::Adversary(const Options& options) : state_(std::make_shared<State>(options)) {}

void Adversary::attach(SimulatedArmBus& bus) {
  bus.change_commands([state = state_](Frames& frames) {
    state->observe(frames);
    state->change(state->to_motors, frames);
  });
  bus.change_replies([state = state_](Frames& frames) { state->change(state->to_host, frames); });
}

void Adversary::set_active(bool active) {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  state_->active = active;
  if (!active) {
    state_->to_motors.drop_delayed();
    state_->to_host.drop_delayed();
  }
}

Adversary::Counts Adversary::counts() const {
  const std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->counts;
}

}  // namespace kelvara::simulation
