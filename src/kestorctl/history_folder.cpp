#include "history_folder.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/caminhos_instalacao.h"
#include "failure.h"
#include "folder_plan.h"
#include "platform/host/system.h"
#include "platform/host/whole_file.h"
#include "platform/text/text.h"
#include "registry_values.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;
using kestor::CCaminhosInstalacao;

constexpr const char* kValue = "Historico";

KeyName Key() {
  return {HKEY_LOCAL_MACHINE, CCaminhosInstalacao::kChaveBase};
}

fs::path Canonical(const std::string& folder) {
  return fs::weakly_canonical(fs::absolute(folder));
}

fs::path BesideOf(const fs::path& reports) {
  return fs::weakly_canonical(reports).string() + ".history";
}

bool LiesWithin(const fs::path& inner, const fs::path& outer) {
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

void RequireApart(const fs::path& folder, const fs::path& reports) {
  const fs::path place = fs::weakly_canonical(reports);
  if (LiesWithin(folder, place))
    throw LocalFailure(folder.string() + " lies in the reports folder, which holds nothing but reports");
  if (LiesWithin(place, folder)) throw LocalFailure("the reports folder lies in " + folder.string());
}

// Makes the folder so that every user who may work in the reports folder may keep versions.
void Make(const fs::path& folder, const fs::path& reports) {
  if (folder.has_parent_path()) fs::create_directories(folder.parent_path());
  if (mkdir(folder.c_str(), 0777) != 0) {
    if (errno == EEXIST && fs::is_directory(folder)) return;
    throw LocalFailure("cannot make " + folder.string() + ": " + std::strerror(errno));
  }
  platform::Descriptor made;
  struct stat status = {};
  if (host::OpenFolder(AT_FDCWD, folder, &made) != 0 || host::Stat(AT_FDCWD, reports, &status) != 0) return;
  host::TakeOverOwners(made, status);
  host::ChangeMode(made, status.st_mode & (07777 & ~S_ISVTX));
}

void Enter(const fs::path& folder, const fs::path& reports, const SharedFolder* shared, Answer& answer) {
  std::string ansi;
  if (!text::FromUtf8Exactly(folder.string(), &ansi))
    throw LocalFailure("code page 1252 lacks a character of " + folder.string());
  RequireApart(folder, reports);
  RequireMakeable(folder);
  const bool exists = fs::is_directory(folder);
  Make(folder, reports);
  if (shared != nullptr) {
    shared->Share(folder);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.is_directory() && !entry.is_symlink()) shared->Share(entry.path());
    }
  }
  SetText(Key(), kValue, ansi);
  answer.output += "history  " + folder.string() + (exists ? "\n" : " (made)\n");
  answer.data["history"] = {{"folder", folder.string()}, {"madeFolder", !exists}};
}

}  // namespace

void RequirePossible(const HistoryWish& wish, const fs::path& reports) {
  if (wish.folder && wish.none) throw UsageError("--history and --no-history exclude each other");
  if (wish.folder && wish.folder->empty()) throw UsageError("--history: the folder has no name");
  if (!wish.folder) return;
  if (!reports.empty()) RequireApart(Canonical(*wish.folder), reports);
  RequireMakeable(Canonical(*wish.folder));
}

void EnterHistory(const HistoryWish& wish, const fs::path& reports, const SharedFolder* shared, Answer& answer) {
  answer.data["history"] = nullptr;
  const std::string entered = CCaminhosInstalacao::BuscaCaminhoHistorico();
  if (wish.none) {
    SetText(Key(), kValue, {});  // an empty value keeps the next setup from entering a folder
    answer.output += "history  none is kept\n";
  } else if (wish.folder) {
    Enter(Canonical(*wish.folder), reports, shared, answer);
  } else if (!reports.empty() && !(entered.empty() && ReadValue(Key(), kValue))) {
    try {
      const bool isMoved = wish.formerReports && BesideOf(*wish.formerReports) == entered;
      Enter(entered.empty() || isMoved ? BesideOf(reports) : fs::path(entered), reports, shared, answer);
    } catch (const LocalFailure& failure) {
      answer.AddNote((entered.empty() ? "no history is kept: " : "the history stays in " + entered + ": ") +
                     failure.what());
    }
  }
}

void TellHistory(Answer& answer) {
  const fs::path folder = CCaminhosInstalacao::BuscaCaminhoHistorico();
  answer.data["history"] = nullptr;
  if (folder.empty()) return;
  std::error_code error;
  const bool exists = fs::is_directory(folder, error);
  const std::string trouble = !folder.is_absolute() ? " (is no path from the root: nothing is kept)"
                              : !exists             ? " (is no folder that is there: nothing is kept)"
                                                    : "";
  answer.output += "history  " + folder.string() + trouble + "\n";
  answer.data["history"] = {{"folder", folder.string()}, {"exists", exists}};
}

}  // namespace kestorctl
