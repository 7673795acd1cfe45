#include "platform/text/text.h"

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

std::string EveryByte() {
  std::string all;
  for (int i = 0; i < 256; ++i)
    all += static_cast<char>(i);
  return all;
}

TEST(CodePage, EveryByteComesBackFromUtf8AndUtf16) {
  const std::string all = EveryByte();
  EXPECT_EQ(text::FromUtf8(text::ToUtf8(all)), all);
  EXPECT_EQ(text::FromUtf16(text::ToUtf16(all)), all);
  EXPECT_EQ(text::Utf16ToUtf8(text::ToUtf16(all)), text::ToUtf8(all));
  std::string exact;
  EXPECT_TRUE(text::FromUtf8Exactly(text::ToUtf8(all), &exact));
  EXPECT_EQ(exact, all);
}

TEST(CodePage, HoldsTheCharactersOfTheDesktop) {
  EXPECT_EQ(text::ToUtf8("Relat\xF3rio \x80\x8A\x92\x9F\xFF"), "Relatório €Š’Ÿÿ");
  EXPECT_EQ(text::FromUtf16(u"Ação – „€”"), "A\xE7\xE3o \x96 \x84\x80\x94");
}

TEST(CodePage, WhatItLacksBecomesAQuestionMark) {
  const struct {
    std::string utf8;
    std::string ansi;
    bool valid;
  } kCases[] = {{"aЖb", "a?b", true},                       // a letter of another alphabet
                {"a😀b", "a?b", true},                       // one character, whatever its length
                {"\xC2\x80", "?", true},                    // the euro sign has taken this control character's byte
                {"\xC0\xAF", "??", false},                  // overlong
                {"\xE0\x80\xAF", "???", false},             // overlong
                {"\xED\xA0\x80", "???", false},             // a surrogate
                {"\xF4\x90\x80\x80", "????", false},        // beyond the last character
                {"12345678\xE2\x82", "12345678??", false},  // cut off
                {"\xE2\x28\xA1", "?(?", false},
                {"\xFF", "?", false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(c.utf8));
    std::string exact;
    EXPECT_EQ(text::FromUtf8(c.utf8), c.ansi);
    EXPECT_FALSE(text::FromUtf8Exactly(c.utf8, &exact));
    EXPECT_EQ(text::IsValidUtf8(c.utf8), c.valid);
  }
  EXPECT_EQ(text::FromUtf16(u"a\xD83D\xDE00z"), "a?z");
  EXPECT_EQ(text::FromUtf16(u"\xDE00\xD83D\xD83D"), "???");
}

TEST(Utf16, ComesBackAndReplacesWhatIsMalformed) {
  const std::string utf8 = "aé€😀z";
  EXPECT_EQ(text::Utf8ToUtf16(utf8), u"aé€😀z");
  EXPECT_EQ(text::Utf16ToUtf8(u"aé€😀z"), utf8);
  EXPECT_EQ(text::Utf8ToUtf16("\xFFz\xE2"), u"\xFFFDz\xFFFD");
  EXPECT_EQ(text::Utf16ToUtf8(u"\xDC00z\xD800"), "\uFFFDz\uFFFD");
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
  const struct {
    const char* a;
    const char* b;
    int sign;
  } kCases[] = {{"", "", 0},       {"vend\xC1s", "VEND\xE1S", 0},
                {"a", "b", -1},    {"b", "A", 1},
                {"ab", "A", 1},    {"_", "a", 1},
                {"z", "\xE0", -1}, {"a", "_", -1}};
  const auto sign = [](int value) { return value < 0 ? -1 : value > 0 ? 1 : 0; };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.a + " with "s + c.b);
    EXPECT_EQ(sign(text::CompareNoCase(c.a, c.b)), c.sign);
    EXPECT_EQ(sign(lstrcmpiA(c.b, c.a)), -c.sign);
    EXPECT_EQ(text::EqualNoCase(c.a, c.b), c.sign == 0);
  }
  EXPECT_LT(lstrcmpiA(nullptr, ""), 0);
  EXPECT_TRUE(text::EndsWithNoCase("CT01.R\xC9L", ".r\xE9l"));
  EXPECT_FALSE(text::EndsWithNoCase("el", "rel"));
}

TEST(Numbers, IntegersSaturateAndStopAtTheFirstOtherCharacter) {
  const std::map<std::string, std::int32_t> kCases = {{"", 0},      {"- 7", 0}, {"+-7", 0},    {" \t\n\v\f\r+12x3", 12},
                                                      {"-007", -7}, {"1.9", 1}, {"1\0002"s, 1}};
  for (const auto& [number, value] : kCases)
    EXPECT_EQ(text::ToInt(number), value) << number;
  EXPECT_EQ(text::ToInt("2147483647"), 2147483647);
  EXPECT_EQ(text::ToInt("99999999999999999999999999"), 2147483647);
  EXPECT_EQ(text::ToInt("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(text::ToInt("-2147483649"), -2147483647 - 1);
}

TEST(Numbers, FractionsReadAsTheStandardLibraryReadsThem) {
  std::istringstream numbers(
      "|x|.|-|-.|1|+1.5| \t-0.25e2x|.5|5.|1e|1e+|1e5|1E-5|1.5.5|0.1|123456789.123456789|1,5|1e308|1e309|-1e309|1e-400|"
      "-1e-400|4.9e-324|1e99999999999999|1e-99999999999999|0e999999|0.000000e-9|--1|+-1|1 2");
  for (std::string number; std::getline(numbers, number, '|');) {
    EXPECT_EQ(text::ToDouble(number), std::strtod(number.c_str(), nullptr)) << number;
  }
  const std::string zeros(400, '0');
  EXPECT_EQ(text::ToDouble("1" + zeros), HUGE_VAL);
  EXPECT_EQ(text::ToDouble("0." + zeros + "1"), 0);
  EXPECT_DOUBLE_EQ(text::ToDouble("0." + zeros + "1e401"), 1);
}

TEST(Numbers, FractionsAreWrittenWithSixDecimals) {
  EXPECT_EQ(text::FormatDouble(0), "0.000000");
  EXPECT_EQ(text::FormatDouble(-2.5), "-2.500000");
  EXPECT_EQ(text::FormatDouble(0.0000005), "0.000000");
  EXPECT_EQ(text::FormatDouble(1234567.891), "1234567.891000");
  EXPECT_EQ(text::FormatDouble(-1.7976931348623157e308).size(), 1 + 309 + 1 + 6U);
}

}  // namespace
