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
    return falha.m_lOsError == 0 ? S_OK : FileError(static_cast<std::uint32_t>(falha.m_lOsError));
  } catch (const std::exception&) {
    return kUnexpectedFailure;
  }
}

}  // namespace kestor
