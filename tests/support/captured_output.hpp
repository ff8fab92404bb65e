#pragma once

#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>

/// Collects what is written to std::cout and std::cerr while it lives, from any threads.
class CapturedOutput {
 public:
  CapturedOutput() : out_before_(std::cout.rdbuf(&out_)), err_before_(std::cerr.rdbuf(&err_)) {}
  ~CapturedOutput() {
    std::cout.rdbuf(out_before_);
    std::cerr.rdbuf(err_before_);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string out() const { return out_.text(); }
  std::string err() const { return err_.text(); }

 private:
  /// As safe from several threads as the streams that it stands in for.
  class Buffer : public std::streambuf {
   public:
    std::string text() const {
      const std::lock_guard<std::mutex> lock(mutex_);
      return text_;
    }

   protected:
    std::streamsize xsputn(const char* data, std::streamsize size) override {
      const std::lock_guard<std::mutex> lock(mutex_);
      text_.append(data, static_cast<std::size_t>(size));
      return size;
    }
    int_type overflow(int_type character) override {
      const char byte = traits_type::to_char_type(character);
      return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
    }

   private:
    mutable std::mutex mutex_;
    std::string text_;
  };

  Buffer out_;
  Buffer err_;
  std::streambuf* out_before_;
  std::streambuf* err_before_;
};
