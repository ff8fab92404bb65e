#include "description/number.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "support/comma_locale.hpp"

namespace kelvara::description {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(Number, IsTheWholeTextWhateverTheLocale) {
  const CommaLocale locale;
  for (const auto words : {NonFinite::kNone, NonFinite::kYaml, NonFinite::kUrdf}) {
    EXPECT_EQ(parse_number("0.7", words), 0.7);
    EXPECT_EQ(parse_number(" +1e-1 \n", words), 0.1);
    EXPECT_EQ(parse_number("-1234567.", words), -1234567.0);
    for (const char* text : {"", " ", "up", "0,7", "1.234,5", "1kg", "1 2", "0x10", "1e", "1e999",
                             "--1", ". 5", "inf1", "..inf"}) {
      EXPECT_EQ(parse_number(text, words), std::nullopt) << text;
    }
  }
}

TEST(Number, HasTheFormatsOwnWordsForInfinityAndNan) {
  for (const char* text : {".inf", ".Inf", ".INF", "+.inf", "+.Inf", "+.INF"}) {
    EXPECT_EQ(parse_number(text, NonFinite::kYaml), kInfinity) << text;
  }
  for (const char* text : {"-.inf", "-.Inf", "-.INF"}) {
    EXPECT_EQ(parse_number(text, NonFinite::kYaml), -kInfinity) << text;
  }
  for (const char* text : {".nan", ".NaN", ".NAN"}) {
    EXPECT_TRUE(std::isnan(parse_number(text, NonFinite::kYaml).value_or(0.0))) << text;
  }
  for (const char* text : {"inf", "Infinity", "+INF", " inf "}) {
    EXPECT_EQ(parse_number(text, NonFinite::kUrdf), kInfinity) << text;
  }
  EXPECT_EQ(parse_number("-inf", NonFinite::kUrdf), -kInfinity);
  EXPECT_TRUE(std::isnan(parse_number("NaN", NonFinite::kUrdf).value_or(0.0)));
  // Neither format has the other's words, and a vector's components are finite.
  EXPECT_EQ(parse_number("inf", NonFinite::kYaml), std::nullopt);
  EXPECT_EQ(parse_number("nan", NonFinite::kNone), std::nullopt);
  EXPECT_EQ(parse_number(".inf", NonFinite::kUrdf), std::nullopt);
  EXPECT_EQ(parse_number(".nan", NonFinite::kNone), std::nullopt);
}

}  // namespace
}  // namespace kelvara::description
