#pragma once

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

/// Memory, descriptors and threads in use by this process.
struct ProcessResources {
  static constexpr long kAllowedGrowthKb = 2048;

  static ProcessResources now() {
    malloc_trim(0);
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return {resident * sysconf(_SC_PAGESIZE) / 1024, entries("/proc/self/fd"),
            entries("/proc/self/task")};
  }
  void print(const char* when, double seconds) const {
    std::printf("%8.1f s  %-14s %7ld KiB resident, %2ld descriptors, %ld threads\n", seconds, when,
                memory_kb, descriptors, threads);
    std::fflush(stdout);
  }
  bool grew_since(const ProcessResources& before) const {
    return memory_kb > before.memory_kb + kAllowedGrowthKb || descriptors > before.descriptors ||
           threads > before.threads;
  }

  long memory_kb, descriptors, threads;

 private:
  static long entries(const char* path) {
    return std::distance(std::filesystem::directory_iterator(path), {});
  }
};
