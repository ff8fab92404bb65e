#include "description/number.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

namespace kelvara::description {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

struct Word {
  std::string_view text;
  double value;
};

constexpr std::array kYamlWords{
    Word{".inf", kInfinity},   Word{".Inf", kInfinity},   Word{".INF", kInfinity},
    Word{"+.inf", kInfinity},  Word{"+.Inf", kInfinity},  Word{"+.INF", kInfinity},
    Word{"-.inf", -kInfinity}, Word{"-.Inf", -kInfinity}, Word{"-.INF", -kInfinity},
    Word{".nan", kNan},        Word{".NaN", kNan},        Word{".NAN", kNan},
};

constexpr std::array kUrdfWords{
    Word{"inf", kInfinity},      Word{"+inf", kInfinity},      Word{"-inf", -kInfinity},
    Word{"infinity", kInfinity}, Word{"+infinity", kInfinity}, Word{"-infinity", -kInfinity},
    Word{"nan", kNan},           Word{"+nan", kNan},           Word{"-nan", kNan},
};

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

/// tolower() would follow the locale.
std::string lower_case(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

template <typename Words>
std::optional<double> find_word(const Words& words, std::string_view text) {
  const auto found =
      std::find_if(words.begin(), words.end(), [&](const Word& word) { return word.text == text; });
  return found == words.end() ? std::nullopt : std::optional(found->value);
}

std::optional<double> parse_word(std::string_view text, NonFinite words) {
  switch (words) {
    case NonFinite::kYaml:
      return find_word(kYamlWords, text);
    case NonFinite::kUrdf:
      return find_word(kUrdfWords, lower_case(trimmed(text)));
    case NonFinite::kNone:
      break;
  }
  return std::nullopt;
}

}  // namespace

std::optional<double> parse_number(std::string_view text, NonFinite words) {
  if (const std::optional<double> value = parse_word(text, words)) {
    return value;
  }
  std::istringstream stream{std::string(text)};
  stream.imbue(std::locale::classic());
  double value = 0.0;
  if ((stream >> value) && (stream >> std::ws).eof()) {
    return value;
  }
  return std::nullopt;
}

}  // namespace kelvara::description
