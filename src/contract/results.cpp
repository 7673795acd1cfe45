#include "results.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace kestor {

namespace {

struct NamedResult {
  HRESULT result;
  const char* name;
  const char* meaning;
};

// A number that is listed in the error form only means the same in the notice form.
const NamedResult kNamedResults[] = {
    {S_OK, "S_OK", "done"},
    {S_FALSE, "S_FALSE", "no model of that name, or it cannot be opened"},

    {ErrorForm(KESTOR_ARQ_NAO_EXISTE), "KESTOR_ARQ_NAO_EXISTE", "the field catalogue cannot be opened"},
    {NoticeForm(KESTOR_ARQ_NAO_EXISTE), "KESTOR_ARQ_NAO_EXISTE", "no model of that name, or it cannot be opened"},
    {ErrorForm(KESTOR_PROBLEMAS_AO_LER), "KESTOR_PROBLEMAS_AO_LER", "a file could not be read whole"},
    {ErrorForm(KESTOR_NAO_BUSCOU_QTDE), "KESTOR_NAO_BUSCOU_QTDE",
     "nothing is pending: the size must be asked for just before the content"},
    {ErrorForm(KESTOR_ARQUIVO_JA_EXISTE), "KESTOR_ARQUIVO_JA_EXISTE", "a model of that name exists"},
    {ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR), "KESTOR_PROBLEMAS_AO_GRAVAR", "a file could not be written"},
    {ErrorForm(KESTOR_PROBLEMAS_AO_CRIAR_ARQUIVO), "KESTOR_PROBLEMAS_AO_CRIAR_ARQUIVO", "a file could not be created"},
    {ErrorForm(KESTOR_NAO_FOI_INICIALIZADO), "KESTOR_NAO_FOI_INICIALIZADO",
     "the store is not initialised for a module and component"},
    {ErrorForm(KESTOR_NENHUM_ARQUIVO_ENCONTRADO), "KESTOR_NENHUM_ARQUIVO_ENCONTRADO", "no model was found"},
    {ErrorForm(KESTOR_PROBLEMAS_NO_REGISTRY), "KESTOR_PROBLEMAS_NO_REGISTRY",
     "the registry cannot be read or lacks an entry"},
    {ErrorForm(KESTOR_MODULO_DESCONHECIDO), "KESTOR_MODULO_DESCONHECIDO", "no module has that code"},
    {ErrorForm(KESTOR_ARQ_JA_FOI_ALTERADO), "KESTOR_ARQ_JA_FOI_ALTERADO",
     "the columns given do not match the model: it was changed meanwhile"},
    {ErrorForm(KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO), "KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO",
     "a demonstration model of that name was deleted"},

    {ServiceError(16012), "KESTOR_ARQUIVO_DADOS_POSICAO_INVALIDA", "a data file could not be positioned"},
    {ServiceError(16021), "KESTOR_ARQUIVO_DADOS_FIM", "the end of a data file was met"},
    {ServiceError(16039), "KESTOR_ARQUIVO_DADOS_ERRO_DE_HARDWARE", "the device failed on a data file"},
    {ServiceError(16055), "KESTOR_ARQUIVO_DADOS_NAO_ENCONTRADO",
     "a data file does not exist, or was created once and has disappeared"},
    {ServiceError(16063), "KESTOR_ARQUIVO_DADOS_CAMINHO_INVALIDO",
     "the path of a data file leads nowhere, or is refused"},
    {ServiceError(16071), "KESTOR_ARQUIVO_DADOS_MUITOS_ABERTOS", "too many files are open to open a data file"},
    {ServiceError(16080), "KESTOR_ARQUIVO_DADOS_ACESSO_NEGADO", "access to a data file is denied"},
    {ServiceError(16081), "KESTOR_ARQUIVO_DADOS_SOMENTE_LEITURA", "a data file is read-only"},
    {ServiceError(16098), "KESTOR_ARQUIVO_DADOS_INVALIDO", "a data file is invalid"},
    {ServiceError(16101), "KESTOR_ARQUIVO_DADOS_DIRETORIO_CHEIO", "the folder of a data file is full"},
    {ServiceError(16110), "KESTOR_ARQUIVO_DADOS_EM_USO", "a data file is in use by another program"},
    {ServiceError(16128), "KESTOR_ARQUIVO_DADOS_TRAVADO", "part of a data file is locked by another program"},
    {ServiceError(16136), "KESTOR_ARQUIVO_DADOS_DISCO_CHEIO", "the disk of a data file is full"},
    {ServiceError(16144), "KESTOR_ARQUIVO_DADOS_TENTATIVAS_ESGOTADAS", "every attempt to use a data file failed"},
    {ServiceError(16179), "KESTOR_ARQUIVO_DADOS_ARGUMENTO_INVALIDO", "a data file was asked for with a wrong argument"},
    {ServiceError(16217), "KESTOR_PASTA_NAO_REGISTRADA",
     "the registry does not name the folder, or no module has that code"},

    {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), "ERROR_FILE_NOT_FOUND", "file not found"},
    {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), "ERROR_PATH_NOT_FOUND", "folder or drive not found"},
    {HRESULT_FROM_WIN32(ERROR_TOO_MANY_OPEN_FILES), "ERROR_TOO_MANY_OPEN_FILES", "too many files are open"},
    {E_ACCESSDENIED, "E_ACCESSDENIED", "access denied"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE), "ERROR_INVALID_HANDLE", "no such handle"},
    {HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), "ERROR_NOT_ENOUGH_MEMORY", "not enough memory for the operation"},
    {E_OUTOFMEMORY, "E_OUTOFMEMORY", "out of memory"},
    {HRESULT_FROM_WIN32(ERROR_BAD_FORMAT), "ERROR_BAD_FORMAT", "a file is not what its name says"},
    {HRESULT_FROM_WIN32(ERROR_NOT_SAME_DEVICE), "ERROR_NOT_SAME_DEVICE", "a file cannot be moved to another disk"},
    {HRESULT_FROM_WIN32(ERROR_NO_MORE_FILES), "ERROR_NO_MORE_FILES", "there are no more files"},
    {HRESULT_FROM_WIN32(ERROR_WRITE_PROTECT), "ERROR_WRITE_PROTECT", "the disk is write-protected"},
    {HRESULT_FROM_WIN32(ERROR_SEEK), "ERROR_SEEK", "a file could not be positioned"},
    {HRESULT_FROM_WIN32(ERROR_GEN_FAILURE), "ERROR_GEN_FAILURE", "the device failed"},
    {HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION), "ERROR_SHARING_VIOLATION", "a file is in use by another program"},
    {HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION), "ERROR_LOCK_VIOLATION", "part of a file is locked by another program"},
    {HRESULT_FROM_WIN32(ERROR_SHARING_BUFFER_EXCEEDED), "ERROR_SHARING_BUFFER_EXCEEDED",
     "too many files are open for sharing"},
    {HRESULT_FROM_WIN32(ERROR_HANDLE_EOF), "ERROR_HANDLE_EOF", "the end of a file was met"},
    {HRESULT_FROM_WIN32(ERROR_HANDLE_DISK_FULL), "ERROR_HANDLE_DISK_FULL", "the disk is full"},
    {HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), "ERROR_FILE_EXISTS", "a file of that name exists"},
    {E_INVALIDARG, "E_INVALIDARG", "an argument is out of bounds"},
    {HRESULT_FROM_WIN32(ERROR_DISK_FULL), "ERROR_DISK_FULL", "the disk is full"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_NAME), "ERROR_INVALID_NAME", "the name holds characters that are not allowed"},
    {HRESULT_FROM_WIN32(ERROR_NEGATIVE_SEEK), "ERROR_NEGATIVE_SEEK", "a position before the start of a file"},
    {HRESULT_FROM_WIN32(ERROR_DIR_NOT_EMPTY), "ERROR_DIR_NOT_EMPTY", "the folder is not empty"},
    {HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE), "ERROR_FILENAME_EXCED_RANGE", "the name is too long"},
    {HRESULT_FROM_WIN32(ERROR_MORE_DATA), "ERROR_MORE_DATA", "there is more data than room"},
    {HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS), "ERROR_NO_MORE_ITEMS", "there are no more items"},
    {HRESULT_FROM_WIN32(ERROR_BADDB), "ERROR_BADDB", "the registry file is damaged"},
    {HRESULT_FROM_WIN32(ERROR_IO_DEVICE), "ERROR_IO_DEVICE", "the device failed in reading or writing"},

    {E_NOTIMPL, "E_NOTIMPL", "the operation is not offered"},
    {E_NOINTERFACE, "E_NOINTERFACE", "the object has no such interface"},
    {E_POINTER, "E_POINTER", "a null pointer was given for a result"},
    {E_FAIL, "E_FAIL", "failure without further particulars"},
    {rpc::kServerFault, "RPC_E_SERVERFAULT", "unexpected failure inside the server"},
    {CLASS_E_NOAGGREGATION, "CLASS_E_NOAGGREGATION", "the class does not make parts of other objects"},
    {REGDB_E_CLASSNOTREG, "REGDB_E_CLASSNOTREG", "the class is not registered"},
    {CO_E_OBJISREG, "CO_E_OBJISREG", "another process serves the class already"},
    {CO_E_OBJNOTREG, "CO_E_OBJNOTREG", "the class object was not published"},
    {CO_E_SERVER_EXEC_FAILURE, "CO_E_SERVER_EXEC_FAILURE", "the server cannot be started or does not come up"},
    {TYPE_E_CANTLOADLIBRARY, "TYPE_E_CANTLOADLIBRARY", "the type library cannot be loaded"},
    {TYPE_E_REGISTRYACCESS, "TYPE_E_REGISTRYACCESS", "the type library cannot be entered in the registry"},

    {HRESULT_FROM_WIN32(ERROR_TIMEOUT), "ERROR_TIMEOUT", "the call took longer than its time limit"},
    {rpc::kServerUnavailable, "RPC_S_SERVER_UNAVAILABLE", "the server is gone or cannot be reached"},
    {rpc::kServerTooBusy, "RPC_S_SERVER_TOO_BUSY", "the server has as many connections as it can have"},
    {rpc::kCallFailed, "RPC_S_CALL_FAILED", "the server ended in the call"},
    {rpc::kSlotOutOfRange, "RPC_S_PROCNUM_OUT_OF_RANGE", "the interface has no such method"},
    {rpc::kBadStubData, "RPC_X_BAD_STUB_DATA", "the arguments of the call do not read as such"},
    {rpc::kVersionMismatch, "RPC_E_VERSION_MISMATCH", "the server speaks another version of the protocol"},
};

const NamedResult* Find(HRESULT result) {
  const auto* found = std::find_if(std::begin(kNamedResults), std::end(kNamedResults),
                                   [result](const NamedResult& row) { return row.result == result; });
  return found == std::end(kNamedResults) ? nullptr : found;
}

bool IsNotice(HRESULT result) {
  return result >= NoticeForm(KESTOR_ARQ_NAO_EXISTE) &&
         result <= NoticeForm(KESTOR_MODELO_DEMO_COM_MESMO_NOME_EXCLUIDO);
}

// The source of a result that has no name of its own, by its bits 16 to 26.
struct Facility {
  std::uint32_t number;
  const char* name;
  const char* source;
};

const Facility kFacilities[] = {
    {0, "FACILITY_NULL", "the runtime"},          {1, "FACILITY_RPC", "the call between processes"},
    {2, "FACILITY_DISPATCH", "the type library"}, {3, "FACILITY_STORAGE", "the stream"},
    {4, "FACILITY_ITF", "the interface"},         {7, "FACILITY_WIN32", "the system"},
    {8, "FACILITY_WINDOWS", "the runtime"},
};

ResultText DescribeByFacility(HRESULT result) {
  const std::uint32_t facility = static_cast<std::uint32_t>(result) >> 16 & 0x7FF;
  const std::string number = std::to_string(static_cast<std::uint32_t>(result) & 0xFFFF);
  const std::string kind = FAILED(result) ? "failure " : "notice ";
  for (const Facility& known : kFacilities) {
    if (known.number != facility) continue;
    return {std::string(known.name) + "_" + number, kind + number + " of " + known.source};
  }
  return {"FACILITY_" + std::to_string(facility) + "_" + number, kind + number + " of an unknown source"};
}

}  // namespace

ResultText Describe(HRESULT result) {
  const NamedResult* named = Find(result);
  if (named == nullptr && IsNotice(result)) {
    named = Find(static_cast<HRESULT>(static_cast<std::uint32_t>(result) | 0x80000000u));
  }
  if (named == nullptr) return DescribeByFacility(result);
  return {named->name, named->meaning};
}

std::string ResultCode(HRESULT result) {
  std::array<char, sizeof "0x00000000"> text{};
  std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned>(result));
  return text.data();
}

}  // namespace kestor
