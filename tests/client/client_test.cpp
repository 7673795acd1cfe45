// The client library, as a program uses it, against the real server.
#include <signal.h>

#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <vector>

#include "kestor.h"
#include "platform/home/home.h"
#include "support/installation.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Take(kestor_names* names) {
  std::vector<std::string> taken(names->names, names->names + names->count);
  kestor_free(names->names);
  return taken;
}

std::string Take(kestor_content* content) {
  std::string taken(reinterpret_cast<const char*>(content->bytes), content->size);
  kestor_free(content->bytes);
  return taken;
}

class ClientTest : public testing::Test {
 protected:
  ClientTest() {
    EXPECT_EQ(kestor_use_home(platform::Home::Current().Folder().c_str()), 0);
    std::filesystem::copy(KESTOR_EXAMPLES "/contabil/XCT01.REL", installation_.Reports() / "Contabil");
  }
  ~ClientTest() override {
    kestor_reports_close(reports_);
    kestor_legacy_close(legacy_);
  }

  kestor_result OpenReports(const kestor_options* options = nullptr) {
    return kestor_reports_open(options, "CT", "01", &reports_);
  }

  const support::Installation installation_;
  kestor_reports* reports_ = nullptr;
  kestor_legacy* legacy_ = nullptr;
};

TEST_F(ClientTest, Documents) {
  const kestor_options onlyThere = {sizeof(kestor_options), 0, 1};
  EXPECT_EQ(OpenReports(&onlyThere), KESTOR_NO_SERVER);
  ASSERT_EQ(OpenReports(), 0);
  const std::string content("a\0b", 3);
  EXPECT_EQ(kestor_reports_write(reports_, "Vendas por mês", 3, 0, content.data(), content.size()), 0);
  EXPECT_EQ(kestor_reports_write(reports_, "VENDAS POR MÊS", 3, KESTOR_KEEP_EXISTING, "x", 1), KESTOR_MODEL_EXISTS);
  EXPECT_EQ(kestor_reports_write(reports_, "Vazio", 0, 0, nullptr, 0), 0);
  kestor_content read;
  ASSERT_EQ(kestor_reports_read(reports_, "Vendas por mês", &read), 0);
  EXPECT_EQ(read.version, 3);
  EXPECT_EQ(Take(&read), content);
  EXPECT_EQ(kestor_reports_read(reports_, "Nada", &read), KESTOR_NO_SUCH_MODEL);
  EXPECT_EQ(read.bytes, nullptr);
  EXPECT_THAT(kestor_last_reason(), HasSubstr("CT01Nada.RXL"));
  EXPECT_STREQ(kestor_result_name(KESTOR_NO_SUCH_MODEL), "KESTOR_ARQ_NAO_EXISTE");
  EXPECT_THAT(kestor_result_meaning(KESTOR_NO_SUCH_MODEL), HasSubstr("no model"));

  char* name = nullptr;
  EXPECT_EQ(kestor_reports_set_default(reports_, "Nada"), 1);
  EXPECT_EQ(kestor_reports_set_default(reports_, "Vendas por mês"), 0);
  ASSERT_EQ(kestor_reports_get_default(reports_, &name), 0);
  EXPECT_STREQ(name, "Vendas por mês");
  kestor_free(name);
  EXPECT_EQ(kestor_reports_set_default(reports_, nullptr), 0);
  EXPECT_EQ(kestor_reports_get_default(reports_, &name), 0);
  EXPECT_EQ(name, nullptr);

  EXPECT_EQ(kestor_reports_delete(reports_, "Vazio", 1), 0);
  kestor_names names;
  ASSERT_EQ(kestor_reports_deleted(reports_, &names), 0);
  EXPECT_THAT(Take(&names), ElementsAre("Vazio"));
  EXPECT_EQ(kestor_reports_write(reports_, "Vazio", 0, KESTOR_CHECK_DEMONSTRATIONS, nullptr, 0),
            KESTOR_DEMONSTRATION_DELETED);
  ASSERT_EQ(kestor_reports_list(reports_, &names), 0);
  EXPECT_THAT(Take(&names), ElementsAre("Vendas por mês"));

  kestor_field* fields = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(kestor_reports_fields(reports_, &fields, &count), 0);
  ASSERT_GT(count, 0U);
  char* alias = kestor_to_utf8(fields[0].alias, sizeof fields[0].alias);
  EXPECT_GT(std::strlen(alias), 0U);
  kestor_free(alias);
  kestor_free(fields);
}

TEST_F(ClientTest, FirstGenerationAndRenumbering) {
  ASSERT_EQ(kestor_legacy_open(nullptr, "CT", "01", &legacy_), 0);
  kestor_names names;
  EXPECT_EQ(kestor_legacy_list(legacy_, &names), KESTOR_NO_MODELS);
  const std::string model = support::ReadFile(KESTOR_EXAMPLES "/contabil/Balancete.REL");
  EXPECT_EQ(kestor_legacy_write(legacy_, "Balancete", 0, model.data(), model.size()), 0);
  EXPECT_EQ(kestor_legacy_write_quietly(legacy_, "Outro", 0, "x", 1), 0);
  EXPECT_EQ(kestor_legacy_write(legacy_, "Outro", KESTOR_KEEP_EXISTING, "y", 1), KESTOR_MODEL_EXISTS);
  ASSERT_EQ(kestor_legacy_list(legacy_, &names), 0);
  EXPECT_THAT(Take(&names), ElementsAre("Balancete", "Outro"));
  EXPECT_EQ(kestor_legacy_delete(legacy_, "Outro"), 0);
  kestor_content read;
  ASSERT_EQ(kestor_legacy_read(legacy_, "Balancete", &read), 0);
  EXPECT_EQ(Take(&read), model);

  kestor_export settings = {};
  settings.item_count = 2;
  kestor_export_item items[2] = {};
  EXPECT_EQ(kestor_from_utf8("Relação", items[1].content, sizeof items[1].content), 0);
  EXPECT_EQ(kestor_legacy_put_export(legacy_, "Balancete", &settings, items), 0);
  kestor_export_item* stored = nullptr;
  ASSERT_EQ(kestor_legacy_get_export(legacy_, "Balancete", &settings, &stored), 0);
  ASSERT_EQ(settings.item_count, 2);
  EXPECT_EQ(std::memcmp(stored, items, sizeof items), 0);
  kestor_free(stored);

  kestor_filter_entry entry = {};
  entry.code = 301;
  entry.value.amount = -7;
  entry.type = 4;
  EXPECT_EQ(kestor_legacy_put_filter(legacy_, "Balancete", &entry, 1), 0);
  kestor_filter_entry* entries = nullptr;
  std::size_t count = 0;
  ASSERT_EQ(kestor_legacy_get_filter(legacy_, "Balancete", &entries, &count), 0);
  ASSERT_EQ(count, 1U);
  EXPECT_EQ(entries[0].code, 301);
  const std::int64_t amount = entries[0].value.amount;  // records are packed
  EXPECT_EQ(amount, -7);
  EXPECT_EQ(entries[0].type, 4);
  kestor_free(entries);

  kestor_legacy_field* fields = nullptr;
  ASSERT_EQ(kestor_legacy_fields(legacy_, &fields, &count), 0);
  EXPECT_GT(count, 0U);
  kestor_free(fields);
  const kestor_column column = {"Nada", 10};
  EXPECT_NE(kestor_legacy_update(legacy_, "Balancete", 1, 1, &column, 1), 0);

  // The first store of documents migrates the model; its codes are renumbered then.
  ASSERT_EQ(OpenReports(), 0);
  const kestor_code_change change = {302, 301};
  EXPECT_EQ(kestor_renumber(nullptr, "CT", "01", &change, 1), 0);
  ASSERT_EQ(kestor_reports_read(reports_, "Balancete", &read), 0);
  EXPECT_THAT(Take(&read), testing::Not(HasSubstr("302")));
}

TEST_F(ClientTest, RefusesWhatIsNone) {
  EXPECT_EQ(kestor_reports_open(nullptr, "CT", "01", nullptr), KESTOR_INVALID_POINTER);
  EXPECT_EQ(kestor_reports_open(nullptr, nullptr, "01", &reports_), KESTOR_INVALID_POINTER);
  EXPECT_EQ(kestor_reports_open(nullptr, "\xff", "01", &reports_), KESTOR_INVALID_ARGUMENT);
  const kestor_options empty = {};
  EXPECT_EQ(OpenReports(&empty), KESTOR_INVALID_ARGUMENT);
  EXPECT_EQ(kestor_reports_open(nullptr, "XX", "01", &reports_), static_cast<kestor_result>(0x80043F59));
  EXPECT_THAT(kestor_last_reason(), HasSubstr("XX"));
  EXPECT_EQ(reports_, nullptr);
  kestor_content content;
  EXPECT_EQ(kestor_reports_read(nullptr, "x", &content), KESTOR_INVALID_POINTER);
  ASSERT_EQ(OpenReports(), 0);
  EXPECT_EQ(kestor_reports_write(reports_, "x", 0, 4, "x", 1), KESTOR_INVALID_ARGUMENT);
  EXPECT_EQ(kestor_reports_write(reports_, "x", 0, 0, nullptr, 1), KESTOR_INVALID_POINTER);
  EXPECT_EQ(kestor_reports_write(reports_, "x", 0, 0, "x", std::size_t{1} << 40), KESTOR_INVALID_ARGUMENT);
  char field[4];
  EXPECT_EQ(kestor_from_utf8("não!", field, sizeof field), KESTOR_INVALID_ARGUMENT);
  EXPECT_STREQ(field, "n\xe3o");
  EXPECT_EQ(kestor_from_utf8("\u65e5", field, sizeof field), KESTOR_INVALID_ARGUMENT);
}

TEST_F(ClientTest, AServerThatDoesNotAnswerCostsNoMoreThanTheTime) {
  // Starts the server, which may take longer than the limit.
  ASSERT_EQ(kestor_legacy_open(nullptr, "CT", "01", &legacy_), 0);
  const kestor_options brief = {sizeof(kestor_options), 4000, 0};
  ASSERT_EQ(OpenReports(&brief), 0);
  kestor_names names;
  ASSERT_EQ(kestor_reports_list(reports_, &names), 0);
  kestor_free(names.names);
  const pid_t server = installation_.ServerPid();
  ASSERT_EQ(kill(server, SIGSTOP), 0);
  EXPECT_EQ(kestor_reports_list(reports_, &names), KESTOR_TIMED_OUT);
  EXPECT_STREQ(kestor_last_reason(), "");
  kestor_legacy* other = nullptr;
  EXPECT_EQ(kestor_legacy_open(&brief, "CT", "01", &other), KESTOR_TIMED_OUT);
  ASSERT_EQ(kill(server, SIGCONT), 0);
  EXPECT_EQ(kestor_reports_list(reports_, &names), KESTOR_NO_SERVER);
  EXPECT_EQ(kestor_legacy_write(legacy_, "x", 0, "x", 1), 0);
}

TEST_F(ClientTest, EachThreadHasItsOwnHandles) {
  constexpr int kThreads = 4;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([number] {
      const std::string name = "Modelo " + std::to_string(number);
      kestor_reports* store = nullptr;
      ASSERT_EQ(kestor_reports_open(nullptr, "CT", "01", &store), 0);
      for (int i = 0; i < 20; ++i) {
        const std::string content = std::to_string(number) + " " + std::to_string(i);
        ASSERT_EQ(kestor_reports_write(store, name.c_str(), 1, 0, content.data(), content.size()), 0);
        kestor_content read;
        ASSERT_EQ(kestor_reports_read(store, name.c_str(), &read), 0);
        ASSERT_EQ(Take(&read), content);
        ASSERT_EQ(kestor_reports_read(store, (name + "x").c_str(), &read), KESTOR_NO_SUCH_MODEL);
        ASSERT_THAT(kestor_last_reason(), HasSubstr(name + "x"));
      }
      kestor_reports_close(store);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
