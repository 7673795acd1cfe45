// Listing and deleting models, deleted demonstration models, the default report.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/files/files.h"
#include "store_fixture.h"

namespace fs = std::filesystem;
using support::Names;
using support::ReadFile;
using support::Text;
using support::WriteFile;
using support::WriteModel;

namespace {

constexpr char kOk[] = "0x00000000";
constexpr char kFalse[] = "0x00000001";
constexpr unsigned char kCheck = KESTOR_VerificarModelosDemoExcluidos;
const std::string kZeros(264, '\0');

std::string Record(std::string key, std::string name) {
  key.resize(8);
  name.resize(256);
  return key + name;
}

std::string ControlRecord(std::string name) {
  name.resize(32);
  return name;
}

class ListingTest : public StoreTest {
 protected:
  fs::path Defaults() const { return Folder() / "ZNRELPAD.DAT"; }
  fs::path Deletions() const { return Folder() / "ZNRELDEL.DAT"; }

  void Put(const std::string& name) const { WriteFile(Folder() / name, std::string("\1\0x", 3)); }
};

TEST_F(ListingTest, UninitialisedStoreTouchesNothing) {
  auto store = NewStore();
  const Text kept(u"kept");
  BSTR name = kept;
  EXPECT_EQ(Listed(*store), "0x80040007");
  EXPECT_EQ(Deleted(*store), "0x80040007");
  EXPECT_EQ(Delete(*store, u"A", Model::demonstration), "0x80040007");
  EXPECT_EQ(SetDefault(*store, u"A"), "0x80040007");
  EXPECT_EQ(kestor::ResultCode(store->GetRelatorioPadrao(&name)), "0x80040007");
  EXPECT_EQ(name, BSTR{kept});
  EXPECT_TRUE(Names(Folder()).empty());
}

TEST_F(ListingTest, NamesWithoutPrefixAndExtension) {
  auto store = ReadyStore();
  EXPECT_EQ(Listed(*store), "(null)");
  EXPECT_TRUE(Names(Folder()).empty()) << "nothing is made where nothing is found";
  for (const char* name : {"CT01Vendas.RXL", "ct01compras.rxl", "CT01Água.RXL", "CT01Vendas.v2.RXL", "CT02Outro.RXL",
                           "CT01Vendas.REL", "CT01Vendas", "CT011.RXL", "CT01.RXL"}) {
    Put(name);
  }
  EXPECT_EQ(Listed(*store), ",1,compras,Vendas,Vendas,Água,");
  EXPECT_EQ(Listed(*ReadyStore(u"02")), "Outro,");
  EXPECT_EQ(Listed(*ReadyStore(u"03")), "(null)");

  Put("CT04" + std::string(247, 'n') + ".RXL");
  EXPECT_EQ(Listed(*ReadyStore(u"04")), std::string(247, 'n') + ",");
}

TEST_F(ListingTest, DeletedDemonstrationModelsStayAway) {
  auto store = ReadyStore();
  EXPECT_EQ(Delete(*store, u"Vendas", Model::demonstration), "0x80070002");
  EXPECT_FALSE(fs::exists(Deletions()));
  EXPECT_EQ(Deleted(*store), "(null)");
  EXPECT_EQ(ReadFile(Deletions()), kZeros);

  for (const std::u16string name : {u"Compras", u"Vendas", u"Água", u"Própria"})
    ASSERT_EQ(WriteModel(*store, name, "x"), S_OK);
  EXPECT_EQ(Delete(*store, u"Vendas", Model::demonstration), kOk);
  EXPECT_EQ(Delete(*store, u"Água", Model::demonstration), kOk);
  EXPECT_EQ(Delete(*store, u"Própria"), kOk);
  EXPECT_EQ(ReadFile(Deletions()), kZeros + Record("CT01", "Vendas") + Record("CT01", "\xC1gua"));
  EXPECT_EQ(Listed(*store), "Compras,");

  // Written again under other letters they are not listed, and not written at all when that is asked.
  EXPECT_EQ(kestor::ResultCode(WriteModel(*store, u"VENDAS", "x", 1, kCheck)), "0x0004000C");
  EXPECT_EQ(WriteModel(*store, u"VENDAS", "x"), S_OK);
  EXPECT_EQ(WriteModel(*store, u"água", "x"), S_OK);
  EXPECT_EQ(WriteModel(*store, u"Própria", "x", 1, kCheck), S_OK);
  EXPECT_EQ(kestor::ResultCode(WriteModel(*store, u"VENDAS", "x", 1, kCheck | 1)), "0x00040004");
  EXPECT_EQ(Listed(*store), "Compras,Própria,");

  // Another component's names are its own.
  auto other = ReadyStore(u"02");
  EXPECT_EQ(WriteModel(*other, u"Vendas", "x", 1, kCheck), S_OK);
  EXPECT_EQ(Listed(*other), "Vendas,");
  EXPECT_EQ(Deleted(*other), "(null)");

  EXPECT_EQ(Delete(*store, u"vendas", Model::demonstration), kOk);
  EXPECT_EQ(Deleted(*store), "Vendas,Água,vendas,");
  EXPECT_EQ(Delete(*store, u"Compras"), kOk);
  EXPECT_EQ(Delete(*store, u"Própria"), kOk);
  EXPECT_EQ(Delete(*store, u"ÁGUA"), kOk);
  EXPECT_EQ(Listed(*store), "(null)");
  EXPECT_EQ(WriteModel(*store, u"Vendas", "x"), S_OK);
  EXPECT_EQ(Listed(*store), "") << "a list, though an empty one";
}

TEST_F(ListingTest, ModelsAndListsInOtherHands) {
  auto store = ReadyStore();
  ASSERT_EQ(WriteModel(*store, u"A", "x"), S_OK);
  ASSERT_EQ(WriteModel(*store, u"B", "x"), S_OK);
  ASSERT_EQ(Delete(*store, u"B", Model::demonstration), kOk);
  ASSERT_EQ(WriteModel(*store, u"B", "x"), S_OK);
  {
    CFile held;
    ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\CT01A.RXL", CFile::modeRead | CFile::shareDenyNone));
    EXPECT_EQ(Delete(*store, u"A", Model::demonstration), "0x80070020");
  }
  CFile held;
  ASSERT_TRUE(held.Open("D:\\Dados.v2\\Rel\\ZNRELDEL.DAT", CFile::modeRead | CFile::shareExclusive));
  EXPECT_EQ(Deleted(*store), "0x80070020");
  EXPECT_EQ(Listed(*store), "A,B,") << "better all than none";
  EXPECT_EQ(WriteModel(*store, u"B", "new", 1, kCheck), S_OK);
  EXPECT_EQ(Delete(*store, u"A", Model::demonstration), kOk) << "deleted, if not remembered";
  held.Close();
  EXPECT_EQ(Deleted(*store), "B,");
}

TEST_F(ListingTest, DefaultReport) {
  auto store = ReadyStore();
  EXPECT_EQ(SetDefault(*store, u"Vendas"), kFalse);
  EXPECT_TRUE(Names(Folder()).empty());
  for (const std::u16string name : {u"Vendas", u"Compras", u"vendas.rxl", u""})
    ASSERT_EQ(WriteModel(*store, name, "x"), S_OK);

  EXPECT_EQ(SetDefault(*store, u"Vendas"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + Record("CT01", "Vendas"));
  EXPECT_EQ(ReadFile(Folder() / "ZNCTLARQ.DAT"), ControlRecord("") + ControlRecord("ZNRELPAD.DAT"));
  EXPECT_EQ(Default(*store), "Vendas");
  auto other = ReadyStore(u"02");
  EXPECT_EQ(Default(*other), "(null)");
  ASSERT_EQ(WriteModel(*other, u"Outro", "x"), S_OK);
  EXPECT_EQ(SetDefault(*other, u"Outro"), kOk);

  // Both with the record's number known and not.
  auto fresh = ReadyStore();
  for (IZNPL_Relatorio2* asked : {&*store, &*fresh}) {
    EXPECT_EQ(SetDefault(*asked, u"Compras"), kOk);
    EXPECT_EQ(ReadFile(Defaults()), kZeros + Record("CT01", "Compras") + Record("CT02", "Outro"));
    EXPECT_EQ(asked->SetRelatorioPadrao(nullptr), S_OK);
    EXPECT_EQ(Default(*asked), "(null)");
    EXPECT_EQ(SetDefault(*asked, u""), kOk) << "the model without a name, which is no default";
    EXPECT_EQ(Default(*asked), "(null)");
    EXPECT_EQ(SetDefault(*asked, u"vendas.rxl"), kOk);
    EXPECT_EQ(Default(*asked), "vendas.rxl");
  }

  // Deleting the default clears it, by the letter.
  EXPECT_EQ(SetDefault(*store, u"Vendas"), kOk);
  EXPECT_EQ(Delete(*store, u"Compras"), kOk);
  EXPECT_EQ(Default(*store), "Vendas");
  EXPECT_EQ(Delete(*store, u"Vendas"), kOk);
  EXPECT_EQ(Default(*store), "(null)");
  ASSERT_EQ(WriteModel(*store, u"Vendas", "x"), S_OK);
  EXPECT_EQ(SetDefault(*store, u"Vendas"), kOk);
  EXPECT_EQ(Delete(*store, u"VENDAS"), kOk);
  EXPECT_EQ(Default(*store), "Vendas");
  EXPECT_EQ(Default(*other), "Outro");
}

TEST_F(ListingTest, RememberedRecordBelongsToItsKey) {
  auto store = ReadyStore();
  for (const char* name : {"CT01A.RXL", "CT02B.RXL"})
    Put(name);
  ASSERT_EQ(SetDefault(*store, u"A"), kOk);
  ASSERT_EQ(Default(*store), "A");
  ASSERT_EQ(store->Inicializa(Text(u"CT"), Text(u"02")), S_OK);
  EXPECT_EQ(SetDefault(*store, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + Record("CT01", "A") + Record("CT02", "B"));
  EXPECT_EQ(Default(*store), "B");

  // Somebody has put another file in place.
  WriteFile(Defaults(), kZeros + Record("CT02", "B") + Record("CT01", "A"));
  EXPECT_EQ(SetDefault(*store, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + Record("CT02", "B") + Record("CT01", "A"));
  WriteFile(Defaults(), kZeros);
  EXPECT_EQ(Default(*store), "0x80043E95");
  EXPECT_EQ(SetDefault(*store, u"B"), kOk);
  EXPECT_EQ(ReadFile(Defaults()), kZeros + Record("CT02", "B"));
}

TEST_F(ListingTest, RememberedRecordBelongsToItsFile) {
  Put("CT01Vendas.RXL");
  auto store = ReadyStore();
  ASSERT_EQ(SetDefault(*store, u"Vendas"), kOk);
  ASSERT_EQ(Default(*store), "Vendas");
  fs::resize_file(Defaults(), 264 + 12);  // in the middle of the name
  EXPECT_EQ(Default(*store), "(null)");

  support::SetRegistryText("SOFTWARE\\Norvela", "Relatorios", "D:\\Dados.v2");
  ASSERT_EQ(store->Inicializa(Text(u"CT"), Text(u"01")), S_OK);
  EXPECT_EQ(Default(*store), "(null)");
  EXPECT_EQ(ReadFile(Folder().parent_path() / "ZNRELPAD.DAT"), kZeros);
}

TEST_F(ListingTest, DamagedRecordFiles) {
  const std::string ours = Record("CT01", "A");
  struct Case {
    std::string content;
    std::string found;
    std::string afterSetting;
  };
  const std::string unended = std::string("CT01") + std::string(4, 'x') + std::string(256, 'n');
  const std::string endless = std::string("CT01\0\0\0\0", 8) + std::string(256, 'n');
  const std::vector<Case> cases = {
      {"", "(null)", kZeros + ours},
      {"torn", "(null)", kZeros + ours},
      {ours, "(null)", ours + ours},                                     // the first record is nobody's
      {kZeros + ours.substr(0, 200), "(null)", kZeros + kZeros + ours},  // part of a record is nobody's
      {kZeros + unended, "(null)", kZeros + unended + ours},
      {kZeros + Record("ct01", "x") + Record("CT012", "x"), "(null)",
       kZeros + Record("ct01", "x") + Record("CT012", "x") + ours},
      {kZeros + endless, std::string(255, 'n'), kZeros + ours},
  };
  Put("CT01A.RXL");
  for (const Case& c : cases) {
    for (const bool readFirst : {false, true}) {
      WriteFile(Defaults(), c.content);
      WriteFile(Deletions(), c.content);
      auto store = ReadyStore();
      if (readFirst) {
        EXPECT_EQ(Default(*store), c.found);
      }
      EXPECT_EQ(Deleted(*store), c.found == "(null)" ? c.found : c.found + ",");
      EXPECT_EQ(SetDefault(*store, u"A"), kOk);
      EXPECT_EQ(ReadFile(Defaults()), c.afterSetting);
      EXPECT_EQ(Default(*ReadyStore()), "A");
    }
  }

  // What is longer than any record file is not searched, and nothing is added that would not be found again.
  constexpr std::uintmax_t kLongest = 32U << 20;
  for (const auto& [bytes, isRead] : {std::pair(kLongest, true), {kLongest + 1, false}, {kLongest << 8, false}}) {
    Put("CT01A.RXL");
    fs::resize_file(Defaults(), bytes);
    EXPECT_EQ(Default(*ReadyStore()), isRead ? "A" : "0x8007000B");
    EXPECT_EQ(SetDefault(*ReadyStore(), u"A"), isRead ? kOk : "0x80043EE2") << "its record is there";
    fs::resize_file(Deletions(), bytes);
    EXPECT_EQ(Deleted(*ReadyStore()), isRead ? std::string(255, 'n') + "," : "0x8007000B");
    EXPECT_EQ(Delete(*ReadyStore(), u"A", Model::demonstration), kOk);
    EXPECT_EQ(fs::file_size(Deletions()), bytes);
  }
}

// In a folder of many, somebody may have put a link there to have another's file overwritten.
TEST_F(ListingTest, LinksInThePlaceOfRecordFilesAreNotWrittenThrough) {
  Put("CT01A.RXL");
  const fs::path victim = home_.Home() / "victim";
  for (const std::string& content : {std::string(), kZeros}) {
    WriteFile(victim, content);
    for (const fs::path& file : {Defaults(), Deletions()}) {
      fs::remove(file);
      fs::create_symlink(victim, file);
    }
    auto store = ReadyStore();
    EXPECT_EQ(SetDefault(*store, u"A"), "0x80043ED0");
    EXPECT_EQ(Default(*store), "0x80070005");
    EXPECT_EQ(Deleted(*store), "0x80070005");
    Put("CT01B.RXL");
    EXPECT_EQ(Delete(*store, u"B", Model::demonstration), kOk);
    EXPECT_EQ(ReadFile(victim), content);
  }
}

// Whoever may not write the registry or the record files is told of these, not of that.
TEST_F(ListingTest, WithoutPermissionToWrite) {
  auto store = ReadyStore();
  auto other = ReadyStore();
  Put("CT01A.RXL");
  ASSERT_EQ(SetDefault(*store, u"A"), kOk);
  ASSERT_EQ(Default(*store), "A");
  support::WriteFile(home_.Home() / "registry.reg", "damaged");
  chmod(Defaults().c_str(), 0444);
  EXPECT_EQ(SetDefault(*store, u"A"), "0x80043ED1");
  EXPECT_EQ(Default(*store), "A");
  EXPECT_EQ(Default(*other), "0x80070005") << "looking for the record takes the file whole";
}

}  // namespace
