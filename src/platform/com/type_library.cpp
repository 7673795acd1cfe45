#include <array>
#include <atomic>
#include <cstdio>
#include <new>
#include <utility>

#include "com.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "type_library_elf.h"
#include "type_library_file.h"
#include "type_library_text.h"

namespace {

constexpr char kSection[] = ".typelib";

// Far above any description that people write.
constexpr std::size_t kMaxDescriptionBytes = std::size_t{16} << 20;

// ---- The library object --------------------------------------------------------------------------------------------

class TypeLibrary final : public ITypeLib {
 public:
  TypeLibrary(com::LibraryHead head, std::string description)
      : head_(std::move(head)), description_(std::move(description)) {}
  virtual ~TypeLibrary() = default;

  HRESULT QueryInterface(REFIID iid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!(iid == IID_IUnknown || iid == IID_ITypeLib)) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<ITypeLib*>(this);
    return S_OK;
  }
  ULONG AddRef() override { return ++references_; }
  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT GetLibAttr(TLIBATTR** attributes) override {
    if (attributes == nullptr) return E_POINTER;
    *attributes =
        new (std::nothrow) TLIBATTR{head_.guid, head_.lcid, SYS_WIN32, head_.majorVersion, head_.minorVersion};
    return *attributes == nullptr ? E_OUTOFMEMORY : S_OK;
  }
  void ReleaseTLibAttr(TLIBATTR* attributes) override { delete attributes; }

  HRESULT GetDocumentation(BSTR* name, BSTR* helpString) override {
    if (name != nullptr) *name = nullptr;
    if (helpString != nullptr) *helpString = nullptr;
    if (!CopyOut(head_.name, name)) return E_OUTOFMEMORY;
    if (!CopyOut(head_.helpString, helpString)) {
      if (name != nullptr) SysFreeString(std::exchange(*name, nullptr));
      return E_OUTOFMEMORY;
    }
    return S_OK;
  }

  const std::string& Text() const override { return description_; }

 private:
  static bool CopyOut(const std::string& utf8, BSTR* copy) {
    if (copy == nullptr) return true;
    *copy = SysAllocString(text::Utf8ToUtf16(utf8).c_str());
    return *copy != nullptr;
  }

  const com::LibraryHead head_;
  const std::string description_;
  std::atomic<ULONG> references_ = 1;
};

// The description inside an executable, or the whole of any other file.
std::optional<std::string> ReadDescription(const std::string& path) {
  const com::HostFile file(path);
  const com::ElfFile executable(file);
  if (executable.HasSignature()) return executable.Section(kSection, kMaxDescriptionBytes);
  std::string description;
  if (file.Size() > kMaxDescriptionBytes || !file.Read(0, file.Size(), &description)) return std::nullopt;
  return description;
}

// ---- The registry --------------------------------------------------------------------------------------------------

std::string Hexadecimal(std::uint32_t number) {
  std::array<char, 9> digits{};
  std::snprintf(digits.data(), digits.size(), "%x", number);
  return digits.data();
}

std::string LibraryKeyPath(REFGUID guid) {
  return "TypeLib\\" + GuidText(guid);
}

std::string VersionKeyPath(REFGUID guid, WORD major, WORD minor) {
  return LibraryKeyPath(guid) + "\\" + Hexadecimal(major) + "." + Hexadecimal(minor);
}

const char* SystemName(SYSKIND system) {
  switch (system) {
    case SYS_WIN16:
      return "win16";
    case SYS_WIN32:
      return "win32";
    case SYS_MAC:
      return "mac";
    case SYS_WIN64:
      return "win64";
  }
  return "";
}

// Makes the key `path` with `text` as its default value.
bool SetKeyText(const std::string& path, const std::string& text) {
  registry::OwnedKey key;
  if (RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), key.Out()) != ERROR_SUCCESS) return false;
  return RegSetValueExA(key.Get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1)) == ERROR_SUCCESS;
}

bool DeleteKey(const std::string& path) {
  return RegDeleteTreeA(HKEY_CLASSES_ROOT, path.c_str()) == ERROR_SUCCESS;
}

// Whether the key has no subkeys but those that describe a version as a whole.
bool HoldsNoLibrary(const std::string& path) {
  registry::OwnedKey key;
  if (RegOpenKeyA(HKEY_CLASSES_ROOT, path.c_str(), key.Out()) != ERROR_SUCCESS) return false;
  std::string name;
  DWORD index = 0;
  LONG result = RegEnumKeyA(key.Get(), index, &name);
  while (result == ERROR_SUCCESS && (text::EqualNoCase(name, "FLAGS") || text::EqualNoCase(name, "HELPDIR"))) {
    result = RegEnumKeyA(key.Get(), ++index, &name);
  }
  return result == ERROR_NO_MORE_ITEMS;
}

// A path of the host system as the registry holds it. False when code page 1252 cannot hold it: a path with a
// replaced character would lead elsewhere.
bool ToRegistryText(const OLECHAR* path, std::string* ansi) {
  return text::FromUtf8Exactly(text::Utf16ToUtf8(path), ansi);
}

}  // namespace

HRESULT LoadTypeLib(const OLECHAR* path, ITypeLib** library) {
  if (library == nullptr) return E_POINTER;
  *library = nullptr;
  if (path == nullptr) return E_INVALIDARG;
  try {
    std::optional<std::string> description = ReadDescription(text::Utf16ToUtf8(path));
    if (!description) return TYPE_E_CANTLOADLIBRARY;
    std::optional<com::LibraryHead> head = com::ReadLibraryHead(*description);
    if (!head) return TYPE_E_CANTLOADLIBRARY;
    *library = new TypeLibrary(std::move(*head), std::move(*description));
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT RegisterTypeLib(ITypeLib* library, const OLECHAR* fullPath, const OLECHAR* helpFolder) {
  if (library == nullptr || fullPath == nullptr || helpFolder == nullptr) return E_INVALIDARG;
  std::string path;
  std::string folder;
  if (!ToRegistryText(fullPath, &path) || !ToRegistryText(helpFolder, &folder)) return TYPE_E_REGISTRYACCESS;

  TLIBATTR* given = nullptr;
  const HRESULT result = library->GetLibAttr(&given);
  if (FAILED(result)) return result;
  const TLIBATTR attributes = *given;
  library->ReleaseTLibAttr(given);

  BSTR helpString = nullptr;
  const HRESULT documented = library->GetDocumentation(nullptr, &helpString);
  if (FAILED(documented)) return documented;
  const std::string description = text::FromUtf16(helpString);
  SysFreeString(helpString);

  const std::string version = VersionKeyPath(attributes.guid, attributes.wMajorVerNum, attributes.wMinorVerNum);
  const std::string system = version + "\\" + Hexadecimal(attributes.lcid) + "\\" + SystemName(attributes.syskind);
  const bool entered = SetKeyText(version, description) && SetKeyText(version + "\\FLAGS", "0") &&
                       SetKeyText(system, path) && SetKeyText(version + "\\HELPDIR", folder);
  return entered ? S_OK : TYPE_E_REGISTRYACCESS;
}

HRESULT UnRegisterTypeLib(REFGUID guid, WORD majorVersion, WORD minorVersion, LCID lcid, SYSKIND system) {
  const std::string version = VersionKeyPath(guid, majorVersion, minorVersion);
  const std::string locale = version + "\\" + Hexadecimal(lcid);
  if (!DeleteKey(locale + "\\" + SystemName(system))) return TYPE_E_REGISTRYACCESS;
  for (const std::string& above : {locale, version, LibraryKeyPath(guid)}) {
    if (!HoldsNoLibrary(above)) return S_OK;
    if (!DeleteKey(above)) return TYPE_E_REGISTRYACCESS;
  }
  return S_OK;
}
