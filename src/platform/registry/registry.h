// The desktop platform's registry: keys and values of one home, kept in one text file (registry.reg) in the platform's
// own export format. What it lacks comes from the registry file of the whole machine (Home::SystemRegistry). Changes
// never go there: they create what they need in the home's file.
//
// Key and value names ignore letter case and keep the case in which they were created. Every call reflects the current
// file, but parses it again only if it has changed. Every change replaces the file atomically under a lock that all
// processes of the home honour. A damaged file makes every call fail with ERROR_BADDB and is never overwritten. A
// missing file is an empty registry.
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

// Each returns ERROR_SUCCESS or an error number: 2 no such key or value, 6 no such handle, 87 a null or malformed
// argument, 234 the buffer is too small, 259 no more items, 1009 the registry file is damaged; for the file: 3 its
// folder is missing, 4 too many open files, 5 it may not be read or written, 8 out of memory, 31 a failure without a
// number of its own, 32 it is in use, 206 its path is too long, 1117 the device failed; for a change: 19 the disk is
// write-protected, 33 another program has held the lock for 5 seconds, 36 the system has no locks left, 112 the disk or
// the registry is full.
LONG RegOpenKeyA(HKEY parent, const char* path, HKEY* key);    // null or empty path: the parent itself
LONG RegCreateKeyA(HKEY parent, const char* path, HKEY* key);  // opens the key, or creates it with the keys above it
LONG RegCloseKey(HKEY key);                                    // does nothing for a root

// Reads data and type of a value (null or empty `name`: the key's default value). `*size` is the room in `data` on
// entry and the data's size in bytes afterwards; null `data` only asks for the size. Texts (REG_SZ, REG_EXPAND_SZ,
// REG_MULTI_SZ) are in code page 1252 and have their terminating NUL.
LONG RegQueryValueExA(HKEY key, const char* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);

// Sets a value. A text (REG_SZ, REG_EXPAND_SZ) ends at its first NUL or after `size` bytes, whichever comes first.
LONG RegSetValueExA(HKEY key, const char* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);

LONG RegDeleteValueA(HKEY key, const char* name);
LONG RegDeleteTreeA(HKEY parent, const char* path);  // the key with everything below it; never a root

// Names the `index`-th subkey in order of creation; 259 after the last.
LONG RegEnumKeyA(HKEY key, DWORD index, std::string* name);

namespace registry {

// Owns an open key and closes it.
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

  // Where a call stores the key that it opens. Closes the key that was open before.
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

// Returns the number in a value of an open key if it is a REG_DWORD from `least` to `most`; else `otherwise`.
DWORD ReadNumber(HKEY key, const char* value, DWORD least, DWORD most, DWORD otherwise);

// Returns an object that stands for the current content of the registry. While a caller keeps it, later calls return
// the same object only if nothing has changed. Null when the registry cannot be read. Only checks the state of the
// file, which costs less than reading a value.
std::shared_ptr<const void> Moment();

// Thrown for a malformed registry file or text to import.
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

// Sets texts of a key in one change, and creates the key if it is missing. Waits at most `patience` for the lock (33):
// for notes that are not worth a longer wait. Results as of the calls above.
LONG SetTexts(HKEY parent, const char* path, std::initializer_list<NamedText> texts,
              std::chrono::milliseconds patience);

// The functions below serve people and tools. They throw FormatError, and std::filesystem::filesystem_error for files
// that cannot be read or written.

// Maps the key `from` and the keys below it to `to`, both below HKEY_LOCAL_MACHINE.
struct Redirection {
  std::string_view from;
  std::string_view to;
};

// Merges the bytes of `file` in one of the export formats (REGEDIT4 in code page 1252; version 5.00 in UTF-16 with mark
// or UTF-8) into the registry and carries out its deletions. Changes nothing if there is an error anywhere. Returns how
// many sections were redirected.
std::size_t Import(std::string_view bytes, const std::string& file, const Redirection& redirection);

// Throws as Import does, and changes nothing.
void CheckImport(std::string_view bytes, const std::string& file);

// Returns the whole content of a file.
std::string ReadWhole(const std::filesystem::path& file);

// Returns the owner of the home's registry file that this process has read last, or this process's user if there was
// none.
uid_t OwnerOfLastRead();

// Formats the home's registry, or the key `keyPath` with everything below it (the name starts with the root, such as
// HKEY_LOCAL_MACHINE\SOFTWARE), as a version 5.00 text in UTF-8. Returns false when there is no such key.
bool Export(std::string_view keyPath, std::string* text);

// Converts such a text to the form that the desktop's own tools write: UTF-16 with mark, lines ending in CR LF.
std::string ToDesktopEncoding(std::string_view text);

// Reads the file and throws if it is damaged. For callers that report the reason of ERROR_BADDB.
void Check();

// Splits "HKEY_LOCAL_MACHINE\SOFTWARE\X" (also HKLM, HKCR) into the root and the path below it. Returns null when it
// starts with no root. Code page 1252.
HKEY SplitRoot(std::string_view keyPath, std::string* path);

}  // namespace registry
