// Failures of the store's files as results.
#pragma once

#include <exception>

#include "contract/results.h"
#include "platform/files/files.h"

namespace kestor {

// The result of `operacao`; of a file operation that fails in it, the file error's. A failure without an error number
// of the system is none.
template <typename Operacao>
HRESULT ResultadoDe(const Operacao& operacao) {
  try {
    return operacao();
  } catch (const CFileException& falha) {
    return HRESULT_FROM_WIN32(static_cast<DWORD>(falha.m_lOsError));
  } catch (const std::exception&) {
    return rpc::kServerFault;
  }
}

}  // namespace kestor
