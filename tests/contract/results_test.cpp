// Every result that a user can meet has a name of its own.
#include "contract/results.h"

#include <gtest/gtest.h>
#include <map>
#include <tuple>
#include <vector>

namespace {

using kestor::Describe;

// Every number that the files, the shared services and the interfaces can give is looked at, and what has a name is
// counted.
TEST(Describe, NamesAreGivenOnce) {
  std::map<std::string, HRESULT> owners;
  const auto named = [&owners](std::uint32_t first, std::uint32_t last) {
    int count = 0;
    for (std::uint32_t number = first; number <= last; ++number) {
      const auto result = static_cast<HRESULT>(number);
      const kestor::ResultText text = Describe(result);
      EXPECT_FALSE(text.meaning.empty()) << kestor::ResultCode(result);
      if (text.name.starts_with("FACILITY_")) continue;
      ++count;
      const auto [owner, isNew] = owners.emplace(text.name, result);
      EXPECT_TRUE(isNew) << text.name << " is " << kestor::ResultCode(owner->second) << " and "
                         << kestor::ResultCode(result);
    }
    return count;
  };
  EXPECT_GE(named(0x80040001, 0x8004000C), 12) << "the server's own";
  EXPECT_GE(named(0x80040000 + 16000, 0x80040000 + 16300), 16) << "of shared services";
  EXPECT_GE(named(0x80070000, 0x800704FF), 28) << "of files, arguments and memory";
  EXPECT_GE(named(0x80070600, 0x800706FF), 4) << "of calls between processes";
  for (const HRESULT result :
       {S_OK, S_FALSE, E_NOTIMPL, E_NOINTERFACE, E_POINTER, E_FAIL, CLASS_E_NOAGGREGATION, REGDB_E_CLASSNOTREG,
        CO_E_OBJISREG, CO_E_OBJNOTREG, CO_E_SERVER_EXEC_FAILURE, TYPE_E_CANTLOADLIBRARY, TYPE_E_REGISTRYACCESS,
        rpc::kServerFault, rpc::kVersionMismatch}) {
    EXPECT_EQ(named(static_cast<std::uint32_t>(result), static_cast<std::uint32_t>(result)), 1)
        << kestor::ResultCode(result);
  }
}

TEST(Describe, TellsTheNameOrTheSource) {
  const std::vector<std::tuple<std::uint32_t, const char*, const char*>> cases = {
      {0x00040001, "KESTOR_ARQ_NAO_EXISTE", "no model of that name, or it cannot be opened"},
      {0x80040001, "KESTOR_ARQ_NAO_EXISTE", "the field catalogue cannot be opened"},
      {0x00040004, "KESTOR_ARQUIVO_JA_EXISTE", "a model of that name exists"},
      {0x80040004, "KESTOR_ARQUIVO_JA_EXISTE", "a model of that name exists"},
      {0x0004000D, "FACILITY_ITF_13", "notice 13 of the interface"},
      {0x00040154, "FACILITY_ITF_340", "notice 340 of the interface"},
      {0x80071234, "FACILITY_WIN32_4660", "failure 4660 of the system"},
      {0x87FF0001, "FACILITY_2047_1", "failure 1 of an unknown source"},
  };
  for (const auto& [number, name, meaning] : cases) {
    EXPECT_EQ(Describe(static_cast<HRESULT>(number)).name, name);
    EXPECT_EQ(Describe(static_cast<HRESULT>(number)).meaning, meaning);
  }
  EXPECT_EQ(kestor::ResultCode(0x00040004), "0x00040004");
}

}  // namespace
