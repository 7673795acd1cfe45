// The report store in this process, on real files: models and record files that others have open, and what one store
// remembers. The transcripts of kestorctl show the files themselves.
#include <cerrno>

#include "common/razao.h"
#include "platform/files/files.h"
#include "store_fixture.h"
#include "support/system_calls.h"

namespace fs = std::filesystem;
using kestor::ResultCode;
using support::ReadFile;
using support::ReadModel;
using support::Text;
using support::WriteFile;
using Names = std::vector<std::string>;

namespace {

constexpr char kOk[] = "0x00000000";
constexpr unsigned char kMustBeNew = KESTOR_NaoSobreescrever;
constexpr unsigned char kCheck = KESTOR_VerificarModelosDemoExcluidos;
const std::string kZeros(264, '\0');

std::string Record(std::string key, std::string name) {
  key.resize(8);
  name.resize(256);
  return key + name;
}

class ReportStore : public StoreTest {
 protected:
  fs::path Defaults() const { return Folder() / "ZNRELPAD.DAT"; }
  fs::path Deletions() const { return Folder() / "ZNRELDEL.DAT"; }
  Names Files() const { return support::Names(Folder()); }

  void Put(const Names& files) const {
    for (const std::string& file : files)
      WriteFile(Folder() / file, std::string("\1\0x", 3));
  }
  std::string Write(const std::u16string& name, const std::string& content = "x", unsigned char flags = 0) {
    return ResultCode(support::WriteModel(*store_, name, content, 1, flags));
  }

  const ComPtr<IZNPL_Relatorio2> store_ = ReadyStore();
};

TEST_F(ReportStore, DoesNothingWithoutItsFolderAndCodes) {
  const auto store = NewStore();
  const auto initialise = [&](const char16_t* module, const char16_t* component) {
    return ResultCode(store->Inicializa(Text(module), Text(component)));
  };
  const auto expectRefused = [&](const char* when) {
    for (const std::string& answer :
         {Listed(*store), Deleted(*store), Default(*store), SetDefault(*store, u"A"), ReadModel(*store, u"A"),
          Delete(*store, u"A", Model::demonstration), ResultCode(support::WriteModel(*store, u"A", "x")),
          ResultCode(store->Grava(Text(u"A"), 1, 0, -1, nullptr)),
          ResultCode(store->Grava(Text(u"A"), 1, 0, 1, nullptr))})
      EXPECT_EQ(answer, "0x80040007") << when;
  };
  expectRefused("before Inicializa");
  EXPECT_EQ(initialise(u"ZZ", u"01"), "0x80043F59");
  EXPECT_EQ(initialise(u"CT", u""), kOk);
  expectRefused("without a component");
  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(initialise(u"ct", u"01"), kOk);
  EXPECT_EQ(support::WriteModel(*store, u"A", "x"), S_OK);
  EXPECT_EQ(Files(), Names{"ct01A.RXL"}) << "codes keep their letter case";

  // A later failure leaves an initialised store unchanged, except for the folder just read.
  EXPECT_EQ(initialise(u"FS", u"02"), "0x80043F59") << "the application has no folder";
  EXPECT_EQ(ReadModel(*store, u"A"), "x");
  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "");
  EXPECT_EQ(initialise(u"CT", u"01"), kOk);
  expectRefused("with an empty text for a folder");
}

TEST_F(ReportStore, WhatCannotBeWrittenOrReadLeavesTheModelAlone) {
  EXPECT_EQ(Write(std::u16string(u"A\0cut", 5), "old", kMustBeNew | kCheck), kOk);
  EXPECT_EQ(Write(u"a", "new", kMustBeNew | kCheck), "0x00040004");
  unsigned char byte = 0;  // more bytes than Le could return are never read
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, 0, -1, nullptr), E_INVALIDARG);
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, 0, 134'213'633, &byte), E_INVALIDARG);
  EXPECT_NE(kestor::RazaoDita(), "");
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, kMustBeNew, 134'213'633, &byte), 0x00040004);
  EXPECT_EQ(kestor::RazaoDita(), "") << "its size is not why";
  EXPECT_EQ(store_->Grava(Text(u"A"), 1, 0, 1, nullptr), E_POINTER);
  {
    // A model that another station holds is missing for a reader, not writable, and does not exist for the check.
    CFile held;
    ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01A.RXL", CFile::modeRead | CFile::shareDenyNone));
    EXPECT_EQ(ReadModel(*store_, u"A"), "0x00040001");
    EXPECT_EQ(Write(u"a", "new", kMustBeNew), "0x80040005");
    EXPECT_NE(kestor::RazaoDita().find("(error 32)"), std::string::npos) << "not that it exists";
    EXPECT_EQ(Write(u"a", "new"), "0x80040005");
    EXPECT_EQ(Delete(*store_, u"A", Model::demonstration), "0x80070020");
  }
  {
    // Refuses the first opening, as if the model were held just while the store checks whether it exists.
    int openings = 0;
    const support::SystemCalls system([&](const host::SystemCall& call) -> host::Fate {
      const bool isFirst = std::string_view(call.name) == "openat" && ++openings == 1;
      return {.error = isFirst ? EMFILE : 0};
    });
    EXPECT_EQ(Write(u"a", "new", kMustBeNew | kCheck), "0x00040004");
  }
  EXPECT_EQ(ReadModel(*store_, u"a"), "old");
  EXPECT_EQ(Files(), (Names{"CT01A.RXL", "ZNRELDEL.DAT"}));
  EXPECT_EQ(Write(u"a", "new"), kOk);
  EXPECT_EQ(Files(), (Names{"CT01a.RXL", "ZNRELDEL.DAT"})) << "the name changes its letter case with the content";
  for (const std::uintmax_t bytes : {0U, 1U, 134'213'635U}) {
    fs::resize_file(Folder() / "CT01a.RXL", bytes);
    EXPECT_EQ(ReadModel(*store_, u"A"), "0x80040002") << bytes;
  }
}

TEST_F(ReportStore, RecordFilesThatCannotBeUsed) {
  EXPECT_EQ(Listed(*store_), "(null)");
  EXPECT_EQ(Deleted(*store_), "(null)");
  Put({"CT01B.RXL"});
  ASSERT_EQ(Delete(*store_, u"B", Model::demonstration), kOk);
  Put({"CT01B.RXL"});
  EXPECT_EQ(Listed(*store_), "") << "a list, though an empty one";
  Put({"CT01A.RXL"});
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\ZNRELDEL.DAT", CFile::modeRead | CFile::shareExclusive));
  EXPECT_EQ(Deleted(*store_), "0x80070020");
  EXPECT_EQ(Listed(*store_), "A,B,") << "better all than none";
  EXPECT_EQ(Write(u"B", "new", kCheck), kOk);
  {
    int openings = 0;
    const support::SystemCalls counted([&](const host::SystemCall& call) -> host::Fate {
      const bool opens = std::string_view(call.name) == "openat";
      if (opens && std::string_view(call.path).ends_with("ZNRELDEL.DAT")) ++openings;
      return {};
    });
    EXPECT_EQ(Delete(*store_, u"A", Model::demonstration), kOk) << "deleted, if not remembered";
    EXPECT_EQ(openings, 30) << "the attempts of one opening: others wait as long";
  }
  held.Close();
  EXPECT_EQ(Deleted(*store_), "B,");

  ASSERT_EQ(SetDefault(*store_, u"B"), kOk);
  ASSERT_EQ(Default(*store_), "B");
  const auto other = ReadyStore();
  const auto expectTold = [&](const char* setting, const char* looking) {
    EXPECT_EQ(SetDefault(*store_, u"B"), setting);
    EXPECT_EQ(Default(*store_), "B") << "where the record is known it is read beside others";
    EXPECT_EQ(Default(*other), looking) << "looking for it takes the file whole";
  };
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\ZNRELPAD.DAT", CFile::modeReadWrite | CFile::shareDenyNone));
  expectTold("0x80043EEE", "0x80070020");
  held.Close();
  // The reported failure is that of the record file, not that of the registry in which it is noted.
  WriteFile(home_.Home() / "registry.reg", "damaged");
  fs::permissions(Defaults(), fs::perms(0444));
  expectTold("0x80043ED1", "0x80070005");
}

TEST_F(ReportStore, RememberedRecordBelongsToItsKeyAndFile) {
  Put({"CT01A.RXL", "CT02B.RXL"});
  const std::string a = Record("CT01", "A");
  const std::string b = Record("CT02", "B");
  ASSERT_EQ(SetDefault(*store_, u"A"), kOk);
  ASSERT_EQ(Default(*store_), "A");
  ASSERT_EQ(store_->Inicializa(Text(u"CT"), Text(u"02")), S_OK);
  EXPECT_EQ(SetDefault(*store_, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + a + b);
  EXPECT_EQ(Default(*store_), "B");
  EXPECT_EQ(store_->SetRelatorioPadrao(nullptr), S_OK);
  EXPECT_EQ(Default(*store_), "(null)");

  // A name counts up to its first NUL, for the default report of a model that is deleted as well.
  const std::u16string longer(u"C\0x", 3);
  EXPECT_EQ(Write(longer, "old"), kOk);
  EXPECT_EQ(SetDefault(*store_, longer), kOk);
  EXPECT_EQ(Default(*store_), "C");
  EXPECT_EQ(Delete(*store_, longer), kOk);
  EXPECT_EQ(Default(*store_), "(null)");

  // Another program has put another file in place.
  WriteFile(Defaults(), kZeros + b + a);
  EXPECT_EQ(SetDefault(*store_, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + b + a);
  WriteFile(Defaults(), kZeros);
  EXPECT_EQ(Default(*store_), "0x80043E95");
  EXPECT_EQ(SetDefault(*store_, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + b);
  EXPECT_EQ(Default(*store_), "B");
  WriteFile(Defaults(), kZeros + a);
  EXPECT_EQ(SetDefault(*store_, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + a + b);
  EXPECT_EQ(Default(*store_), "B");
  fs::resize_file(Defaults(), 2 * 264 + 8 + 1);  // within the field of the name
  EXPECT_EQ(Default(*store_), "(null)");

  // An entry looked up in a damaged file has no remembered place in it.
  for (const auto& [damaged, mended] :
       {std::pair(a, a + a), {kZeros + a.substr(0, 200), std::string(2 * 264, '\0') + a}}) {
    WriteFile(Defaults(), damaged);
    const auto store = ReadyStore();
    EXPECT_EQ(Default(*store), "(null)");
    EXPECT_EQ(SetDefault(*store, u"A"), kOk);
    EXPECT_EQ(ReadFile(Defaults()), mended);
  }

  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Dados.v2");
  ASSERT_EQ(store_->Inicializa(Text(u"CT"), Text(u"02")), S_OK);
  EXPECT_EQ(Default(*store_), "(null)");
  EXPECT_EQ(ReadFile(Folder().parent_path() / "ZNRELPAD.DAT"), kZeros);
}

}  // namespace
