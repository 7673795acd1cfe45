// Field catalogues, and first-generation models with the files beside them, through the program and the server.
#include <algorithm>

#include "fixture.h"

using nlohmann::json;

namespace fs = std::filesystem;

namespace {

// One line of a catalogue; every argument starts at its column.
std::string Line(std::string code, std::string description, std::string alias, const std::string& rest) {
  code.resize(6, ' ');
  description.resize(21, ' ');
  alias.resize(22, ' ');
  return code + description + alias + rest + "\r\n";
}

const std::string kCatalogue = Line("1", "Descri\xE7\xE3o", "Conta", "E  10   S  C  N  S  ") +
                               Line("70000", "Valor\tl\xEDquido", "\xC1rea", "d  5    s  V  S  N  A=1;B=2") + "\r\n" +
                               Line("3", "", "Q", "?  ");

// `count` little-endian bytes.
std::string Number(std::uint32_t number, std::size_t count) {
  std::string bytes;
  for (; count > 0; --count, number >>= 8)
    bytes += static_cast<char>(number & 0xFF);
  return bytes;
}

// Every byte another than its neighbours.
std::string Pattern(std::size_t count) {
  std::string bytes(count, '\0');
  std::generate(bytes.begin(), bytes.end(), [byte = 0]() mutable { return static_cast<char>(byte += 7); });
  return bytes;
}

std::string Settings(std::uint32_t items, std::size_t size) {
  return Pattern(size).replace(604, 2, Number(items, 2));
}

class Legacy : public KestorctlTest {
 protected:
  Legacy() {
    SetUpHome();
    support::WriteFile(Contabil() / "XCT01.REL", kCatalogue);
  }

  std::string Stored(const std::string& file) const { return support::ReadFile(Reports() / file); }
};

TEST_F(Legacy, FieldsStandInColumnsOfCharacters) {
  EXPECT_EQ(Run({"fields", "CT", "01"}).output,
            "CODE  ALIAS  DESCRIPTION    TYPE     ALIGNED  WIDTH  USE            OPTIONS\n"
            "   1  Conta  Descri\u00E7\u00E3o      account  left        10  filter, sort\n"
            "4464  \u00C1rea   Valor l\u00EDquido  amount   right        5  filter, total  A=1;B=2\n"
            "   3  Q                              ?            0\n");
  EXPECT_EQ(Run({"legacy", "fields", "CT", "01"}).output,
            " CODE  ALIAS  DESCRIPTION    TYPE     ALIGNED  WIDTH  USE           OPTIONS\n"
            "    1  Conta  Descri\u00E7\u00E3o      account  left        10  filter, sort\n"
            "70000  \u00C1rea   Valor l\u00EDquido  amount   d            5  total         A=1;B=2\n"
            "    3  Q                              ?            0\n");
}

TEST_F(Legacy, FieldsOfTheDocumentAreThoseOfTheCatalogue) {
  const json empty = {{"code", 0},  {"alias", ""},     {"description", ""}, {"type", ""},    {"alignment", ""},
                      {"width", 0}, {"filter", false}, {"total", false},    {"sort", false}, {"options", ""}};
  json second = {{"code", 4464},        {"alias", "\u00C1rea"}, {"description", "Valor\tl\u00EDquido"},
                 {"type", "V"},         {"width", 5},           {"alignment", "D"},
                 {"filter", true},      {"total", true},        {"sort", false},
                 {"options", "A=1;B=2"}};
  const json told = Run({"--json", "fields", "CT", "01"}).Document();
  EXPECT_EQ(told["result"], "0x00000000");
  ASSERT_EQ(told["fields"].size(), 5U);
  EXPECT_EQ(told["fields"][1], second);
  EXPECT_EQ(told["fields"][2], empty);
  EXPECT_EQ(told["fields"][4], empty);
  second.update({{"code", 70000}, {"alignment", "d"}, {"filter", false}});
  EXPECT_EQ(Run({"--json", "legacy", "fields", "CT", "01"}).Document()["fields"][1], second);

  for (const std::string command : {"fields", "legacy fields"}) {
    ExpectTold(RunShell("$ctl " + command + " CT 02"), 1, "0x80040001 KESTOR_ARQ_NAO_EXISTE: the field catalogue");
    EXPECT_THAT(RunShell("$ctl --json " + command + " CT 02").Document()["detail"].get<std::string>(),
                testing::MatchesRegex("there is no file .*XCT02\\.REL"));
  }
}

TEST_F(Legacy, ModelsAreWrittenListedReadAndDeleted) {
  EXPECT_EQ(Run({"--json", "legacy", "list", "CT", "01"}).Document()["names"], json::array());
  ExpectTold(Run({"legacy", "list", "CT", "01"}), 3, "0x00040008 KESTOR_NENHUM_ARQUIVO_ENCONTRADO");
  support::WriteFile(Folder() / "in", Pattern(3000000));
  EXPECT_EQ(Run({"legacy", "write", "CT", "01", "Vendas.x", "in"}).status, 0);
  EXPECT_TRUE(Stored("CT01Vendas.REL") == Pattern(3000000));
  EXPECT_EQ(Run({"legacy", "read", "CT", "01", "vendas", "-o", "out"}).output, "");
  EXPECT_TRUE(support::ReadFile(Folder() / "out") == Pattern(3000000));
  ExpectTold(Run({"legacy", "read", "CT", "01", "Vendas.x", "-o", "none"}), 3, "0x00040001 KESTOR_ARQ_NAO_EXISTE");

  EXPECT_EQ(Run({"legacy", "write", "CT", "01", "\u00C1gua", "-"}, "old").status, 0);
  ExpectTold(Run({"legacy", "write", "CT", "01", "\u00C1gua", "-", "--no-overwrite"}, "new"), 3,
             "0x00040004 KESTOR_ARQUIVO_JA_EXISTE");
  EXPECT_EQ(Run({"--json", "legacy", "read", "CT", "01", "\u00C1gua"}).Document(),
            json({{"result", "0x00000000"}, {"bytes", 3}, {"content", "old"}}));
  EXPECT_EQ(Run({"legacy", "list", "CT", "01"}).output, "Vendas\n\u00C1gua\n");

  EXPECT_EQ(Run({"--json", "legacy", "delete", "CT", "01", "Vendas"}).Document(),
            json({{"result", "0x00000000"}, {"deleted", true}, {"left", json::array()}}));
  EXPECT_EQ(Run({"legacy", "delete", "CT", "01", "Vendas"}).errors, "there is no model Vendas\n");
  EXPECT_EQ(Run({"legacy", "list", "CT", "01"}).output, "\u00C1gua\n");
}

TEST_F(Legacy, DeletionTellsWhatWentAndWhatStayed) {
  const auto makeFiles = [this](std::initializer_list<const char*> files) {
    for (const std::string extension : files)
      support::WriteFile(Reports() / ("CT012Vendas" + extension), "x");
  };
  makeFiles({".REE", ".REF"});
  EXPECT_EQ(Run({"legacy", "delete", "CT", "0123", "vendas"}).errors, "");
  EXPECT_FALSE(fs::exists(Reports() / "CT012Vendas.REE"));
  makeFiles({".REL", ".REE"});
  fs::permissions(Reports() / "CT012Vendas.REE", fs::perms::owner_read);
  const Arguments deletion = {"legacy", "delete", "CT", "0123", "vendas"};
  EXPECT_EQ(Run(deletion).errors, "CT012vendas.REE could not be deleted\n");
  EXPECT_EQ(Run({"--json", "legacy", "delete", "CT", "0123", "vendas"}).Document(),
            json({{"result", "0x00000000"},
                  {"note", "CT012vendas.REE could not be deleted"},
                  {"deleted", false},
                  {"left", {"CT012vendas.REE"}}}));
  EXPECT_EQ(Run({"legacy", "delete", "CT", "0123", "vendas.REF"}).errors, "");
  EXPECT_EQ(support::Names(Reports()), Arguments{"CT012Vendas.REE"});
}

TEST_F(Legacy, UpdateSetsMarginsOrderAndWidths) {
  const auto model = [](std::uint32_t left, std::uint32_t top, const std::string& columns) {
    return std::string(96, 'h') + Number(left, 2) + Number(top, 2) + "rest" + columns + std::string(9, '\0');
  };
  const auto column = [](std::uint32_t code, std::uint32_t width) { return Number(code, 4) + Number(width, 4) + "E"; };
  const std::string before = model(1, 2, column(1, 10) + column(70000, 20));
  Run({"legacy", "write", "CT", "01", "Vendas", "-"}, before);
  const Arguments update = {"legacy", "update", "CT", "01", "Vendas", "--left", "65535", "--top", "0"};
  const auto with = [&](Arguments columns) {
    columns.insert(columns.begin(), update.begin(), update.end());
    return Run(columns);
  };
  ExpectTold(with({"Conta=1"}), 3, "0x0004000B KESTOR_ARQ_JA_FOI_ALTERADO");
  ExpectTold(with({"conta=1", "\u00C1rea=1"}), 3, "(no field has the alias conta)");
  EXPECT_EQ(Stored("CT01Vendas.REL"), before);
  EXPECT_EQ(with({"\u00C1rea=7", "Conta=2147483647"}).status, 0);
  EXPECT_EQ(Stored("CT01Vendas.REL"), model(65535, 0, column(70000, 7) + column(1, 2147483647)));
  ExpectTold(with({"Conta=1"}), 3, "(all columns of the model must be given)");
  Run({"legacy", "write", "CT", "01", "Vendas", "-"}, '\1' + before);
  ExpectTold(with({"Conta=1", "\u00C1rea=1"}), 3, "only models of the oldest layout can be updated");
  fs::remove(Contabil() / "XCT01.REL");
  ExpectTold(with({"Conta=1"}), 1, "XCT01.REL");
}

TEST_F(Legacy, FilesBesideAModelKeepTheirBytes) {
  const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
      {"export", Settings(0, 612), "", "CT01Vendas.REE"},
      {"export", Settings(3, 1296), "", "CT01Vendas.REE"},
      {"filter", "", Number(1, 4) + Number(0, 4), "CT01VENDAS.REF"},
      {"filter", Pattern(208), Number(1, 4) + Number(2, 4), "CT01VENDAS.REF"},
      {"filter", Pattern(65535 * 104), Number(1, 4) + Number(65535, 4), "CT01VENDAS.REF"},
  };
  for (const auto& [kind, content, head, file] : cases) {
    EXPECT_EQ(Run({"legacy", kind, "put", "CT", "01", "Vendas.x", "-"}, content).status, 0) << kind;
    EXPECT_TRUE(Stored(file) == head + content);
    EXPECT_TRUE(Run({"legacy", kind, "get", "CT", "01", "Vendas"}).output == content);
    EXPECT_EQ(Run({"legacy", kind, "get", "CT", "01", "Vendas", "-o", "out"}).output, "");
    EXPECT_TRUE(support::ReadFile(Folder() / "out") == content);
  }
  Run({"legacy", "filter", "put", "CT", "01", "Vendas", "-"}, std::string(104, 'x'));
  const json filter = Run({"--json", "legacy", "filter", "get", "CT", "01", "Vendas"}).Document();
  EXPECT_EQ(filter["entries"], 1);
  EXPECT_THAT(filter["contentBase64"].get<std::string>(), testing::StartsWith("eHh4"));
  ExpectTold(Run({"legacy", "export", "get", "CT", "01", "Nada"}), 1, "there is no file D:\\CT01Nada.REE");
  ExpectTold(Run({"legacy", "filter", "get", "CT", "01", "Nada"}), 1, "0x80043EB7");
}

TEST_F(Legacy, ContentsOfAWrongSizeAreNotSent) {
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"export", "", "holds 0 bytes: export settings have at least 612"},
      {"export", Pattern(611), "holds 611 bytes: export settings have at least 612"},
      {"export", Settings(1, 612), "holds 612 bytes: export settings of 1 items (bytes 604 and 605) have 840"},
      {"export", Settings(1, 841), "holds 841 bytes: export settings of 1 items (bytes 604 and 605) have 840"},
      {"filter", Pattern(105), "holds 105 bytes: a filter has 104 bytes an entry, so 104 or 208"},
      {"filter", Pattern(65536 * 104), "holds 6815744 bytes: a filter has at most 65535 entries"},
  };
  for (const auto& [kind, content, told] : cases)
    ExpectTold(Run({"legacy", kind, "put", "CT", "01", "Vendas", "-"}, content), 1, "standard input " + told);
  EXPECT_EQ(Run({"--json", "status"}).Document()["server"]["running"], false);
}

}  // namespace
