// Models written and read through the program and the server that it starts.
#include <random>

#include "fixture.h"

using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

std::string RandomBytes(std::size_t count) {
  std::mt19937 random(20040301);  // NOLINT: the same bytes in every run
  std::string bytes(count, '\0');
  for (char& byte : bytes)
    byte = static_cast<char>(random());
  return bytes;
}

class Models : public KestorctlTest {
 protected:
  Models() { SetUpHome(); }
};

TEST_F(Models, ContentComesBackByteForByteWithItsVersion) {
  for (const std::size_t size : {0UL, 1UL, 3000000UL}) {
    const std::string content = RandomBytes(size);
    support::WriteFile(Folder() / "in", content);
    const Outcome written = Run({"write", "CT", "01", "Vendas", "in", "--version", "65535"});
    EXPECT_EQ(written.status, 0);
    EXPECT_EQ(written.output + written.errors, "");

    const Outcome read = Run({"read", "CT", "01", "Vendas"});
    EXPECT_EQ(read.status, 0);
    EXPECT_TRUE(read.output == content);
    EXPECT_EQ(read.errors, "version 65535\n");
    EXPECT_EQ(Run({"read", "CT", "01", "Vendas", "-o", "out"}).output, "");
    EXPECT_TRUE(support::ReadFile(Folder() / "out") == content);
  }
  EXPECT_EQ(Run({"write", "CT", "01", "Entrada", "-"}, "from standard input").status, 0);
  EXPECT_EQ(support::ReadFile(Reports() / "CT01Entrada.RXL"), std::string("\1\0", 2) + "from standard input");
}

TEST_F(Models, NoticesAreStatusThreeAndOneLine) {
  EXPECT_EQ(Run({"write", "CT", "01", "Vendas", "-", "--no-overwrite", "--check-demo"}, "old").status, 0);
  const Outcome refused = Run({"write", "CT", "01", "Vendas", "-", "--no-overwrite"}, "new");
  ExpectTold(refused, 3, "kestorctl: 0x00040004 KESTOR_ARQUIVO_JA_EXISTE: a model of that name exists\n");
  EXPECT_EQ(refused.output, "");
  EXPECT_EQ(Run({"read", "CT", "01", "Vendas"}).output, "old");
  ExpectTold(Run({"read", "CT", "01", "Nada", "-o", "out"}), 3, "0x00040001 KESTOR_ARQ_NAO_EXISTE");
  EXPECT_FALSE(fs::exists(Folder() / "out"));
}

TEST_F(Models, TheDocumentHoldsResultAndContent) {
  Run({"write", "CT", "01", "Texto", "-", "--version", "7"}, "<x nome=\"\u00C1rea\"/>\n");
  EXPECT_EQ(Run({"read", "CT", "01", "Texto", "--json"}).Document(),
            nlohmann::json(
                {{"result", "0x00000000"}, {"version", 7}, {"bytes", 18}, {"content", "<x nome=\"\u00C1rea\"/>\n"}}));

  const std::pair<std::string, std::string> encoded[] = {
      {"\xFF", "/w=="}, {"\xFF\xFE", "//4="}, {"\xFF\xFE\xFD", "//79"}, {"\xFF\xFE\xFD\x41", "//79QQ=="}};
  for (const auto& [content, text] : encoded) {
    Run({"write", "CT", "01", "Bytes", "-"}, content);
    EXPECT_EQ(Run({"read", "CT", "01", "Bytes", "--json"}).Document()["contentBase64"], text);
  }

  const nlohmann::json notice = Run({"--json", "read", "CT", "01", "Nada"}).Document();
  EXPECT_EQ(notice["result"], "0x00040001");
  EXPECT_EQ(notice["name"], "KESTOR_ARQ_NAO_EXISTE");
  const Outcome failure = Run({"--json", "read", "XX", "01", "Nada"});
  EXPECT_EQ(failure.status, 1);
  EXPECT_THAT(failure.Document()["detail"].get<std::string>(), HasSubstr("no module has the code XX"));
}

TEST_F(Models, NamesAreTextsWhateverTheyLookLike) {
  for (const std::string name : {"Vendas por m\u00EAs", "status", "--json", "-", "++", "[a,b]"}) {
    EXPECT_EQ(Run({"write", "--", "CT", "01", name, "-"}, name).status, 0) << name;
    EXPECT_EQ(Run({"read", "--", "CT", "01", name}).output, name);
  }
  EXPECT_EQ(Run({"read", "CT", "01", "VENDAS POR M\u00CAS"}).output, "Vendas por m\u00EAs");
  EXPECT_TRUE(fs::exists(Reports() / "CT01Vendas por m\u00EAs.RXL"));
  ExpectTold(Run({"write", "CT", "01", "\u65E5\u672C", "-"}), 1, "code page 1252 lacks a character of \u65E5\u672C");
}

// The server tells no more than that it could not write, or has written.
TEST_F(Models, WhatBecomesOfAWriteIsExplained) {
  EXPECT_EQ(Run({"write", "CT", "01", "Vendas.v2", "-"}, "x").errors,
            "the model is in the file CT01Vendas.v2, which is neither listed nor read\n");
  EXPECT_EQ(Run({"write", "CT", "01", "Vendas.rxl", "-"}, "x").errors, "");
  std::string accents;
  for (int i = 0; i < 126; ++i)
    accents += "\u00E9";
  ExpectTold(Run({"write", "CT", "01", accents, "-"}, "x"), 1, "the name has more than 255 bytes in UTF-8");
  fs::permissions(Reports() / "CT01Vendas.rxl", fs::perms::owner_read);
  ExpectTold(Run({"write", "CT", "01", "Vendas", "-"}, "y"), 1, "CT01Vendas.rxl is read-only");
}

TEST_F(Models, OutputIsWholeOrNotAtAllAndItsFailureIsTold) {
  Run({"write", "CT", "01", "Vendas", "-"}, RandomBytes(1 << 20));
  RunShell("umask 077; echo old > old; ln -s old link; truncate -s 2G huge");
  EXPECT_EQ(Run({"read", "CT", "01", "Vendas", "-o", "link"}).status, 0);
  EXPECT_TRUE(fs::is_symlink(Folder() / "link"));
  EXPECT_EQ(fs::status(Folder() / "old").permissions(), fs::perms(0600));

  Run({"write", "CT", "01", "Vendas", "-"}, std::string(1 << 20, 'x'));
  const auto names = support::Names(Folder());
  const std::pair<std::string, std::string> failures[] = {
      {"$ctl read CT 01 Vendas > /dev/full", "cannot write standard output: No space left on device"},
      {"$ctl read CT 01 Vendas >&-", "cannot write standard output"},
      {"{ $ctl read CT 01 Vendas && echo done >&2; } | true; exit 1", "cannot write standard output: Broken pipe"},
      {"$ctl read CT 01 Vendas -o /dev/full", "cannot write /dev/full"},
      {"$ctl read CT 01 Vendas -o none/out", "cannot write none/out: No such file or directory"},
      {"$ctl read CT 01 Vendas -o home", "cannot write home: Is a directory"},
      {"ulimit -f 8; $ctl read CT 01 Vendas -o old", "cannot write old: File too large"},
      {"$ctl write CT 01 Vendas - <&-", "cannot read standard input"},
      {"$ctl write CT 01 Vendas none", "cannot read none: No such file or directory"},
      {"$ctl write CT 01 Vendas home", "cannot read home: Is a directory"},
      {"$ctl write CT 01 Vendas huge", "huge is too large: a content holds at most 134213632 bytes"},
  };
  for (const auto& [command, told] : failures)
    ExpectTold(RunShell("trap '' XFSZ; " + command), 1, told);
  EXPECT_EQ(support::Names(Folder()), names);
  EXPECT_TRUE(support::ReadFile(Folder() / "old") == RandomBytes(1 << 20));

  // What is standard output already is written to, not replaced.
  EXPECT_EQ(Run({"write", "CT", "01", "Linha", "-"}, "middle\n").status, 0);
  RunShell("{ echo before; $ctl read CT 01 Linha -o /dev/stdout; echo after; } > log");
  EXPECT_EQ(support::ReadFile(Folder() / "log"), "before\nmiddle\nafter\n");
}

}  // namespace
