// Every result that a user can meet has a name of its own.
#include "contract/results.h"

#include <gtest/gtest.h>
#include <map>
#include <vector>

#include "platform/channel/channel.h"

namespace {

using kestor::Describe;

std::vector<HRESULT> KnownResults() {
  std::vector<HRESULT> results = {S_OK,
                                  S_FALSE,
                                  E_NOTIMPL,
                                  E_NOINTERFACE,
                                  E_POINTER,
                                  E_FAIL,
                                  E_ACCESSDENIED,
                                  E_OUTOFMEMORY,
                                  E_INVALIDARG,
                                  CLASS_E_NOAGGREGATION,
                                  REGDB_E_CLASSNOTREG,
                                  CO_E_OBJISREG,
                                  CO_E_OBJNOTREG,
                                  CO_E_SERVER_EXEC_FAILURE,
                                  TYPE_E_CANTLOADLIBRARY,
                                  TYPE_E_REGISTRYACCESS,
                                  kestor::kUnexpectedFailure,
                                  channel::kServerUnavailable,
                                  channel::kCallFailed,
                                  channel::kBadStubData,
                                  channel::kSlotOutOfRange,
                                  channel::kVersionMismatch};
  for (int n = KESTOR_ARQ_NAO_EXISTE; n <= KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO; ++n) {
    results.push_back(kestor::ErrorForm(static_cast<KESTOR_Erros>(n)));
  }
  for (const std::uint32_t n : {16012u, 16021u, 16039u, 16055u, 16063u, 16071u, 16080u, 16081u, 16098u, 16101u, 16110u,
                                16128u, 16136u, 16144u, 16179u, 16217u}) {
    results.push_back(kestor::ServiceError(n));
  }
  for (const DWORD n : {ERROR_FILE_NOT_FOUND,
                        ERROR_PATH_NOT_FOUND,
                        ERROR_TOO_MANY_OPEN_FILES,
                        ERROR_INVALID_HANDLE,
                        ERROR_NOT_ENOUGH_MEMORY,
                        ERROR_NOT_SAME_DEVICE,
                        ERROR_NO_MORE_FILES,
                        ERROR_WRITE_PROTECT,
                        ERROR_SEEK,
                        ERROR_GEN_FAILURE,
                        ERROR_SHARING_VIOLATION,
                        ERROR_LOCK_VIOLATION,
                        ERROR_SHARING_BUFFER_EXCEEDED,
                        ERROR_HANDLE_EOF,
                        ERROR_HANDLE_DISK_FULL,
                        ERROR_FILE_EXISTS,
                        ERROR_DISK_FULL,
                        ERROR_INVALID_NAME,
                        ERROR_NEGATIVE_SEEK,
                        ERROR_DIR_NOT_EMPTY,
                        ERROR_FILENAME_EXCED_RANGE,
                        ERROR_MORE_DATA,
                        ERROR_NO_MORE_ITEMS,
                        ERROR_BADDB,
                        ERROR_IO_DEVICE}) {
    results.push_back(kestor::FileError(n));
  }
  return results;
}

TEST(Describe, EveryKnownResultHasANameOfItsOwn) {
  std::map<std::string, HRESULT> owners;
  for (const HRESULT result : KnownResults()) {
    const kestor::ResultText text = Describe(result);
    EXPECT_FALSE(text.name.starts_with("FACILITY_")) << kestor::ResultCode(result);
    EXPECT_FALSE(text.meaning.empty()) << kestor::ResultCode(result);
    const auto [owner, isNew] = owners.emplace(text.name, result);
    EXPECT_TRUE(isNew) << text.name << " is " << kestor::ResultCode(owner->second) << " and "
                       << kestor::ResultCode(result);
  }
}

TEST(Describe, BothFormsOfANumberShareItsName) {
  for (int n = KESTOR_ARQ_NAO_EXISTE; n <= KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO; ++n) {
    const auto number = static_cast<KESTOR_Erros>(n);
    EXPECT_EQ(Describe(kestor::NoticeForm(number)).name, Describe(kestor::ErrorForm(number)).name);
  }
  EXPECT_EQ(Describe(0x00040004).name, "KESTOR_ARQUIVO_JA_EXISTE");
  EXPECT_EQ(Describe(0x00040004).meaning, "a model of that name exists");
  EXPECT_EQ(Describe(static_cast<HRESULT>(0x80043F59)).name, "KESTOR_PASTA_NAO_REGISTRADA");
}

TEST(Describe, OtherResultsAreToldByTheirSource) {
  EXPECT_EQ(Describe(static_cast<HRESULT>(0x80071234)).name, "FACILITY_WIN32_4660");
  EXPECT_EQ(Describe(static_cast<HRESULT>(0x80071234)).meaning, "failure 4660 of the system");
  // A number beyond the server's own is no form of anything that is known.
  EXPECT_EQ(Describe(0x0004000D).name, "FACILITY_ITF_13");
  EXPECT_EQ(Describe(0x00040154).meaning, "notice 340 of the interface");
  EXPECT_EQ(Describe(static_cast<HRESULT>(0x87FF0001)).name, "FACILITY_2047_1");
}

TEST(ResultCode, HasEightDigits) {
  EXPECT_EQ(kestor::ResultCode(kestor::NoticeForm(KESTOR_ARQUIVO_JA_EXISTE)), "0x00040004");
  EXPECT_EQ(kestor::ResultCode(TYPE_E_CANTLOADLIBRARY), "0x80029C4A");
}

}  // namespace
