// Results for failures of the store's files.
#pragma once

#include <exception>

#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "contract/results.h"
#include "platform/files/files.h"

namespace kestor {

// Returns the result of `operacao`. If a file operation in it fails, returns the result for the file error and records
// the reason: the file cannot be `feito`. A failure without an error number returns S_OK.
template <typename Operacao>
HRESULT ResultadoDe(const char* feito, const Operacao& operacao) {
  try {
    return operacao();
  } catch (const CFileException& falha) {
    if (falha.m_lOsError == static_cast<LONG>(ERROR_BAD_FORMAT)) {
      DizRazao(feito, falha.m_strFileName,
               "a file of records has at most " + std::to_string(kMaxArquivoRegistros) + " bytes");
    } else {
      DizRazao(feito, falha);
    }
    return HRESULT_FROM_WIN32(static_cast<DWORD>(falha.m_lOsError));
  } catch (const std::exception&) {
    return rpc::kServerFault;
  }
}

}  // namespace kestor
