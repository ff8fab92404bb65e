#pragma once

#include <locale>
#include <sstream>

namespace kelvara::description {

/// Builds a line whose numbers are written alike under every locale.
class ClassicStream : public std::ostringstream {
 public:
  ClassicStream() { imbue(std::locale::classic()); }
};

}  // namespace kelvara::description
