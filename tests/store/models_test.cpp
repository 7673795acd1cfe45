// The report store in this process, on real files.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

#include "contract/results.h"
#include "create_store.h"
#include "platform/files/files.h"
#include "support/installation.h"

namespace {

using kestor::ResultCode;
using support::Names;
using support::ReadFile;
using support::ReadModel;
using support::Text;
using support::WriteFile;
using support::WriteModel;

class Counter final : public kestor::ContagemServidor {
 public:
  LONG Trava() override { return ++count; }
  LONG Destrava() override { return --count; }
  LONG count = 0;
};

class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    std::filesystem::create_directories(Folder());
    support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Dados.v2\\Rel");
    support::SetRegistryText("SOFTWARE\\Norvela\\Contabil", "Path", "D:\\Contabil");
  }

  std::filesystem::path Folder() const { return home_.Data() / "Dados.v2" / "Rel"; }

  ComPtr<IZNPL_Relatorio2> NewStore() {
    ComPtr<IZNPL_Relatorio2> store;
    CreateStore(counter_, IID_IZNPL_Relatorio2, store.OutVoid());
    return store;
  }

  ComPtr<IZNPL_Relatorio2> ReadyStore() {
    auto store = NewStore();
    EXPECT_EQ(store->Inicializa(Text(u"CT"), Text(u"01")), S_OK);
    return store;
  }

  support::TempHome home_;
  Counter counter_;
};

TEST_F(StoreTest, InitialisedStateFollowsTheRegistryAndTheCodes) {
  auto store = NewStore();
  const auto code = [&](const char16_t* module, const char16_t* component) {
    return ResultCode(store->Inicializa(Text(module), Text(component)));
  };
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "0x80040007");
  EXPECT_EQ(ResultCode(WriteModel(*store, u"Vendas", "x")), "0x80040007");
  EXPECT_EQ(code(u"ZZ", u"01"), "0x80043F59");
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "0x80040007");
  EXPECT_EQ(code(u"CT", u""), "0x00000000");
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "0x80040007");
  EXPECT_EQ(code(u"ct", u"01"), "0x00000000");
  EXPECT_EQ(ResultCode(WriteModel(*store, u"Vendas", "x")), "0x00000000");
  EXPECT_EQ(Names(Folder()), std::vector<std::string>{"ct01Vendas.RXL"}) << "codes keep their letter case";

  // What fails later leaves an initialised store as it was, but for the folder just read.
  EXPECT_EQ(code(u"FS", u"02"), "0x80043F59") << "the application has no folder";
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "x");
  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "");
  EXPECT_EQ(code(u"CT", u"01"), "0x00000000");
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "0x80040007") << "an empty folder text is no folder";
}

TEST_F(StoreTest, LayoutAndNames) {
  auto store = ReadyStore();
  std::string bytes(70000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(i * 7);

  struct Case {
    std::u16string name;
    std::string file;
    std::string content;
    USHORT version;
  };
  const std::vector<Case> cases = {
      {u"Vendas", "CT01Vendas.RXL", bytes, 0x0102},
      {u"Vazio", "CT01Vazio.RXL", "", 65535},
      {u"Açúcar e Café", "CT01Açúcar e Café.RXL", "x", 1},
      {u"", "CT01.RXL", "without a name", 0},
      {std::u16string(u"Nul\0cut", 7), "CT01Nul.RXL", "up to the NUL", 1},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(WriteModel(*store, c.name, c.content, c.version), S_OK) << c.file;
    const std::string head = {static_cast<char>(c.version & 0xFF), static_cast<char>(c.version >> 8)};
    EXPECT_EQ(ReadFile(Folder() / c.file), head + c.content) << c.file;
    USHORT version = 0;
    EXPECT_EQ(ReadModel(*store, c.name, &version), c.content) << c.file;
    EXPECT_EQ(version, c.version) << c.file;
  }

  // Replacing leaves no tail of the old content.
  EXPECT_EQ(WriteModel(*store, u"Vendas", "short"), S_OK);
  EXPECT_EQ(ReadModel(*store, u"Vendas"), "short");

  // Reading looks at the end of the name, writing at any dot in it.
  EXPECT_EQ(ReadModel(*store, u"vendas.rxl"), "short");
  EXPECT_EQ(WriteModel(*store, u"Vendas.v2", "second"), S_OK);
  EXPECT_EQ(ReadFile(Folder() / "CT01Vendas.v2"), std::string("\1\0second", 8));
  EXPECT_EQ(ReadModel(*store, u"Vendas.v2"), "0x00040001");
}

TEST_F(StoreTest, FlagsAndFailures) {
  auto store = ReadyStore();
  EXPECT_EQ(WriteModel(*store, u"A", "old", 1, KESTOR_NaoSobreescrever), S_OK);
  for (const int flags : {1, 3}) {
    EXPECT_EQ(ResultCode(WriteModel(*store, u"a", "new", 1, static_cast<unsigned char>(flags))), "0x00040004");
  }
  EXPECT_EQ(WriteModel(*store, u"B", "new", 1, KESTOR_VerificarModelosDemoExcluidos), S_OK);
  EXPECT_EQ(store->Grava(Text(u"A"), 1, 0, -1, nullptr), E_INVALIDARG);
  EXPECT_EQ(ReadModel(*store, u"A"), "old");

  WriteFile(Folder() / "CT01One.RXL", "1");
  WriteFile(Folder() / "CT01None.RXL", "");
  EXPECT_EQ(ReadModel(*store, u"One"), "0x80040002");
  EXPECT_EQ(ReadModel(*store, u"None"), "0x80040002");
  std::filesystem::create_directory(Folder() / "CT01Folder.RXL");
  EXPECT_EQ(ReadModel(*store, u"Folder"), "0x00040001");
  EXPECT_EQ(ResultCode(WriteModel(*store, u"Folder", "x")), "0x80040005");

  // A model that another station holds: not there for a reader, not writable, and not existing for the check.
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01A.RXL", CFile::modeRead | CFile::shareExclusive));
  EXPECT_EQ(ReadModel(*store, u"A"), "0x00040001");
  EXPECT_EQ(ResultCode(WriteModel(*store, u"A", "new", 1, KESTOR_NaoSobreescrever)), "0x80040005");
  EXPECT_EQ(ResultCode(WriteModel(*store, u"a", "new")), "0x80040005");
  held.Close();
  EXPECT_EQ(ReadModel(*store, u"A"), "old");
  EXPECT_EQ(ReadFile(Folder() / "CT01A.RXL"), std::string("\1\0old", 5)) << "and in its letter case";
}

TEST_F(StoreTest, LetterCaseOfTheModelOnDisk) {
  WriteFile(Folder() / "CT01VENDAS.RXL", std::string("\1\0old", 5));
  auto store = ReadyStore();
  EXPECT_EQ(ReadModel(*store, u"vendas"), "old");
  EXPECT_EQ(Names(Folder()), std::vector<std::string>{"CT01VENDAS.RXL"});
  EXPECT_EQ(WriteModel(*store, u"Vendas", "new"), S_OK);
  EXPECT_EQ(Names(Folder()), std::vector<std::string>{"CT01Vendas.RXL"});
  EXPECT_EQ(ReadModel(*store, u"vendas"), "new");

  // What is not written keeps its name.
  std::filesystem::rename(Folder() / "CT01Vendas.RXL", Folder() / "CT01VENDAS.RXL");
  std::filesystem::permissions(Folder() / "CT01VENDAS.RXL", std::filesystem::perms(0444));
  EXPECT_EQ(ResultCode(WriteModel(*store, u"Vendas", "newer")), "0x80040005");
  EXPECT_EQ(Names(Folder()), std::vector<std::string>{"CT01VENDAS.RXL"});
}

TEST_F(StoreTest, NamesNeverLeadElsewhere) {
  const std::filesystem::path outside = home_.Data().parent_path() / "outside.RXL";
  WriteFile(outside, std::string("\1\0secret", 8));
  auto store = ReadyStore();
  const std::vector<std::u16string> refused = {
      u"a*",
      u"a?",
      u"a:b",
      u"a|b",
      u"<a>",
      u"a\"b",
      u"a\tb",
      u"日本",
      std::u16string(300, u'n'),
      u"x\\y",
      u"..\\..\\..\\..\\..\\outside",
      u"\\..\\..\\..\\..\\..\\outside",
      u"/../../../../outside",
  };
  for (const std::u16string& name : refused) {
    EXPECT_EQ(ResultCode(WriteModel(*store, name, "x")), "0x80040005");
    EXPECT_EQ(ReadModel(*store, name), "0x00040001");
  }
  EXPECT_EQ(ReadFile(outside), std::string("\1\0secret", 8));
  EXPECT_EQ(Names(Folder()), std::vector<std::string>{});
}

TEST_F(StoreTest, ObjectsCountAndGo) {
  EXPECT_EQ(counter_.count, 0);
  auto store = NewStore();
  EXPECT_EQ(counter_.count, 1);
  ComPtr<IUnknown> identity;
  EXPECT_EQ(store->QueryInterface(IID_IUnknown, identity.OutVoid()), S_OK);
  EXPECT_EQ(store->QueryInterface(IID_IZNPL_Rel, identity.OutVoid()), E_NOINTERFACE);
  EXPECT_EQ(store->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(store->AddRef(), 2U);
  EXPECT_EQ(store->Release(), 1U);
  store.Reset();
  EXPECT_EQ(counter_.count, 0);

  void* none = &counter_;
  EXPECT_EQ(CreateStore(counter_, IID_IZNPL_Rel, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(counter_.count, 0);
}

// A model that is being replaced when the process is killed is the old or the new one, whole, and nothing else is seen
// in the folder.
TEST_F(StoreTest, KilledWriterLeavesOneWholeModel) {
  const int rounds = support::LongTests() ? 1000 : 60;
  std::mt19937 random(20041124);
  const auto content = [](char letter) { return std::string(20000, letter); };
  {
    auto store = ReadyStore();
    ASSERT_EQ(WriteModel(*store, u"Vendas", content('a')), S_OK);
  }
  for (int round = 0; round < rounds; ++round) {
    support::Child writer([&] {
      auto store = ReadyStore();
      for (char letter = 'a';; letter = letter == 'z' ? 'a' : static_cast<char>(letter + 1)) {
        if (WriteModel(*store, u"Vendas", content(letter)) != S_OK) return 1;
      }
    });
    usleep(static_cast<useconds_t>(2000 + random() % 15000));
    writer.Kill();
    ASSERT_EQ(writer.Wait(), 128 + SIGKILL);

    auto store = ReadyStore();
    const std::string found = ReadModel(*store, u"Vendas");
    ASSERT_EQ(found, content(found[0])) << "round " << round;
    const std::vector<std::string> names = Names(Folder());
    ASSERT_EQ(std::count_if(names.begin(), names.end(), [](const std::string& name) { return name[0] != '.'; }), 1);
  }
  auto store = ReadyStore();
  ASSERT_EQ(WriteModel(*store, u"Vendas", "end"), S_OK);
  EXPECT_EQ(Names(Folder()), std::vector<std::string>{"CT01Vendas.RXL"}) << "the next writer cleans up";
}

}  // namespace
