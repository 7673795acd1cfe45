// The C++ layer over the client library, against the real server.
#include <gmock/gmock.h>
#include <string>
#include <utility>

#include "kestor.hpp"
#include "platform/home/home.h"
#include "support/installation.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

static_assert(!std::is_copy_constructible_v<kestor::Reports> && std::is_move_constructible_v<kestor::Reports>);

class CppClientTest : public testing::Test {
 protected:
  CppClientTest() {
    kestor::UseHome(platform::Home::Current().Folder());
    std::filesystem::copy(KESTOR_EXAMPLES "/contabil/XCT01.REL", installation_.Reports() / "Contabil");
  }

  const support::Installation installation_;
};

TEST_F(CppClientTest, OutcomesCannotBeOverlooked) {
  EXPECT_THROW(kestor::Reports("CT", "01", {.onlyIfRunning = true}), kestor::Error);
  EXPECT_THROW(kestor::Reports(std::string("C\0T", 3), "01"), std::invalid_argument);
  kestor::Reports opened("CT", "01", {.timeLimit = std::chrono::minutes(1)});
  kestor::Reports store = std::move(opened);
  EXPECT_TRUE(store.Opening());

  EXPECT_TRUE(store.Write("Mês", {std::string("a\0b", 3), 7}));
  const auto content = store.Read("Mês");
  ASSERT_TRUE(content);
  EXPECT_EQ(content->bytes, std::string("a\0b", 3));
  EXPECT_EQ(content->version, 7);
  EXPECT_EQ(store.Write("Mês", {}, {.keepExisting = true}).Why().result, KESTOR_MODEL_EXISTS);
  const auto missing = store.Read("Nada");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.Why().result, KESTOR_NO_SUCH_MODEL);
  EXPECT_THAT(missing.Why().Text(), HasSubstr("CT01Nada.RXL"));
  EXPECT_THROW((void)missing->bytes, kestor::Error);

  EXPECT_TRUE(store.SetDefault("Mês"));
  EXPECT_FALSE(store.SetDefault("Nada"));
  EXPECT_EQ(store.Default(), "Mês");
  EXPECT_TRUE(store.ClearDefault());
  EXPECT_EQ(store.Default(), std::nullopt);
  EXPECT_TRUE(store.DeleteDemonstration("Mês"));
  EXPECT_THAT(*store.Deleted(), ElementsAre("Mês"));
  EXPECT_THAT(*store.List(), SizeIs(0));
  EXPECT_FALSE(store.Write("Mês", {}, {.checkDemonstrations = true}));
  EXPECT_EQ(kestor::Text((*store.Fields()).front().alias), "EmpresaCodigo");
  try {
    (void)store.Delete("Nada");
    ADD_FAILURE() << "deleted";
  } catch (const kestor::Error& error) {
    EXPECT_LT(error.Why().result, 0);
    EXPECT_THAT(error.what(), HasSubstr("CT01Nada.RXL"));
  }
}

TEST_F(CppClientTest, FirstGenerationAndRenumbering) {
  kestor::Legacy store("CT", "01");
  EXPECT_EQ(store.List().Why().result, KESTOR_NO_MODELS);
  EXPECT_TRUE(store.Write("Balancete", support::ReadFile(KESTOR_EXAMPLES "/contabil/Balancete.REL")));
  EXPECT_TRUE(store.WriteQuietly("Outro", "x"));
  EXPECT_FALSE(store.WriteQuietly("Outro", "y", {.keepExisting = true}));
  EXPECT_EQ(store.Read("Outro")->bytes, "x");
  EXPECT_TRUE(store.Delete("Outro"));
  EXPECT_THAT(*store.List(), ElementsAre("Balancete"));

  kestor::ExportSettings settings;
  settings.items.resize(2);
  kestor::SetText(settings.items[1].alias, "Saldo");
  EXPECT_THROW(kestor::SetText(settings.items[1].alias, std::string(26, 'x')), std::invalid_argument);
  kestor::SetText(settings.items[1].alias, "Saldo");
  EXPECT_TRUE(store.SetExport("Balancete", settings));
  EXPECT_EQ(kestor::Text((*store.Export("Balancete")).items.at(1).alias), "Saldo");
  kestor_filter_entry entry{};
  entry.code = 301;
  EXPECT_TRUE(store.SetFilter("Balancete", std::span(&entry, 1)));
  EXPECT_THAT(*store.Filter("Balancete"), SizeIs(1));
  EXPECT_THAT(*store.Fields(), SizeIs(testing::Gt(60U)));
  EXPECT_EQ(store.Update("Balancete", 1, 1, {}).Why().result, KESTOR_COLUMNS_DIFFER);

  kestor::Reports documents("CT", "01");
  const kestor_code_change change = {302, 301};
  EXPECT_TRUE(kestor::Renumber("CT", "01", std::span(&change, 1)));
  EXPECT_THAT(documents.Read("Balancete")->bytes, testing::Not(HasSubstr("302")));
}

}  // namespace
