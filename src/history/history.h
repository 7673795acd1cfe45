// The history: what the server's changes have replaced, removed or overwritten, as whole files in a folder beside the
// reports folder.
//
//   FOLDER/MODULE/COMPONENT/NAME/VERSION
//
// MODULE and COMPONENT are the codes in upper case, NAME is the model's as its file spelled it, and .nameless where
// that is empty. A VERSION is called
//   TIME-PROCESS-USER-METHOD-AFTER.EXTENSION     such as
//   20261126T221530123456Z-4711-1000-Grava-3a0x18b2f0c41d2e6f00.RXL
// TIME        when the operation began, in UTC down to microseconds; with PROCESS, the server's, it tells operations
// apart USER        the number of the client's user METHOD      the method that the client called; Inicializa means a
// migration AFTER       what took the file's place: its size and its modification time in nanoseconds, in hexadecimal,
// "gone" when
//             nothing did, "inplace" where the file itself was overwritten
// EXTENSION   the rest of the file's name, from its first dot on; nothing where it has none
//
// A file that is replaced or removed gets the version as a second name, where the file system gives it one; otherwise
// it is copied, and the copy is flushed. A version has its name only when it is complete. Texts are UTF-8.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/files/keeping.h"

namespace history {

using Clock = std::chrono::system_clock;
using Time = std::chrono::time_point<Clock, std::chrono::microseconds>;

// What the registry says, below HKEY_LOCAL_MACHINE\SOFTWARE\Norvela. A limit of 0 is none.
struct Settings {
  std::filesystem::path folder;  // Historico, a path of this system from its root; empty: nothing is kept
  unsigned versions = 50;        // HistoricoVersoes in the subkey KESTOR, a DWORD: how many are kept of a model
  unsigned days = 400;           // HistoricoDias there: for how long
};

Settings ReadSettings();

// ---- Versions ------------------------------------------------------------------------------------------------------

enum class After { replaced, gone, overwritten };

// A version of one file of a model.
struct Version {
  Time time = {};
  pid_t process = 0;
  uid_t user = 0;
  std::string method = {};
  After after = After::replaced;
  std::uint64_t sizeAfter = 0;  // of the file that replaced it, and
  std::int64_t timeAfter = 0;   // when that was written, in nanoseconds since 1970
  std::string extension = {};   // with its dot

  // What a reader adds.
  std::string model = {};
  std::filesystem::path file = {};
  std::uint64_t size = 0;

  bool IsOfOperation(const Version& other) const { return time == other.time && process == other.process; }
};

std::string NameOf(const Version& version);
std::optional<Version> ParseName(std::string_view name);

// The versions of a module and component, the oldest operation first. Files of other names, folders that cannot be read
// and links are passed over: `*trouble` is then what is missing, for people.
std::vector<Version> FindVersions(const std::filesystem::path& folder, const std::string& module,
                                  const std::string& component, std::string* trouble);

// Removes what is over the limits, and what killed servers have left. How many versions that were. Adds to `*trouble`
// what could not be removed.
std::size_t Prune(const Settings& settings, const std::string& module, const std::string& component,
                  std::string* trouble);

// ---- Keeping -------------------------------------------------------------------------------------------------------

// A call of a method that may change models.
struct Operation {
  uid_t user = 0;
  std::string method = {};
  std::string module = {};  // code page 1252, as the other codes
  std::string component = {};
  bool ofFirstGeneration = false;  // the class is that of the first generation
};

// Keeps what the operations of one thread change.
class Keeper final : public files::Keeper {
 public:
  // Reads the settings. Whether anything is kept.
  bool IsWanted();

  void Begin(Operation operation);

  void Keep(const files::LeavingFile& leaving) noexcept override;
  void Drop() noexcept override;
  void SeeNew(const std::string& name, const platform::Descriptor& file) noexcept override;

  // Why versions were not kept since this was asked last, for people; empty when all were.
  std::string TakeTrouble() { return std::exchange(trouble_, {}); }

 private:
  struct Place;
  // A file that the operation has made.
  struct Made {
    std::string name;
    ino_t number = 0;
    std::uint64_t size = 0;
    std::int64_t time = 0;
  };

  void TryKeep(const files::LeavingFile& leaving);
  bool FindPlace(const std::string& file, Place* place);
  std::string DocumentOf(const std::string& model) const;
  Version VersionOf(const files::LeavingFile& leaving, const Place& place) const;
  void Miss(const std::string& file, const std::string& reason);

  Settings settings_;
  Operation operation_;
  Time begun_{};
  Made made_;  // the last one
  std::string trouble_;
  platform::Descriptor keptIn_;  // the folder of the version that was kept last
  std::string kept_;             // empty: there is none to drop
};

}  // namespace history
