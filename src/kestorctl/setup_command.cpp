// The command setup: makes a home in which clients find the server and the server finds its folders.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "folder_plan.h"
#include "history_folder.h"
#include "host_files.h"
#include "installed_folders.h"
#include "mappings.h"
#include "platform/home/home.h"
#include "platform/host/descriptor.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "registry_values.h"
#include "server_registration.h"
#include "shared_folder.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

using kestor::CCaminhosInstalacao;
using kestor::ModuloFamilia;

constexpr const char* kFooter =
    R"(Makes the home, enters the reports folder and the folders of the applications in its registry, and registers the server:
the executable "kestor" next to this program, or $KESTOR_SERVER. Everything is checked before anything is written,
except what can be seen only after an import or on a new drive. Run again, it changes what differs; other drives and the
folders of other modules stay as they are.

With --import it brings the registry of an old machine along: FILE is an export of the desktop, as 'kestorctl registry
import' takes it. With --drive a drive of the desktop, or a share \\HOST\SHARE, leads to an existing folder of this
system. Both come before the other options, and --reports may then be left out. At the end it lists the folders that the
registry names, with the drives and shares that are still missing.

DIR is a folder of this system, which setup makes if it does not exist, or a path of the desktop platform such as
D:\Dados\Relatorios on a drive that the home has. The server knows folders by such paths only: when no drive of the home
leads to DIR, the first free letter from D on is given to it. Drives and shares are the links (or folders) drives/d,
drives/e, …, drives/host/share of the home.

With --shared the members of the group GROUP (a name or a number) work in the reports folder together. The folder
becomes the group's, and the group may write in it. New files are the group's as well (setgid), and so are existing
files of its members. The owner of the folder can do that if it is a member, and so can root. --reports must name the
folder.

The server keeps what it replaces or removes in the folder of the history, so that "kestorctl restore" and
"kestorctl undo" can bring it back. The folder is NAME.history beside the reports folder NAME, unless --history names
another one, which must be a folder of this system outside the reports folder. With --no-history it keeps nothing from
now on; what it has kept stays where it is.

With --json: "home", "madeHome", "drives" (those that were entered), "reports" and "modules" (with --import or without
--reports as "kestorctl status" gives them), "shared" {"group", "changed", "left"} (the numbers of files; null without
--shared), "history" {"folder", "madeFolder"} (null when none is kept), "server".

Examples:
  kestorctl setup --reports /srv/kestor/relatorios --module CT=/srv/kestor/contabil
  kestorctl setup --reports /srv/kestor/relatorios --shared relatorios
  kestorctl setup --import old.reg --drive D=/srv/kestor --drive '\\SERVIDOR\DADOS=/mnt/dados'
  kestorctl --home /srv/kestor/home setup --reports 'D:\Dados\Relatorios'

Exit status: 0 done; 1 failure; 2 wrong usage.)";

struct SetupOptions {
  std::optional<std::string> reports;
  std::vector<std::string> modules;  // CODE=DIR
  std::optional<std::string> group;  // none: the folder is not shared
  std::string import;                // empty: nothing is imported
  std::vector<std::string> drives;   // D=DIR or \\HOST\SHARE=DIR
  HistoryWish history;
};

// A folder that the user wants the registry to name.
struct Wish {
  const ModuloFamilia* module = nullptr;  // null: the reports folder
  std::string folder;
};

// A wish whose place has been found.
struct Entry {
  const ModuloFamilia* module = nullptr;
  Place place;
};

Wish ParseModule(const std::string& option) {
  const std::size_t equals = option.find('=');
  if (equals == std::string::npos || equals + 1 == option.size()) {
    throw UsageError("--module: CODE=DIR is needed, not " + option);
  }
  const std::string code = option.substr(0, equals);
  const ModuloFamilia* module = FindModule(code);
  if (module == nullptr) {
    throw UsageError("--module: no module has the code " + code + "; the codes are " + ModuleCodes());
  }
  return {module, option.substr(equals + 1)};
}

// The reports folder comes first.
std::vector<Wish> ParseWishes(const SetupOptions& options) {
  std::vector<Wish> wishes;
  if (options.reports) {
    if (options.reports->empty()) throw UsageError("--reports: the folder has no name");
    wishes.push_back({nullptr, *options.reports});
  } else if (options.import.empty() && options.drives.empty()) {
    throw UsageError("--reports is required");
  }
  for (const std::string& option : options.modules) {
    const Wish wish = ParseModule(option);
    for (const Wish& other : wishes) {
      if (other.module == wish.module) throw UsageError("--module: " + option.substr(0, 2) + " is given twice");
    }
    wishes.push_back(wish);
  }
  return wishes;
}

KeyName EntryKey(const ModuloFamilia* module) {
  return {HKEY_LOCAL_MACHINE, CCaminhosInstalacao::kChaveBase + std::string(module == nullptr ? "" : module->subchave)};
}

const char* EntryValue(const ModuloFamilia* module) {
  return module == nullptr ? "Relatorios" : "Path";
}

std::vector<Mapping> ParseMappings(const SetupOptions& options) {
  std::vector<Mapping> mappings;
  for (const std::string& option : options.drives) {
    mappings.push_back(ParseMapping(option));
    for (const Mapping& other : mappings) {
      if (&other == &mappings.back() || other.entry != mappings.back().entry) continue;
      throw UsageError("--drive: " + text::ToUtf8(other.name) + " is given twice");
    }
  }
  return mappings;
}

std::vector<Entry> PlanEntries(const std::vector<Wish>& wishes, FolderPlan* plan) {
  std::vector<Entry> entries;
  for (const Wish& wish : wishes) {
    const auto current = ReadValue(EntryKey(wish.module), EntryValue(wish.module));
    const std::string path = current ? current->data.substr(0, current->data.find('\0')) : std::string();
    entries.push_back({wish.module, plan->Find(wish.folder, path)});
  }
  return entries;
}

void RequireUsableHome(const fs::path& home) {
  RequireMakeable(home);
  if (!fs::exists(home)) return;
  for (const fs::path& folder : {home, platform::Home::Current().Drives()}) {
    if (fs::exists(folder) && !MayWriteInto(folder)) {
      throw LocalFailure("no permission to write in " + folder.string(), E_ACCESSDENIED);
    }
  }
  registry::Check();
}

void MakeHome(const platform::Home& home) {
  const platform::ActingAsOwner owner(home.Folder());
  if (home.Folder().has_parent_path()) fs::create_directories(home.Folder().parent_path());
  const mode_t mode = home.IsOfSystem() ? 0755 : 0700;
  if (home.IsOfSystem()) umask(022);  // every user reads what belongs to the machine
  if (mkdir(home.Folder().c_str(), mode) != 0 && errno != EEXIST) {
    throw LocalFailure("cannot make the home " + home.Folder().string() + ": " + std::strerror(errno));
  }
  fs::create_directories(home.Drives());
  fs::create_directories(home.Work());
}

// Locks the home against every other setup. On a file system that does not lock folders, it does nothing.
class SetupLock {
 public:
  explicit SetupLock(const fs::path& home) : folder_(open(home.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (folder_ && flock(folder_.Number(), LOCK_EX) != 0 && errno == EINTR) {
    }
  }

 private:
  const platform::Descriptor folder_;
};

// What setup did, for people and for programs.

void TellPlace(const Entry& entry, Answer& answer) {
  const std::string path = text::ToUtf8(entry.place.desktopPath);
  nlohmann::ordered_json data = {
      {"path", path}, {"folder", entry.place.folder.string()}, {"madeFolder", !entry.place.exists}};
  const std::string place = path + " is " + entry.place.folder.string() + (entry.place.exists ? "\n" : " (made)\n");
  if (entry.module == nullptr) {
    answer.output += "reports  " + place;
    answer.data["reports"] = data;
    return;
  }
  const std::string code(entry.module->codigo);
  const std::string application(entry.module->subchave);
  answer.output += "module   " + code + " " + application + ": " + place;
  data.update({{"code", code}, {"application", application}});
  answer.data["modules"].push_back(data);
}

void TellSharing(const SharedFolder& shared, const SharedFolder::Files& files, Answer& answer) {
  answer.output += "shared   with the group " + shared.Group() + ", files changed: " + std::to_string(files.changed);
  if (files.left != 0) answer.output += ", files that only another user can change: " + std::to_string(files.left);
  answer.output += "\n";
  answer.data["shared"] = {{"group", shared.Group()}, {"changed", files.changed}, {"left", files.left}};
}

void TellDrive(const std::string& name, const fs::path& folder, Answer& answer) {
  answer.output += "drive    " + name + " is " + folder.string() + " (entered)\n";
  answer.data["drives"].push_back({{"drive", name}, {"folder", folder.string()}});
}

void TellEntries(const std::vector<Entry>& entries, Answer& answer) {
  answer.data["reports"] = nullptr;
  answer.data["modules"] = nlohmann::ordered_json::array();
  for (const Entry& entry : entries)
    TellPlace(entry, answer);
}

void TellHome(const fs::path& home, bool madeHome, Answer& answer) {
  answer.output = "home     " + home.string() + (madeHome ? " (made)\n" : "\n");
  answer.data["home"] = home.string();
  answer.data["madeHome"] = madeHome;
  answer.data["drives"] = nlohmann::ordered_json::array();
}

// Returns the reports folder that the registry names; empty when it does not exist.
fs::path ReportsFolder() {
  std::string path;
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(path) != 0) return {};
  const Place place = PlaceOf(path);
  return place.exists ? place.folder : fs::path();
}

void SetUp(const SetupOptions& options, Answer& answer) {
  const std::vector<Wish> wishes = ParseWishes(options);
  const std::vector<Mapping> mappings = ParseMappings(options);
  std::optional<SharedFolder> shared;
  if (options.group) shared.emplace(*options.group);
  if (shared && !options.reports) throw UsageError("--shared: --reports must name the folder");
  const platform::Home& home = platform::Home::Current();
  RequireUsableHome(home.Folder());
  std::optional<RegistryExport> import;
  if (!options.import.empty()) import.emplace(options.import);
  if (import) import->Check();
  for (const Mapping& mapping : mappings)
    RequireEnterable(mapping);
  // Where new drives and an import lead can be seen only after they have been entered.
  const bool isAlone = mappings.empty() && options.import.empty();
  fs::path reports;
  if (isAlone) {
    FolderPlan attempt;
    const std::vector<Entry> attempted = PlanEntries(wishes, &attempt);
    reports = attempted.front().place.folder;
    if (shared) shared->RequirePossible(attempted.front().place.folder);
  }
  HistoryWish history = options.history;
  if (std::string former; CCaminhosInstalacao::BuscaCaminhoRelatorios(former) == 0)
    history.formerReports = PlaceOf(former).folder;
  RequirePossible(history, reports);
  const fs::path server = FindServer();
  const bool madeHome = !fs::exists(home.Folder());

  MakeHome(home);
  const SetupLock lock(home.Folder());
  TellHome(home.Folder(), madeHome, answer);
  if (import) answer.note = import->Import();
  for (const Mapping& mapping : mappings) {
    if (Enter(mapping)) TellDrive(text::ToUtf8(mapping.name), mapping.folder, answer);
  }
  // Plans again: another setup may have entered drives meanwhile.
  FolderPlan plan;
  const std::vector<Entry> entries = PlanEntries(wishes, &plan);
  plan.Apply();
  for (const Entry& entry : entries)
    SetText(EntryKey(entry.module), EntryValue(entry.module), entry.place.desktopPath);
  for (const auto& [letter, folder] : plan.NewDrives())
    TellDrive(std::string(1, letter) + ":", folder, answer);
  if (!import && options.reports) {
    TellEntries(entries, answer);
  } else {
    TellInstalledFolders(answer);
  }
  EnterHistory(history, ReportsFolder(), shared ? &*shared : nullptr, answer);
  RegisterServer(server);
  answer.data["shared"] = nullptr;
  if (shared) TellSharing(*shared, shared->Share(entries.front().place.folder), answer);
  answer.output += "server   " + server.string() + " (registered)\n";
  answer.data["server"] = server.string();
}

}  // namespace

void AddSetup(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"setup", "Make the home, enter the folders, register the server", kFooter}, SetUp);
  command->add_option("--reports", options->reports, "The reports folder, shared by all modules")->type_name("DIR");
  command->add_option("--module", options->modules, "The folder of a module's application; may be repeated")
      ->type_name("CODE=DIR")
      ->allow_extra_args(false);
  command->add_option("--shared", options->group, "The group whose members share the reports folder")
      ->type_name("GROUP");
  command->add_option("--history", options->history.folder, "The folder of the history")->type_name("DIR");
  command->add_flag("--no-history", options->history.none, "Keep no history");
  command->add_option("--import", options->import, "An export of the old machine's registry")->type_name("FILE");
  command->add_option("--drive", options->drives, "Where a drive or share of the desktop lies; may be repeated")
      ->type_name("D=DIR")
      ->allow_extra_args(false);
}

}  // namespace kestorctl
