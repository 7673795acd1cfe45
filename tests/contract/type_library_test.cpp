// The type library says what the headers say: clients are made from the one, the server from the other.
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <regex>
#include <string>

#include "contract/interfaces.h"
#include "support/support.h"

namespace {

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
TEST(TypeLibrary, DeclaresWhatTheHeadersDo) {
  auto declared = Declarations(Read("records.h") + Read("interfaces.h"));
  EXPECT_EQ(declared.erase("struct CURRENCY"), 1u) << "a type of the platform";
  const auto described = Declarations(Read("KESTORLib.idl"));
  EXPECT_EQ(described.size(), 4u + 14u + 3u);
  EXPECT_EQ(described, declared);
}

TEST(TypeLibrary, TellsDirectionsAndExtents) {
  const std::string text = Read("KESTORLib.idl");
  const auto count = [&text](const char* pattern) { return Matches(text, pattern).size(); };
  EXPECT_EQ(count(R"(\[out)"), count(R"(\[out[^\]]*\] [\w ]+\*)")) << "what comes out needs a place";
  EXPECT_EQ(count(R"(\[in\] [\w ]+\*)"), 1u) << "the filter alone is a single record behind a pointer";
  EXPECT_EQ(count("size_is"),
            count(R"((\w+), \[(in|out), size_is\(\1\)\])") + count(R"((\w+);[^{}]*\[size_is\(\1\)\])"))
      << "a count stands in front of its array";
}

TEST(TypeLibrary, HasTheIdentitiesOfTheHeaders) {
  std::map<std::string, std::string> described;
  const std::string text = Read("KESTORLib.idl");
  for (const std::smatch& head : Matches(text, R"(uuid\(([-0-9A-F]+)\)([^\]]*)\] (library|interface|coclass) (\w+))"))
    described[head[4]] = "{" + head[1].str() + "}" + head[2].str();
  const std::map<std::string, std::string> declared = {
      {"KESTORLib", GuidText(LIBID_KESTORLib) + ", version(1.0), lcid(1033), helpstring(\"KESTOR 1.0 Type Library\") "},
      {"IZNPL_Rel", GuidText(IID_IZNPL_Rel) + " "},
      {"IZNPL_Relatorio2", GuidText(IID_IZNPL_Relatorio2) + " "},
      {"IZNPL_RelConverte", GuidText(IID_IZNPL_RelConverte) + " "},
      {"ZNPL_Rel", GuidText(CLSID_ZNPL_Rel) + ", helpstring(\"ZNPL_Rel Class\") "},
      {"ZNPL_Relatorio2", GuidText(CLSID_ZNPL_Relatorio2) + ", helpstring(\"ZNPLRelatorio2 Class\") "},
      {"ZNPL_RelConverte", GuidText(CLSID_ZNPL_RelConverte) + ", helpstring(\"ZNPL_RelConverte Class\") "}};
  EXPECT_EQ(described, declared);
  EXPECT_EQ(Matches(text, R"(coclass (\w+) \{ \[default\] interface I\1; \};)").size(), 3u);
}

}  // namespace
