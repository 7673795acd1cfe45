// The history: what the server's changes have replaced, removed or overwritten, as whole files in a folder of its own.
//
//   FOLDER/MODULE/COMPONENT/NAME/VERSION
//
// MODULE and COMPONENT are the codes in upper case. NAME is the model's name as spelt in the file name, or .nameless if
// it is empty. A VERSION is TIME-PROCESS-USER-METHOD-AFTER followed by the rest of the file name from its first dot,
// such as 20261126T221530123456Z-4711-1000-Grava-3a0x18b2f0c41d2e6f00.RXL:
//
//   TIME     when the operation began: UTC, to the microsecond. TIME and PROCESS, the server's, identify an operation
//   USER     the number of the client's user
//   METHOD   the method that the client called; Inicializa is a migration. Both classes have an ExcluiRelatorio: the
//            one for documents is written as ExcluiRelatorio2
//   AFTER    what took the file's place: its size, x, and its modification time in nanoseconds, both in hexadecimal;
//            "gone" if nothing did; "inplace" if the file itself was overwritten; "new" followed by size and time if
//            there was no document before, in which case the version is empty
//
// An operation keeps the state in which it finds a file, not the states that it makes itself. If the file system allows
// it, a file that is replaced or removed gets the version as a second name; otherwise it is copied, and the copy and
// its folders are flushed. A version gets its name only when it is complete. Texts are UTF-8.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/files/keeping.h"

namespace history {

using Clock = std::chrono::system_clock;
using Time = std::chrono::time_point<Clock, std::chrono::microseconds>;

// The settings in the registry, below HKEY_LOCAL_MACHINE\SOFTWARE\Norvela. A limit of 0 means no limit.
struct Settings {
  std::filesystem::path folder;  // Historico, an absolute path of this system; empty: nothing is kept
  unsigned versions = 50;        // HistoricoVersoes in the subkey KESTOR, a DWORD: operations per model
  unsigned days = 400;           // HistoricoDias there: age in days
};

Settings ReadSettings();

// ---- Versions ------------------------------------------------------------------------------------------------------

inline constexpr const char* kMigration = "Inicializa";
inline constexpr const char* kDeletion = "ExcluiRelatorio";
inline constexpr const char* kDocumentDeletion = "ExcluiRelatorio2";

enum class After { replaced, gone, overwritten, made };

// A version of one file of a model.
struct Version {
  Time time = {};
  pid_t process = 0;
  uid_t user = 0;
  std::string method = {};
  After after = After::replaced;
  std::uint64_t sizeAfter = 0;  // size of the file that replaced it
  std::int64_t timeAfter = 0;   // modification time of that file, in nanoseconds since 1970
  std::string extension = {};   // with its dot

  // Filled in by FindVersions.
  std::string model = {};
  std::filesystem::path file = {};
  std::uint64_t size = 0;
  std::int64_t written = 0;  // modification time of its content, in nanoseconds since 1970
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  bool IsOfOperation(const Version& other) const { return time == other.time && process == other.process; }
};

std::string NameOf(const Version& version);
std::optional<Version> ParseName(std::string_view name);

// Returns the versions of a module and component, the oldest operation first; only those of one folder NAME if `model`
// is given. Skips files with other names, and links. Skips folders that cannot be read, and adds to `*trouble` (unless
// null) what is missing, for people. The codes are in code page 1252.
std::vector<Version> FindVersions(const std::filesystem::path& folder, const std::string& module,
                                  const std::string& component, std::string* trouble, const std::string& model = {});

// Notes that an operation is taken back, or that it took another one back, by an empty file .undone-TIME-PROCESS in the
// folder of the module and component. Returns 0 or an errno value.
int NoteUndone(const std::filesystem::path& folder, const std::string& module, const std::string& component,
               const Version& operation);

// Removes the operations with such a note from the list.
void RemoveUndone(const std::filesystem::path& folder, const std::string& module, const std::string& component,
                  std::vector<Version>* versions);

// Removes versions over the limits, leftovers of killed servers, and the folders that are then empty. Covers all
// modules and components if `module` is empty, all components if `component` is. Returns how many versions it removed.
// Adds to `*trouble` what could not be removed.
std::size_t Prune(const Settings& settings, const std::string& module, const std::string& component,
                  std::string* trouble);

// Returns the time in nanoseconds since 1970.
std::int64_t Nanoseconds(const struct timespec& time);

// ---- Keeping -------------------------------------------------------------------------------------------------------

// A call of a method that may change models.
struct Operation {
  uid_t user = 0;
  std::string method = {};
  std::string module = {};  // code page 1252, as is the component
  std::string component = {};
  bool ofFirstGeneration = false;  // the class is that of the first generation
};

// Keeps what the operations of one thread change.
class Keeper final : public files::Keeper {
 public:
  // Returns whether the registry names a folder for the history.
  bool IsWanted();

  void Begin(Operation operation);
  void End() noexcept { keptIn_ = {}; }

  void Keep(const files::LeavingFile& leaving) noexcept override;
  void Drop() noexcept override;
  void SeeNew(const std::string& name, const platform::Descriptor& file, bool isComplete) noexcept override;

  std::string TakeTrouble() override { return std::exchange(trouble_, {}); }

 private:
  struct Place;
  struct Descriptors;

  void TryKeep(const files::LeavingFile& leaving);
  bool FindPlace(const std::string& file, Place* place);
  Version VersionOf(const Place& place, After after) const;
  template <typename Work>
  int InFolder(const Place& place, const Work& work);
  int OpenModel(const Place& place);
  int OpenOrMakeFolders(const Place& place, Descriptors* folders);
  int SyncFolders(const Place& place);
  void PruneNowAndThen(const Place& place, const Version& running);
  void Miss(const std::string& file, const std::string& reason);

  std::filesystem::path folder_;
  std::shared_ptr<const void> folderOf_;  // the registry's state when it named the folder
  Operation operation_;
  Time begun_{};
  std::unordered_set<std::string> seen_;            // files that the operation has changed or made, in upper case
  std::unordered_map<std::string, unsigned> room_;  // how many versions a model may get before its folder is listed
  std::string trouble_;
  platform::Descriptor keptIn_;  // the folder of the version that was kept last
  std::string kept_;             // empty: there is none to drop
  std::string keptOf_;           // the file that the version is of, in upper case
};

}  // namespace history
