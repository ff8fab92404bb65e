#include "simulation/simulated_arm/adversary.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/simulated_hardware.hpp"

namespace {

using kelvara::simulation::Adversary;

/// What a host receives that refreshes motor 4 a thousand times.
std::vector<BusFrame> answers_under(const Adversary::Options& options, Adversary::Counts* counts) {
  SimulatedHardware hardware(false);
  Adversary adversary(options);
  adversary.attach(hardware.arm_bus());
  BusPeer host;
  for (int k = 0; k < 1000; ++k) {
    host.send(parse_frame("7FF#0400CC0000000000"));
    hardware.step(1, std::chrono::nanoseconds(0));
  }
  *counts = adversary.counts();
  return host.receive();
}

TEST(AdversaryTest, InjectsTheSameFaultsAtTheGivenRatesForTheSameSeed) {
  const Adversary::Rates rates{0.05, 0.05, 0.05, 0.05, 0.05, 0.05};
  Adversary::Counts first{};
  Adversary::Counts second{};
  const std::vector<BusFrame> answers = answers_under({7, rates, rates}, &first);
  EXPECT_EQ(answers, answers_under({7, rates, rates}, &second));
  EXPECT_NE(answers, answers_under({8, rates, rates}, &second));
  for (const unsigned count : {first.lost, first.delayed, first.repeated, first.forged_feedback,
                               first.forged_registers, first.forged_commands}) {
    EXPECT_NEAR(count, 100.0, 40.0) << "5 % of a thousand frames in each direction";
  }
  int observed = 0;
  const auto observe = [&](const canfd_frame&) { ++observed; };
  EXPECT_EQ(answers_under({7, {.lose = 1.0, .forge_register = 1.0}, {}, 1, observe}, &first).size(),
            1000U)
      << "to the forged queries alone";
  EXPECT_EQ(observed, 1000);
  EXPECT_EQ(answers_under({7, {}, {.repeat = 1.0}}, &first).size(), 2000U);
  EXPECT_EQ(answers_under({7, {}, {.delay = 1.0}, 1}, &first).size(), 999U) << "by one frame";
}

}  // namespace
