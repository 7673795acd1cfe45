#include "platform/text/text.h"

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>

namespace {

using namespace std::string_literals;

TEST(CodePage, EveryByteComesBackFromUtf8AndUtf16) {
  std::string all;
  for (int i = 0; i < 256; ++i)
    all += static_cast<char>(i);
  std::string exact;
  EXPECT_TRUE(text::FromUtf8Exactly(text::ToUtf8(all), &exact));
  EXPECT_EQ(exact, all);
  EXPECT_EQ(text::FromUtf16(text::ToUtf16(all)), all);
  EXPECT_EQ(text::Utf16ToUtf8(text::ToUtf16(all)), text::ToUtf8(all));
  EXPECT_EQ(text::ToUtf8("Relat\xF3rio \x80\x8A\x92\x9F\xFF"), "Relatório €Š’Ÿÿ");
}

TEST(CodePage, WhatItLacksBecomesAQuestionMark) {
  const struct {
    std::string utf8;
    std::string ansi;
    bool valid;
  } cases[] = {{"aЖb", "a?b", true},                       // a letter of another alphabet
               {"a😀b", "a?b", true},                       // one character, whatever its length
               {"\xC2\x80", "?", true},                    // the euro sign has taken this control character's byte
               {"\xE0\x80\xAF", "???", false},             // overlong
               {"\xED\xA0\x80", "???", false},             // a surrogate
               {"\xF4\x90\x80\x80", "????", false},        // beyond the last character
               {"12345678\xE2\x82", "12345678??", false},  // cut off
               {"\xE2\x28\xA1", "?(?", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.utf8));
    std::string exact;
    EXPECT_EQ(text::FromUtf8(c.utf8), c.ansi);
    EXPECT_FALSE(text::FromUtf8Exactly(c.utf8, &exact));
    EXPECT_EQ(text::IsValidUtf8(c.utf8), c.valid);
  }
  EXPECT_EQ(text::FromUtf16(u"a\xD83D\xDE00z\xDE00\xD83D"), "a?z??");
  EXPECT_EQ(text::Utf8ToUtf16("aé€😀\xFFz\xE2"), u"aé€😀\xFFFDz\xFFFD");
  EXPECT_EQ(text::Utf16ToUtf8(u"aé€😀\xDC00z\xD800"), "aé€😀\uFFFDz\uFFFD");
}

TEST(LetterCase, PairsLettersOverTheWholeCodePage) {
  const std::string lower = "abcz\xE0\xE9\xF6\xF8\xFE\x9A\x9C\x9E\xFF";
  const std::string upper = "ABCZ\xC0\xC9\xD6\xD8\xDE\x8A\x8C\x8E\x9F";
  EXPECT_EQ(text::Upper(lower), upper);
  for (std::size_t i = 0; i < upper.size(); ++i)
    EXPECT_EQ(text::LowerChar(upper[i]), lower[i]);
  for (const char c : "09_@[`{\x83\xB5\xD7\xDF\xF7\xAA\xBA"s) {
    EXPECT_EQ(text::UpperChar(c), c);
    EXPECT_EQ(text::LowerChar(c), c);
  }
}

TEST(LetterCase, ComparesByUpperCaseBytes) {
  for (const char* equal : {"", "vend\xC1s.R\xC9L", "VEND\xE1S.r\xE9l"})
    EXPECT_EQ(text::EqualNoCase(equal, "Vend\xE1s.r\xC9l"), *equal != '\0');
  const std::pair<const char*, const char*> ascending[] = {{"", "a"},  {"a", "B"},    {"A", "b"},   {"a", "AB"},
                                                           {"a", "_"}, {"z", "\xE0"}, {nullptr, ""}};
  for (const auto& [less, greater] : ascending) {
    EXPECT_LT(lstrcmpiA(less, greater), 0) << greater;
    EXPECT_GT(lstrcmpiA(greater, less), 0) << greater;
  }
  EXPECT_EQ(text::CompareNoCase("vend\xC1s", "VEND\xE1S"), 0);
  EXPECT_TRUE(text::EndsWithNoCase("CT01.R\xC9L", ".r\xE9l"));
  EXPECT_FALSE(text::EndsWithNoCase("el", "rel"));
}

TEST(Numbers, IntegersSaturateAndStopAtTheFirstOtherCharacter) {
  const std::map<std::string, std::int32_t> cases = {{"", 0},
                                                     {"- 7", 0},
                                                     {"+-7", 0},
                                                     {" \t\n\v\f\r+12x3", 12},
                                                     {"-007", -7},
                                                     {"1.9", 1},
                                                     {"1\0002"s, 1},
                                                     {"2147483647", INT32_MAX},
                                                     {"99999999999999999999999999", INT32_MAX},
                                                     {"-2147483648", INT32_MIN},
                                                     {"-2147483649", INT32_MIN}};
  for (const auto& [number, value] : cases)
    EXPECT_EQ(text::ToInt(number), value) << number;
}

TEST(Numbers, FractionsReadAsTheStandardLibraryReadsThem) {
  std::istringstream numbers(
      "|x|.|-|-.|1|+1.5| \t-0.25e2x|.5|5.|1e|1e+|1e5|1E-5|1.5.5|0.1|123456789.123456789|1,5|1e308|1e309|-1e309|1e-400|"
      "-1e-400|4.9e-324|1e99999999999999|1e-99999999999999|0e999999|0.000000e-9|--1|+-1|1 2");
  for (std::string number; std::getline(numbers, number, '|');)
    EXPECT_EQ(text::ToDouble(number), std::strtod(number.c_str(), nullptr)) << number;
  const std::string zeros(400, '0');
  EXPECT_EQ(text::ToDouble("1" + zeros), HUGE_VAL);
  EXPECT_EQ(text::ToDouble("0." + zeros + "1"), 0);
  EXPECT_DOUBLE_EQ(text::ToDouble("0." + zeros + "1e401"), 1);
}

TEST(Numbers, FractionsAreWrittenWithSixDecimals) {
  EXPECT_EQ(text::FormatDouble(-2.5), "-2.500000");
  EXPECT_EQ(text::FormatDouble(0.0000005), "0.000000");
  EXPECT_EQ(text::FormatDouble(1234567.891), "1234567.891000");
  EXPECT_EQ(text::FormatDouble(-1.7976931348623157e308).size(), 1 + 309 + 1 + 6U);
}

}  // namespace
