// A drive of the test's own, the modes in which this system opens files, and helpers to try them.
#pragma once

#include <sys/stat.h>

#include "platform/files/files.h"
#include "support/elsewhere.h"
#include "support/system_calls.h"

namespace fs = std::filesystem;

using support::Elsewhere;
using support::ReadFile;
using support::SystemCalls;
using support::WriteFile;
using Names = std::vector<std::string>;

inline constexpr UINT kReadExclusive = CFile::modeRead | CFile::shareExclusive;
inline constexpr UINT kCreateExclusive = CFile::modeCreate | CFile::modeWrite | CFile::shareExclusive;
inline constexpr UINT kUpdateExclusive =
    CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite | CFile::shareExclusive;
inline constexpr UINT kReadShared = CFile::modeRead | CFile::shareDenyNone;
inline constexpr UINT kUpdateShared = CFile::modeReadWrite | CFile::shareDenyWrite;
inline constexpr UINT kCreateShared = CFile::modeCreate | kUpdateShared;
inline constexpr uid_t kNobody = 65534;
inline constexpr uid_t kOther = 65533;

// An access control list in the system's format: a version, then for each entry its kind, its permissions and its user.
inline constexpr std::uint32_t kAclVersion = 2;
inline constexpr std::uint16_t kNamedUser = 2;

struct AclEntry {
  std::uint16_t kind;
  std::uint16_t permits;
  std::uint32_t who;
};

// Returns a list that lets one user read and write in addition to owner and group.
inline std::string AclWith(std::uint32_t user) {
  const AclEntry entries[] = {{1, 6, ~0u}, {kNamedUser, 6, user}, {4, 6, ~0u}, {16, 6, ~0u}, {32, 0, ~0u}};
  std::string acl(reinterpret_cast<const char*>(&kAclVersion), sizeof kAclVersion);
  return acl.append(reinterpret_cast<const char*>(entries), sizeof entries);
}

// Returns the platform's error number of what `action` throws; 0 if it throws nothing.
template <typename Action>
LONG ErrorOf(const Action& action) {
  try {
    action();
    return 0;
  } catch (const CFileException& failure) {
    return failure.m_lOsError;
  }
}

// Opens the file and returns the platform's error number; 0 for success.
inline LONG OpenError(CFile* file, const char* path, UINT flags) {
  CFileException failure;
  return file->Open(path, flags, &failure) ? 0 : failure.m_lOsError;
}

inline LONG OpenError(const char* path, UINT flags) {
  CFile file;
  return OpenError(&file, path, flags);
}

// Returns the whole content of a file just opened.
inline std::string ContentOf(CFile* file) {
  std::string content(static_cast<std::size_t>(file->GetLength()), '\0');
  content.resize(file->Read(content.data(), static_cast<UINT>(content.size())));
  return content;
}

// Returns the content of the file at a path, or "error" and the number if it cannot be opened.
inline std::string Content(const std::string& path) {
  CFile file;
  const LONG error = OpenError(&file, path.c_str(), kReadShared);
  return error == 0 ? ContentOf(&file) : "error " + std::to_string(error);
}

// The current directory is the folder of drive D. Every user may create files there and read those of other users.
class FilesTest : public testing::Test {
 protected:
  FilesTest() {
    fs::current_path(home_.Data());
    fs::permissions(".", fs::perms(0777));
    umask(022);
  }
  ~FilesTest() override { fs::current_path("/"); }

  static Names Here() { return support::Names("."); }

  support::TempHome home_;
};
