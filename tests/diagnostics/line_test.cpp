#include "diagnostics/line.hpp"

#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "support/comma_locale.hpp"
#include "support/replaced_stream.hpp"

namespace kelvara::diagnostics {
namespace {

using Kind = ReplacedStream::Kind;

struct UnreadStream : ::testing::TestWithParam<std::tuple<int, Kind>> {
  static Line line() {
    return std::get<0>(GetParam()) == STDOUT_FILENO ? output_line() : error_line();
  }
};

TEST_P(UnreadStream, DropsAndCountsLinesAndReportsTheirNumberWhenItIsReadAgain) {
  const CommaLocale locale;
  const std::uint64_t dropped_before = dropped_lines();
  int flags = -1;
  std::uint64_t dropped = 0;
  std::string text;
  {
    const auto [stream, kind] = GetParam();
    const ReplacedStream replaced(stream, kind);
    replaced.fill();
    line() << "lost";
    line() << "lost, too";
    flags = fcntl(stream, F_GETFL);
    dropped = dropped_lines() - dropped_before;
    replaced.read_all();
    line() << "read again: " << 1.5;
    line() << "the next";
    text = replaced.read_all();
  }
  EXPECT_EQ(text,
            "[diagnostics] 2 lines dropped: the stream was not read\nread again: 1.5\nthe next\n");
  EXPECT_EQ(dropped, 2U);
  EXPECT_EQ(flags & O_NONBLOCK, 0) << "the application shares the descriptor";
}

INSTANTIATE_TEST_SUITE_P(BothStreams, UnreadStream,
                         ::testing::Combine(::testing::Values(STDOUT_FILENO, STDERR_FILENO),
                                            ::testing::Values(Kind::kPipe, Kind::kSocket)));

TEST(Line, IsDroppedByATerminalThatIsStopped) {
  int master = -1;
  int terminal = -1;
  ASSERT_EQ(openpty(&master, &terminal, nullptr, nullptr, nullptr), 0);
  ASSERT_EQ(tcflow(terminal, TCOOFF), 0) << "as Ctrl-S does";
  const std::uint64_t dropped_before = dropped_lines();
  const int stderr_before = dup(STDERR_FILENO);
  dup2(terminal, STDERR_FILENO);
  error_line() << "lost";
  const std::uint64_t dropped = dropped_lines() - dropped_before;
  tcflow(terminal, TCOON);
  error_line() << "read again";
  dup2(stderr_before, STDERR_FILENO);
  std::string text(200, '\0');
  text.resize(static_cast<std::size_t>(read(master, text.data(), text.size())));
  for (const int descriptor : {stderr_before, terminal, master}) {
    close(descriptor);
  }
  EXPECT_EQ(dropped, 1U);
  EXPECT_EQ(text.substr(0, 30), "[diagnostics] 1 lines dropped:");
}

TEST(Line, SurvivesAReaderThatHasGone) {
  const std::uint64_t dropped_before = dropped_lines();
  sigset_t pending;
  {
    ReplacedStream replaced(STDERR_FILENO);
    replaced.close_reader();
    error_line() << "lost";  // SIGPIPE would end the process
    sigpending(&pending);
  }
  EXPECT_EQ(dropped_lines() - dropped_before, 1U);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  error_line() << "SurvivesAReaderThatHasGone";  // the report belongs to this test
}

TEST(Line, FollowsWhatTheApplicationHasPrinted) {
  std::string text;
  {
    const ReplacedStream replaced(STDOUT_FILENO);
    std::printf("printed, ");
    output_line() << "then a line";
    std::printf("printed, ");
    error_line() << "FollowsWhatTheApplicationHasPrinted";
    text = replaced.read_all();
  }
  EXPECT_EQ(text, "printed, then a line\nprinted, ");
}

TEST(Line, IsCutToWhatAPipeTakesWhole) {
  std::string text;
  {
    const ReplacedStream replaced(STDERR_FILENO);
    error_line() << std::string(2 * PIPE_BUF, 'x') << "end";
    text = replaced.read_all();
  }
  EXPECT_EQ(text, std::string(PIPE_BUF - 1, 'x') + '\n');
}

}  // namespace
}  // namespace kelvara::diagnostics
