// The type library says what the headers say: clients are made from the one, the server from the other. Every result
// that a user can meet has a name of its own.
#include <gtest/gtest.h>
#include <map>
#include <regex>

#include "contract/interfaces.h"
#include "contract/results.h"
#include "support/support.h"

namespace {

using kestor::Describe;
using kestor::ResultCode;
using Replacements = std::vector<std::pair<const char*, const char*>>;

std::string Replaced(std::string text, const Replacements& replacements) {
  for (const auto& [pattern, replacement] : replacements)
    text = std::regex_replace(text, std::regex(pattern), replacement);
  return text;
}

std::string Read(const std::string& file) {
  return Replaced(support::ReadFile(std::string(CONTRACT_FOLDER) + "/" + file), {{"//[^\n]*", ""}, {R"(\s+)", " "}});
}

std::vector<std::smatch> Matches(const std::string& text, const char* pattern) {
  const std::regex expression(pattern);
  return {std::sregex_iterator(text.begin(), text.end(), expression), std::sregex_iterator()};
}

// The bodies of records, enumerations and interfaces by their heads, written one way for both languages.
std::map<std::string, std::string> Declarations(const std::string& source) {
  const std::string text = Replaced(source, {{R"(\[(in|out|size_is)[^\]]*\] )", ""},
                                             {R"(\bvirtual | protected: ~\w+\(\) = default;)", ""},
                                             {R"(\) = 0;)", ");"},
                                             {R"(\binterface (\w+) :)", "struct $1 :"},
                                             {R"(\btypedef enum (\{[^}]*\}) (\w+))", "enum $2 : int $1"},
                                             {R"(\b(std::int32_t|LONG|long)\b)", "int"},
                                             {R"(\bstd::int16_t\b)", "short"},
                                             {R"(\b(std::uint16_t|USHORT)\b)", "unsigned short"},
                                             {R"(\bstd::uint8_t\b)", "unsigned char"}});
  std::map<std::string, std::string> bodies;
  for (const std::smatch& match : Matches(text, R"(((?:struct|union|enum) \w+(?: : \w+)?) \{([^}]*)\})"))
    bodies[match[1]] = match[2];
  return bodies;
}

// The order of the methods is that of the slots; the headers assert where their fields lie.
TEST(Contract, DeclaresWhatTheHeadersDo) {
  auto declared = Declarations(Read("records.h") + Read("interfaces.h"));
  EXPECT_EQ(declared.erase("struct CURRENCY"), 1u) << "a type of the platform";
  const auto described = Declarations(Read("KESTORLib.idl"));
  EXPECT_EQ(described.size(), 4u + 14u + 3u);
  EXPECT_EQ(described, declared);
}

TEST(Contract, TellsDirectionsAndExtents) {
  const std::string text = Read("KESTORLib.idl");
  const auto count = [&text](const char* pattern) { return Matches(text, pattern).size(); };
  EXPECT_EQ(count(R"(\[out)"), count(R"(\[out[^\]]*\] [\w ]+\*)")) << "what comes out needs a place";
  EXPECT_EQ(count(R"(\[in\] [\w ]+\*)"), 1u) << "the filter alone is a single record behind a pointer";
  EXPECT_EQ(count("size_is"),
            count(R"((\w+), \[(in|out), size_is\(\1\)\])") + count(R"((\w+);[^{}]*\[size_is\(\1\)\])"))
      << "a count stands in front of its array";
}

TEST(Contract, HasTheIdentitiesOfTheHeaders) {
  const std::string text = Read("KESTORLib.idl");
  for (const auto& [name, guid] :
       {std::pair("interface IZNPL_Rel", IID_IZNPL_Rel), std::pair("interface IZNPL_Relatorio2", IID_IZNPL_Relatorio2),
        std::pair("interface IZNPL_RelConverte", IID_IZNPL_RelConverte), std::pair("coclass ZNPL_Rel", CLSID_ZNPL_Rel),
        std::pair("coclass ZNPL_Relatorio2", CLSID_ZNPL_Relatorio2),
        std::pair("coclass ZNPL_RelConverte", CLSID_ZNPL_RelConverte)}) {
    const std::string identity = R"(uuid\()" + GuidText(guid).substr(1, 36) + R"(\)[^\]]*\] )" + name + R"(\b)";
    EXPECT_EQ(Matches(text, identity.c_str()).size(), 1u) << name;
  }
  EXPECT_EQ(Matches(text, R"(coclass (\w+) \{ \[default\] interface I\1; \};)").size(), 3u);
}

// Every number that the files, the shared services and the interfaces can give is looked at, and what has a name is
// counted.
TEST(Results, NamesAreGivenOnce) {
  using Range = std::tuple<std::uint32_t, std::uint32_t, std::size_t>;
  std::map<std::string, std::uint32_t> owners;
  for (const auto& [first, last, count] :
       {Range(0, 1, 2), Range(0x80004001, 0x80004005, 4), Range(0x80040001, 0x8004000C, 12),
        Range(0x80043E80, 0x80043FAC, 16), Range(0x80070000, 0x800704FF, 28), Range(0x800705B4, 0x800705B4, 1),
        Range(0x80070600, 0x800706FF, 4), Range(0x80010105, 0x80010110, 2), Range(0x80040110, 0x800401FC, 4),
        Range(0x80080005, 0x80080005, 1), Range(0x80028000, 0x80029FFF, 2)}) {
    const std::size_t before = owners.size();
    for (std::uint32_t number = first; number <= last; ++number) {
      const kestor::ResultText text = Describe(static_cast<HRESULT>(number));
      EXPECT_FALSE(text.meaning.empty()) << number;
      if (text.name.starts_with("FACILITY_")) continue;
      const auto [owner, isNew] = owners.emplace(text.name, number);
      EXPECT_TRUE(isNew) << text.name << " is " << owner->second << " and " << number;
    }
    EXPECT_GE(owners.size() - before, count) << ResultCode(static_cast<HRESULT>(first));
  }
}

TEST(Results, WithoutANameAreToldByTheirSource) {
  const std::pair<std::uint32_t, std::string> cases[] = {
      {0x0004000D, "FACILITY_ITF_13: notice 13 of the interface"},
      {0x80071234, "FACILITY_WIN32_4660: failure 4660 of the system"},
      {0x87FF0001, "FACILITY_2047_1: failure 1 of an unknown source"}};
  for (const auto& [number, told] : cases) {
    const kestor::ResultText text = Describe(static_cast<HRESULT>(number));
    EXPECT_EQ(text.name + ": " + text.meaning, told);
  }
}

}  // namespace
