// Results of the desktop platform; failures are negative. Every result that the platform's services give is defined
// here, once; the results of the server's interfaces belong to the contract.
#pragma once

#include "platform/kernel/kernel.h"

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);
inline constexpr HRESULT CO_E_OBJISREG = static_cast<HRESULT>(0x800401FC);
inline constexpr HRESULT CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0);
inline constexpr HRESULT CO_E_OBJNOTREG = static_cast<HRESULT>(0x800401FB);
inline constexpr HRESULT CO_E_SERVER_EXEC_FAILURE = static_cast<HRESULT>(0x80080005);
inline constexpr HRESULT TYPE_E_CANTLOADLIBRARY = static_cast<HRESULT>(0x80029C4A);
inline constexpr HRESULT TYPE_E_REGISTRYACCESS = static_cast<HRESULT>(0x8002801C);

constexpr bool SUCCEEDED(HRESULT result) {
  return result >= 0;
}
constexpr bool FAILED(HRESULT result) {
  return result < 0;
}

// Returns the result for a platform error number, such as 0x80070005 for 5.
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) {
  return error == 0 ? S_OK : static_cast<HRESULT>(0x80070000u | (error & 0xFFFFu));
}

// Results of the call between processes itself, not of the method that was called.
namespace rpc {

inline constexpr HRESULT kServerUnavailable = static_cast<HRESULT>(0x800706BA);  // the server was gone before the call
inline constexpr HRESULT kServerTooBusy = static_cast<HRESULT>(0x800706BB);      // the server has too many connections
inline constexpr HRESULT kCallFailed = static_cast<HRESULT>(0x800706BE);         // the server ended during the call
inline constexpr HRESULT kSlotOutOfRange = static_cast<HRESULT>(0x800706D1);     // the interface has no such method
inline constexpr HRESULT kBadStubData = static_cast<HRESULT>(0x800706F7);        // the arguments do not decode
inline constexpr HRESULT kServerFault = static_cast<HRESULT>(0x80010105);        // an unexpected failure in the server
inline constexpr HRESULT kVersionMismatch = static_cast<HRESULT>(0x80010110);  // the peer's protocol is another version

}  // namespace rpc
