#pragma once

#include <iostream>
#include <sstream>
#include <string>

/// Collects what is written to std::cout and std::cerr while it lives.
class CapturedOutput {
 public:
  CapturedOutput()
      : out_before_(std::cout.rdbuf(out_.rdbuf())), err_before_(std::cerr.rdbuf(err_.rdbuf())) {}
  ~CapturedOutput() {
    std::cout.rdbuf(out_before_);
    std::cerr.rdbuf(err_before_);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string out() const { return out_.str(); }
  std::string err() const { return err_.str(); }

 private:
  std::ostringstream out_;
  std::ostringstream err_;
  std::streambuf* out_before_;
  std::streambuf* err_before_;
};
