#include "registration.h"

#include <vector>

#include "contract/interfaces.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

// A text value in the registry, below HKEY_CLASSES_ROOT.
struct Entry {
  std::string key;
  const char* name;  // empty: the key's default value
  std::string text;
  bool startsAnew = false;  // deletes the key with everything below it first
};

// In the order in which they are written. Removal deletes the key of each entry, so a key that other programs share
// must not have an entry of its own.
using Entries = std::vector<Entry>;

struct ServerClass {
  const char* name;
  CLSID clsid;
};

constexpr ServerClass kClasses[] = {{"ZNPL_Rel", CLSID_ZNPL_Rel},
                                    {"ZNPL_Relatorio2", CLSID_ZNPL_Relatorio2},
                                    {"ZNPL_RelConverte", CLSID_ZNPL_RelConverte}};

Entries EntriesOfApplication() {
  const std::string application = GuidText(APPID_KESTOR);
  return {{"AppID\\" + application, "", "KESTOR"}, {R"(AppID\KESTOR.EXE)", "AppID", application}};
}

// `module`: the executable's path in code page 1252.
Entries EntriesOf(const ServerClass& serverClass, const std::string& module) {
  const std::string description = std::string(serverClass.name) + " Class";
  const std::string program = std::string("KESTOR.") + serverClass.name;
  const std::string version = program + ".1";
  const std::string clsid = GuidText(serverClass.clsid);
  const std::string key = "CLSID\\" + clsid;
  return {{version, "", description},
          {version + "\\CLSID", "", clsid},
          {program, "", description},
          {program + "\\CLSID", "", clsid},
          {program + "\\CurVer", "", version},
          {key, "", description, true},
          {key, "AppID", GuidText(APPID_KESTOR)},
          {key + "\\ProgID", "", version},
          {key + "\\VersionIndependentProgID", "", program},
          {key + "\\LocalServer32", "", module},
          {key + "\\TypeLib", "", GuidText(LIBID_KESTORLib)}};
}

LONG DeleteIfThere(const std::string& key) {
  const LONG result = RegDeleteTreeA(HKEY_CLASSES_ROOT, key.c_str());
  return result == ERROR_FILE_NOT_FOUND ? LONG{ERROR_SUCCESS} : result;
}

LONG Write(const Entry& entry) {
  LONG result = entry.startsAnew ? DeleteIfThere(entry.key) : LONG{ERROR_SUCCESS};
  if (result != ERROR_SUCCESS) return result;
  registry::OwnedKey key;
  result = RegCreateKeyA(HKEY_CLASSES_ROOT, entry.key.c_str(), key.Out());
  if (result != ERROR_SUCCESS) return result;
  return RegSetValueExA(key.Get(), entry.name, 0, REG_SZ, reinterpret_cast<const BYTE*>(entry.text.c_str()),
                        static_cast<DWORD>(entry.text.size() + 1));
}

// Writes the entries in order and stops at the first that fails. Returns its result (0x8007xxxx).
HRESULT Add(const Entries& entries) {
  for (const Entry& entry : entries) {
    const LONG result = Write(entry);
    if (result != ERROR_SUCCESS) return HRESULT_FROM_WIN32(static_cast<DWORD>(result));
  }
  return S_OK;
}

// Stops at the first failure, so as not to wait once per key for a registry that another program holds.
void Remove(const Entries& entries) {
  for (const Entry& entry : entries) {
    if (DeleteIfThere(entry.key) != ERROR_SUCCESS) return;
  }
}

// Returns the folder of a path, without a separator at its end unless it is the root.
std::string FolderOf(const std::string& path) {
  const std::size_t separator = path.rfind('/');
  if (separator == std::string::npos) return {};
  return path.substr(0, separator == 0 ? 1 : separator);
}

// Returns the executable's path with the extension of a type library. Only a dot in the file name starts an extension:
// cutting at that of a folder such as kestor-1.0 would lead out of the executable's folder.
std::string LibraryFileBeside(const std::string& executable) {
  const std::size_t separator = executable.rfind('/');
  const std::size_t dot = executable.rfind('.');
  const bool hasExtension = dot != std::string::npos && (separator == std::string::npos || dot > separator);
  return executable.substr(0, hasExtension ? dot : executable.size()) + ".tlb";
}

// Loads the server's type library and sets `*path` to the file that it was loaded from.
HRESULT LoadServerTypeLibrary(const std::string& executable, ITypeLib** library, std::string* path) {
  *path = executable;
  const HRESULT result = LoadTypeLib(text::Utf8ToUtf16(*path).c_str(), library);
  if (SUCCEEDED(result)) return result;
  *path = LibraryFileBeside(executable);
  return LoadTypeLib(text::Utf8ToUtf16(*path).c_str(), library);
}

HRESULT RegisterLibrary(const std::string& executable) {
  ComPtr<ITypeLib> library;
  std::string path;
  const HRESULT result = LoadServerTypeLibrary(executable, library.Out(), &path);
  if (FAILED(result)) return result;
  return RegisterTypeLib(library.Get(), text::Utf8ToUtf16(path).c_str(),
                         text::Utf8ToUtf16(FolderOf(executable)).c_str());
}

HRESULT UnregisterLibrary(const std::string& executable) {
  ComPtr<ITypeLib> library;
  std::string path;
  HRESULT result = LoadServerTypeLibrary(executable, library.Out(), &path);
  if (FAILED(result)) return result;
  TLIBATTR* attributes = nullptr;
  result = library->GetLibAttr(&attributes);
  if (FAILED(result)) return result;
  result = UnRegisterTypeLib(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum, attributes->lcid,
                             attributes->syskind);
  library->ReleaseTLibAttr(attributes);
  return result;
}

}  // namespace

HRESULT RegistraServidor(const std::string& executable) {
  if (executable.empty()) return HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
  std::string module;
  const bool representable = text::FromUtf8Exactly(executable, &module);
  Add(EntriesOfApplication());
  if (!representable) return HRESULT_FROM_WIN32(ERROR_INVALID_NAME);
  for (const ServerClass& serverClass : kClasses) {
    const HRESULT result = Add(EntriesOf(serverClass, module));
    if (FAILED(result)) return result;
  }
  return RegisterLibrary(executable);
}

HRESULT DesregistraServidor(const std::string& executable) {
  Remove(EntriesOfApplication());
  for (const ServerClass& serverClass : kClasses)
    Remove(EntriesOf(serverClass, {}));
  UnregisterLibrary(executable);
  return S_OK;
}

}  // namespace kestor
