#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

/// Whether this process was forked by status_of_child.
inline bool is_forked_child = false;

/// Asked by the leak checker before it looks. In a child it would wait, at times without end, for
/// the parent's threads, which do not exist there.
extern "C" [[gnu::used, gnu::visibility("default")]] inline int __lsan_is_turned_off() {
  return is_forked_child ? 1 : 0;
}

/// Forks; the child calls `action` and ends with exit(), after 20 s by SIGALRM. Returns what the
/// action returned, or -1 when the child did not end by exit().
template <typename Action>
int status_of_child(Action action) {
  constexpr unsigned kPatience_s = 20;
  std::fflush(nullptr);  // the child would print it, too
  const pid_t child = fork();
  if (child == 0) {
    is_forked_child = true;
    alarm(kPatience_s);
    std::exit(action());  // NOLINT(concurrency-mt-unsafe): the child has one thread
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
