// The component-object runtime of the desktop platform, as far as the server and its clients use it: interfaces and
// identities, class objects, activation of a local server, task memory, BSTRs, VARIANTs, streams, type libraries.
//
// Names, values and results are the platform's own. The runtime knows no interface beyond the ones below. Marshalers
// tell it how to carry the calls of other interfaces between processes (marshaler.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "platform/kernel/kernel.h"
#include "platform/kernel/results.h"

// ---- Identities ----------------------------------------------------------------------------------------------------

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using REFGUID = const GUID&;

inline bool operator==(const GUID& a, const GUID& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Formats and parses "{627C07C1-2803-4BE4-99FD-10796E46479A}". GuidFromText accepts either letter case and returns
// false for any other form.
std::string GuidText(const GUID& guid);
bool GuidFromText(const std::string& text, GUID* guid);

// ---- Interfaces ----------------------------------------------------------------------------------------------------

struct IUnknown {
  virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  ~IUnknown() = default;
};
inline constexpr IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

struct IClassFactory : IUnknown {
  virtual HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) = 0;
  virtual HRESULT LockServer(BOOL lock) = 0;

 protected:
  ~IClassFactory() = default;
};
inline constexpr IID IID_IClassFactory = {0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// Owns a counted reference to an interface.
template <typename Interface>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(ComPtr&& other) noexcept : pointer_(other.pointer_) { other.pointer_ = nullptr; }
  ComPtr& operator=(ComPtr&& other) noexcept {
    if (this != &other) {
      Reset();
      pointer_ = other.pointer_;
      other.pointer_ = nullptr;
    }
    return *this;
  }
  ~ComPtr() { Reset(); }

  Interface* Get() const { return pointer_; }
  Interface* operator->() const { return pointer_; }
  Interface& operator*() const { return *pointer_; }
  explicit operator bool() const { return pointer_ != nullptr; }
  void Reset() {
    if (pointer_ != nullptr) pointer_->Release();
    pointer_ = nullptr;
  }
  // Where a call stores the reference that it hands out. Releases the held one first.
  Interface** Out() {
    Reset();
    return &pointer_;
  }
  void** OutVoid() { return reinterpret_cast<void**>(Out()); }

 private:
  Interface* pointer_ = nullptr;
};

// ---- Task memory and BSTRs -----------------------------------------------------------------------------------------

using OLECHAR = char16_t;
using BSTR = OLECHAR*;  // NUL-terminated, with its length in bytes (32 bits) in front; null counts as empty

// Allocates `bytes` bytes; even 0 bytes give a block to be freed. Returns null when memory runs out.
void* CoTaskMemAlloc(std::size_t bytes);
void CoTaskMemFree(void* block);  // null is allowed

// Owns a block of task memory.
struct TaskMemoryDeleter {
  void operator()(void* block) const { CoTaskMemFree(block); }
};
template <typename T>
using TaskBlock = std::unique_ptr<T, TaskMemoryDeleter>;

// Allocates `bytes` uninitialised bytes. Throws std::bad_alloc.
template <typename T>
TaskBlock<T> NewTaskBlock(std::size_t bytes) {
  TaskBlock<T> block(static_cast<T*>(CoTaskMemAlloc(bytes)));
  if (!block) throw std::bad_alloc();
  return block;
}

BSTR SysAllocString(const OLECHAR* text);
BSTR SysAllocStringLen(const OLECHAR* text, UINT characters);  // null text: uninitialised characters
BSTR SysAllocStringByteLen(const char* bytes, UINT count);
void SysFreeString(BSTR text);
UINT SysStringLen(BSTR text);  // characters
UINT SysStringByteLen(BSTR text);

// Owns a BSTR.
struct BstrDeleter {
  void operator()(OLECHAR* text) const { SysFreeString(text); }
};
using OwnedBstr = std::unique_ptr<OLECHAR, BstrDeleter>;

// ---- VARIANT -------------------------------------------------------------------------------------------------------

using VARTYPE = std::uint16_t;
inline constexpr VARTYPE VT_EMPTY = 0;
inline constexpr VARTYPE VT_I4 = 3;
inline constexpr VARTYPE VT_BSTR = 8;
inline constexpr VARTYPE VT_UNKNOWN = 13;

struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    LONG lVal;
    BSTR bstrVal;
    IUnknown* punkVal;
    std::uint64_t reserved[2];
  };
};

void VariantInit(VARIANT* value);
HRESULT VariantClear(VARIANT* value);  // frees what the value owns and makes it empty

// ---- Streams -------------------------------------------------------------------------------------------------------

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct STATSTG {
  OLECHAR* pwcsName;
  DWORD type;
  ULONGLONG cbSize;
  FILETIME mtime;
  FILETIME ctime;
  FILETIME atime;
  DWORD grfMode;
  DWORD grfLocksSupported;
  CLSID clsid;
  DWORD grfStateBits;
  DWORD reserved;
};
inline constexpr DWORD STGTY_STREAM = 2;

struct ISequentialStream : IUnknown {
  virtual HRESULT Read(void* destination, ULONG count, ULONG* countRead) = 0;
  virtual HRESULT Write(const void* source, ULONG count, ULONG* countWritten) = 0;

 protected:
  ~ISequentialStream() = default;
};

struct IStream : ISequentialStream {
  virtual HRESULT Seek(LONGLONG move, DWORD origin, ULONGLONG* newPosition) = 0;
  virtual HRESULT SetSize(ULONGLONG size) = 0;
  virtual HRESULT CopyTo(IStream* destination, ULONGLONG count, ULONGLONG* countRead, ULONGLONG* countWritten) = 0;
  virtual HRESULT Commit(DWORD flags) = 0;
  virtual HRESULT Revert() = 0;
  virtual HRESULT LockRegion(ULONGLONG offset, ULONGLONG count, DWORD lockType) = 0;
  virtual HRESULT UnlockRegion(ULONGLONG offset, ULONGLONG count, DWORD lockType) = 0;
  virtual HRESULT Stat(STATSTG* status, DWORD flag) = 0;
  virtual HRESULT Clone(IStream** stream) = 0;

 protected:
  ~IStream() = default;
};
inline constexpr IID IID_ISequentialStream = {0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0, 0xAA, 0, 0x44, 0x77, 0x3D}};
inline constexpr IID IID_IStream = {0x0000000C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// ---- Error information ---------------------------------------------------------------------------------------------
// Tells people why a call ended as it did. An object sets it for its thread while it serves the call. It says more than
// the result and never contradicts it.

struct IErrorInfo : IUnknown {
  virtual HRESULT GetGUID(GUID* interfaceId) = 0;
  virtual HRESULT GetSource(BSTR* program) = 0;
  virtual HRESULT GetDescription(BSTR* description) = 0;  // the sentence; the caller's
  virtual HRESULT GetHelpFile(BSTR* path) = 0;
  virtual HRESULT GetHelpContext(DWORD* context) = 0;

 protected:
  ~IErrorInfo() = default;
};
inline constexpr IID IID_IErrorInfo = {0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

// Sets the error information of the calling thread; null clears it. The runtime clears it before it serves a call.
// Returns S_OK.
HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* information);

// Takes the error information of the calling thread; S_FALSE when there is none. After a call on an object of another
// process, fetches what the object set there: once, only for the thread's last call, and only while the object's proxy
// lives and has made no other call since.
HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** information);

// ---- Class objects and activation ----------------------------------------------------------------------------------

inline constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;
inline constexpr DWORD CLSCTX_LOCAL_SERVER = 0x4;
inline constexpr DWORD CLSCTX_REMOTE_SERVER = 0x10;
inline constexpr DWORD CLSCTX_ALL = 23;
inline constexpr DWORD REGCLS_MULTIPLEUSE = 1;

// Enters (leaves) a single-threaded apartment: calls from other processes reach the calling thread's objects through
// its message loop. S_FALSE when the thread is in one already. The thread leaves when it has called CoUninitialize as
// often as CoInitialize.
HRESULT CoInitialize(void* reserved);
void CoUninitialize();

// Has no effect: calls are open to the user of the process and to root. Kept for the platform's form.
HRESULT CoInitializeSecurity(void* descriptor, LONG authServices, void* serviceList, void* reserved1, DWORD authnLevel,
                             DWORD impLevel, void* authList, DWORD capabilities, void* reserved3);

// Publishes a class object; the runtime holds a reference until it is withdrawn. With CLSCTX_LOCAL_SERVER the process
// listens on the class's socket of its home. Returns CO_E_OBJISREG when another process serves the home, E_ACCESSDENIED
// when the socket folder is not the user's own, CO_E_NOTINITIALIZED outside an apartment, E_FAIL when the system
// provides no socket. If no class of the process is published to others then, the calling thread is sent the quit
// message, because no call would ever reach it. Without CLSCTX_LOCAL_SERVER the class is there for this process only.
HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* classObject, DWORD context, DWORD flags, DWORD* cookie);
HRESULT CoRevokeClassObject(DWORD cookie);  // CO_E_OBJNOTREG for an unknown cookie

// Creates an object of a class and asks it for an interface. Calls a class object that this process has published
// directly. Otherwise, with CLSCTX_LOCAL_SERVER in `context`, creates the object in the home's server process, which it
// starts when there is none; that takes a marshaler of the interface.
//   REGDB_E_CLASSNOTREG        the class is not registered
//   CO_E_SERVER_EXEC_FAILURE   its executable cannot be started or does not come up in 30 s
//   0x8007xxxx                 the registry cannot be read
//   CLASS_E_NOAGGREGATION      an outer object was given for an object of another process
//   E_NOINTERFACE              the object has no such interface, or nothing carries it between processes (nothing
//                              carries IUnknown: ask for the class's interface)
//   E_ACCESSDENIED             the sockets belong to another user
//   0x80010110                 the server speaks another version of the protocol
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object);

namespace com {

// The process that serves a class of this home.
struct ServerStatus {
  DWORD processId;
  DWORD liveObjects;
};
// Asks that process, without starting one. Returns S_FALSE when none runs, 0x800705B4 when it is busy and does not
// answer in time; other results as CoCreateInstance.
HRESULT AskServerStatus(REFCLSID clsid, ServerStatus* status);

}  // namespace com

// ---- Type libraries ------------------------------------------------------------------------------------------------
// A type library is a text in the platform's interface description language. It is stored as a file of its own, or
// inside an executable, between the mark "@(#) type library\n" and a NUL. Paths are the host system's.

using LCID = DWORD;
enum SYSKIND { SYS_WIN16 = 0, SYS_WIN32 = 1, SYS_MAC = 2, SYS_WIN64 = 3 };

struct TLIBATTR {
  GUID guid;
  LCID lcid;
  SYSKIND syskind;
  WORD wMajorVerNum;
  WORD wMinorVerNum;
};

struct ITypeLib : IUnknown {
  virtual HRESULT GetLibAttr(TLIBATTR** attributes) = 0;  // freed with ReleaseTLibAttr
  virtual void ReleaseTLibAttr(TLIBATTR* attributes) = 0;
  virtual HRESULT GetDocumentation(BSTR* name, BSTR* helpString) = 0;  // of the library; the caller's
  virtual const std::string& Text() const = 0;                         // the whole description, as stored

 protected:
  ~ITypeLib() = default;
};
inline constexpr IID IID_ITypeLib = {0x00020402, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

HRESULT LoadTypeLib(const OLECHAR* path, ITypeLib** library);  // TYPE_E_CANTLOADLIBRARY when there is none

// Registers and unregisters the library below HKEY_CLASSES_ROOT\TypeLib. TYPE_E_REGISTRYACCESS when the registry cannot
// be written or the library is not registered.
HRESULT RegisterTypeLib(ITypeLib* library, const OLECHAR* fullPath, const OLECHAR* helpFolder);
HRESULT UnRegisterTypeLib(REFGUID guid, WORD majorVersion, WORD minorVersion, LCID lcid, SYSKIND system);
