#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <sstream>
#include <utility>

#include "object.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"

namespace {

// Precedes a description inside an executable. A NUL ends the description.
constexpr std::string_view kMark = "@(#) type library\n";

// Far above the size of any executable with debug information, and far below what would exhaust the memory.
constexpr std::uintmax_t kMaxFileBytes = std::uintmax_t{256} << 20;

// ---- The text ------------------------------------------------------------------------------------------------------

struct LibraryHead {
  GUID guid{};
  WORD majorVersion = 0;
  WORD minorVersion = 0;
  LCID lcid = 0;
  std::string name;
  std::string helpString;  // UTF-8
};

// Reads the head of a description, which is all that the runtime needs. The rest is for programs that generate clients;
// the reader only looks for its end, to reject a description that was cut off.
class DescriptionReader {
 public:
  explicit DescriptionReader(std::string_view text) : rest_(text) {}

  // Returns false when the text does not read as "[" attributes "]" "library" NAME "{" … "}" [";"].
  bool Read(LibraryHead* head) {
    if (!Take('[') || !ReadAttributes(head) || !Take(']') || TakeWord() != "library") return false;
    head->name = TakeWord();
    if (head->name.empty() || !Take('{') || !SkipBody()) return false;
    Take(';');
    Skip();
    return rest_.empty();
  }

 private:
  void Drop(std::size_t count) { rest_.remove_prefix(std::min(count, rest_.size())); }

  // Skips white space, comments and lines that start with '#'.
  void Skip() {
    for (;;) {
      Drop(rest_.find_first_not_of(" \t\r\n"));
      if (rest_.starts_with("//") || rest_.starts_with('#')) {
        Drop(rest_.find('\n'));
      } else if (rest_.starts_with("/*")) {
        Drop(rest_.find("*/", 2));
        Drop(2);
      } else {
        return;
      }
    }
  }

  bool Take(char mark) {
    Skip();
    if (!rest_.starts_with(mark)) return false;
    Drop(1);
    return true;
  }

  // Takes a name, a number, or an identity with its hyphens. Empty when there is none.
  std::string TakeWord() {
    Skip();
    const auto isPart = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_' || c == '.' || c == '-'; };
    std::string word(rest_.begin(), std::find_if_not(rest_.begin(), rest_.end(), isPart));
    Drop(word.size());
    return word;
  }

  // Takes the rest of a text, up to and including its closing quote.
  bool TakeText(std::string* text) {
    text->clear();
    while (!rest_.empty() && rest_.front() != '"') {
      if (rest_.front() == '\\') Drop(1);
      *text += rest_.substr(0, 1);
      Drop(1);
    }
    return Take('"');
  }

  // NAME or NAME "(" VALUE ")", with commas between.
  bool ReadAttributes(LibraryHead* head) {
    std::map<std::string, std::string> values = {{"lcid", "0"}};
    do {
      std::string& value = values[TakeWord()];
      if (Take('(') && !TakeValue(&value)) return false;
    } while (Take(','));
    head->helpString = values["helpstring"];
    return GuidFromText("{" + values["uuid"] + "}", &head->guid) && ReadVersion(values["version"], head) &&
           ReadNumber(values["lcid"], &head->lcid);
  }

  bool TakeValue(std::string* value) {
    if (!Take('"')) {
      *value = TakeWord();
    } else if (!TakeText(value)) {
      return false;
    }
    return Take(')');
  }

  // MAJOR or MAJOR.MINOR.
  static bool ReadVersion(std::string_view version, LibraryHead* head) {
    const std::size_t point = version.find('.');
    if (!ReadNumber(version.substr(0, point), &head->majorVersion)) return false;
    return point == std::string_view::npos || ReadNumber(version.substr(point + 1), &head->minorVersion);
  }

  template <typename T>
  static bool ReadNumber(std::string_view digits, T* number) {
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), *number);
    return error == std::errc() && end == digits.data() + digits.size();
  }

  bool SkipBody() {
    std::string text;
    for (std::size_t depth = 1; depth > 0;) {
      if (Take('{')) {
        ++depth;
      } else if (Take('}')) {
        --depth;
      } else if (Take('"')) {
        if (!TakeText(&text)) return false;
      } else if (rest_.empty()) {
        return false;
      } else {
        Drop(1);
      }
    }
    return true;
  }

  std::string_view rest_;
};

// ---- The library object --------------------------------------------------------------------------------------------

class TypeLibrary final : public com::CountedObject<ITypeLib, IID_ITypeLib> {
 public:
  TypeLibrary(LibraryHead head, std::string description)
      : head_(std::move(head)), description_(std::move(description)) {}

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

  const LibraryHead head_;
  const std::string description_;
};

// Returns the content of a regular file; empty when it cannot be read. Refuses other files: a pipe would block the
// caller, and a device might not end.
std::string ReadFile(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return {};
  if (std::filesystem::file_size(path, error) > kMaxFileBytes) return {};  // also when the size is unknown
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return std::move(content).str();
}

// Finds the description in a file that holds nothing else or is an executable. Returns its library without a reference;
// null when there is none. The mark alone proves nothing, because every program that looks for it contains it.
ITypeLib* FindLibrary(std::string_view content) {
  for (;;) {
    const std::size_t mark = content.find(kMark);
    std::string_view description = content.substr(0, mark);
    description = description.substr(0, description.find('\0'));
    LibraryHead head;
    if (DescriptionReader(description).Read(&head) && text::IsValidUtf8(description)) {
      return new TypeLibrary(std::move(head), std::string(description));
    }
    if (mark == std::string_view::npos) return nullptr;
    content.remove_prefix(mark + kMark.size());
  }
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

// Creates the key `path` with `text` as its default value.
bool SetKeyText(const std::string& path, const std::string& text) {
  registry::OwnedKey key;
  if (RegCreateKeyA(HKEY_CLASSES_ROOT, path.c_str(), key.Out()) != ERROR_SUCCESS) return false;
  return RegSetValueExA(key.Get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1)) == ERROR_SUCCESS;
}

bool DeleteKey(const std::string& path) {
  return RegDeleteTreeA(HKEY_CLASSES_ROOT, path.c_str()) == ERROR_SUCCESS;
}

// Returns whether the key has no subkeys but those that describe a version as a whole.
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

// Converts a path of the host system to the registry's code page. Returns false when code page 1252 lacks a character,
// because a path with a replaced character would lead elsewhere.
bool ToRegistryText(const OLECHAR* path, std::string* ansi) {
  return text::FromUtf8Exactly(text::Utf16ToUtf8(path), ansi);
}

}  // namespace

HRESULT LoadTypeLib(const OLECHAR* path, ITypeLib** library) {
  if (library == nullptr) return E_POINTER;
  *library = nullptr;
  if (path == nullptr) return E_INVALIDARG;
  try {
    *library = FindLibrary(ReadFile(text::Utf16ToUtf8(path)));
    if (*library == nullptr) return TYPE_E_CANTLOADLIBRARY;
    (*library)->AddRef();
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
