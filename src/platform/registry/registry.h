// The desktop platform's registry: keys and values of one home, kept in one text file (registry.reg) in the platform's
// own export format. What it lacks comes from such a file of the whole machine (Home::SystemRegistry), which is never
// written: a change makes what it needs in the home's.
//
// Key and value names ignore letter case and keep the case with which they were made. Every call reads the file as it
// is now (a parsed copy serves as long as the file is the same one), and every change replaces the file atomically
// under a lock that all processes of the home honour. A file damaged at some line makes every call fail with
// ERROR_BADDB and is never overwritten. A missing file is an empty registry.
//
// Texts are code page 1252. Key paths use backslashes; a trailing one does not count.
#pragma once

#include <chrono>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/kernel/kernel.h"

struct RegistryKey;
using HKEY = RegistryKey*;

extern const HKEY HKEY_LOCAL_MACHINE;
extern const HKEY HKEY_CLASSES_ROOT;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;

// Each gives ERROR_SUCCESS or an error number: 2 no such key or value, 6 no such handle, 87 a null or malformed
// argument, 234 the buffer is too small, 259 no more items, 1009 the registry file is damaged; of the file: 3 its
// folder is not there, 4 too many open files, 5 it may not be read or written, 8 out of memory, 31 a failure without a
// number of its own, 32 it is in use, 206 its path is too long, 1117 the device failed; of a change: 19 the disk is
// write-protected, 33 another program has held the lock for 5 seconds, 36 the system has no locks left, 112 the disk or
// the registry is full.
LONG RegOpenKeyA(HKEY parent, const char* path, HKEY* key);    // null or empty path: the parent itself
LONG RegCreateKeyA(HKEY parent, const char* path, HKEY* key);  // opens, or makes it with the keys above it
LONG RegCloseKey(HKEY key);                                    // a root may be closed and stays

// Data and type of a value (null or empty `name`: the key's default value). `*size` is the room in `data` on entry and
// the data's size in bytes afterwards; with `data` null only the size is told. Texts (REG_SZ, REG_EXPAND_SZ,
// REG_MULTI_SZ) come in code page 1252 and with their terminating NUL.
LONG RegQueryValueExA(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);

// Sets a value. A text counts up to its first NUL or to `size`, whichever comes first.
LONG RegSetValueExA(HKEY key, const char* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);

LONG RegDeleteValueA(HKEY key, const char* name);
LONG RegDeleteTreeA(HKEY parent, const char* path);  // the key with everything below it; never a root

// The `index`-th subkey in the order in which they were made; 259 after the last.
LONG RegEnumKeyA(HKEY key, DWORD index, std::string* name);

namespace registry {

// An open key that is closed with the object.
class OwnedKey {
 public:
  OwnedKey() = default;
  ~OwnedKey() { Close(); }
  OwnedKey(OwnedKey&& other) noexcept : key_(std::exchange(other.key_, nullptr)) {}
  OwnedKey& operator=(OwnedKey&& other) noexcept {
    if (this != &other) *Out() = std::exchange(other.key_, nullptr);
    return *this;
  }

  HKEY Get() const { return key_; }  // null: none is open

  // Where a call is to put the key that it opens. The one that was open until now is closed.
  HKEY* Out() {
    Close();
    return &key_;
  }

 private:
  void Close() {
    if (key_ != nullptr) RegCloseKey(std::exchange(key_, nullptr));
  }

  HKEY key_ = nullptr;
};

// The number that a value of an open key holds, if it is a REG_DWORD from `least` to `most`; else `otherwise`.
DWORD ReadNumber(HKEY key, const char* value, DWORD least, DWORD most, DWORD otherwise);

// Stands for what the registry holds now, and is the same object as one that the caller still has only where nothing
// has changed. Null when the registry cannot be read. Costs a look at the file's state, and less than reading any
// value.
std::shared_ptr<const void> Moment();

// A registry file, or a text to import, that does not read as one.
class FormatError : public std::runtime_error {
 public:
  // `file` as the host system writes it, `line` counted from 1; `what()` is "FILE:LINE: REASON" in UTF-8.
  FormatError(const std::string& file, std::size_t line, const std::string& reason);
};

// One text value (REG_SZ) of a key.
struct NamedText {
  const char* name;
  std::string_view text;
};

// Sets texts of a key, which is made if it is missing, in one change, and waits only `patience` for others who change
// the registry (33): for notes that are not worth a longer wait. Results as of the calls above.
LONG SetTexts(HKEY parent, const char* path, std::initializer_list<NamedText> texts,
              std::chrono::milliseconds patience);

// The functions below work for people and tools. They throw FormatError, std::filesystem::filesystem_error for files
// that cannot be read or written.

// Keys below one that count as keys below another one, both below HKEY_LOCAL_MACHINE.
struct Redirection {
  std::string_view from;
  std::string_view to;
};

// Merges the bytes of `file` in one of the export formats (REGEDIT4 in code page 1252; version 5.00 in UTF-16 with mark
// or UTF-8), deletions included, into the registry: all of it or, on an error anywhere, nothing. How many of its
// sections were redirected.
std::size_t Import(std::string_view bytes, const std::string& file, const Redirection& redirection);

// Throws as Import does, and changes nothing.
void CheckImport(std::string_view bytes, const std::string& file);

// The whole content of a file.
std::string ReadWhole(const std::filesystem::path& file);

// The user who owns the registry file that this process has read last, or this process's where there was none.
uid_t OwnerOfLastRead();

// The home's registry, or the key `keyPath` with all below it (its name starts with the root, such as
// HKEY_LOCAL_MACHINE\SOFTWARE), as a version 5.00 text in UTF-8. False when there is no such key.
bool Export(std::string_view keyPath, std::string* text);

// The same text in the form that the desktop's own tools write: UTF-16 with mark, lines ending in CR LF.
std::string ToDesktopEncoding(std::string_view text);

// Reads the file and throws if it is damaged. For callers that want to tell the reason of ERROR_BADDB.
void Check();

// Splits "HKEY_LOCAL_MACHINE\SOFTWARE\X" (also HKLM, HKCR) into root and path below it; null root when it starts with
// no root. Code page 1252.
HKEY SplitRoot(std::string_view keyPath, std::string* path);

}  // namespace registry
