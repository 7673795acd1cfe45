// The command setup: makes a home in which clients find the server and the server finds its folders.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "folder_plan.h"
#include "host_files.h"
#include "platform/home/home.h"
#include "platform/host/descriptor.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "registry_values.h"
#include "server_registration.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

using kestor::CCaminhosInstalacao;
using kestor::ModuloFamilia;

constexpr const char* kFooter =
    R"(Makes the home, enters the reports folder and the folders of the applications in its registry, and registers the server:
the executable "kestor" that lies beside this program, or $KESTOR_SERVER. Everything is checked before anything is
written. Run again, it changes what differs; drives and the folders of other modules stay as they are.

DIR is a folder of this system, which is made when it is missing, or a path of the desktop platform such as
D:\Dados\Relatorios on a drive that the home has. The server knows folders by such paths only: when no drive of the home
leads to DIR, the first free letter from D on is given to it. Drives are the links (or folders) drives/d, drives/e, … of
the home.

With --json: "home", "madeHome", "drives" (the new ones), "reports", "modules", "server".

Examples:
  kestorctl setup --reports /srv/kestor/relatorios --module CT=/srv/kestor/contabil
  kestorctl --home /srv/kestor/home setup --reports 'D:\Dados\Relatorios'

Exit status: 0 done; 1 failure; 2 wrong usage.)";

struct SetupOptions {
  std::string reports;
  std::vector<std::string> modules;  // CODE=DIR
};

// A folder that the caller wants to be named by the registry.
struct Wish {
  const ModuloFamilia* module = nullptr;  // null: the reports folder
  std::string folder;
};

// The same with its place found.
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
  if (options.reports.empty()) throw UsageError("--reports: the folder has no name");
  std::vector<Wish> wishes = {{nullptr, options.reports}};
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
  if (home.Folder().has_parent_path()) fs::create_directories(home.Folder().parent_path());
  if (mkdir(home.Folder().c_str(), 0700) != 0 && errno != EEXIST) {
    throw LocalFailure("cannot make the home " + home.Folder().string() + ": " + std::strerror(errno));
  }
  fs::create_directories(home.Drives());
  fs::create_directories(home.Work());
}

// Holds the home against every other setup. A file system that does not lock folders leaves that to those who run it.
class SetupLock {
 public:
  explicit SetupLock(const fs::path& home) : folder_(open(home.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (folder_ && flock(folder_.Number(), LOCK_EX) != 0 && errno == EINTR) {
    }
  }

 private:
  const platform::Descriptor folder_;
};

// What setup did, for both kinds of readers.

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

void Tell(const fs::path& home, bool madeHome, const FolderPlan& plan, const std::vector<Entry>& entries,
          const fs::path& server, Answer& answer) {
  answer.output = "home     " + home.string() + (madeHome ? " (made)\n" : "\n");
  answer.data["home"] = home.string();
  answer.data["madeHome"] = madeHome;
  answer.data["drives"] = nlohmann::ordered_json::array();
  for (const auto& [letter, folder] : plan.NewDrives()) {
    const std::string drive = std::string(1, letter) + ":";
    answer.output += "drive    " + drive + " is " + folder.string() + " (entered)\n";
    answer.data["drives"].push_back({{"drive", drive}, {"folder", folder.string()}});
  }
  answer.data["reports"] = nullptr;
  answer.data["modules"] = nlohmann::ordered_json::array();
  for (const Entry& entry : entries)
    TellPlace(entry, answer);
  answer.output += "server   " + server.string() + " (registered)\n";
  answer.data["server"] = server.string();
}

void SetUp(const SetupOptions& options, Answer& answer) {
  const std::vector<Wish> wishes = ParseWishes(options);
  const platform::Home& home = platform::Home::Current();
  RequireUsableHome(home.Folder());
  FolderPlan attempt;
  PlanEntries(wishes, &attempt);
  const fs::path server = FindServer();
  const bool madeHome = !fs::exists(home.Folder());

  MakeHome(home);
  const SetupLock lock(home.Folder());
  // Again: another setup may have entered drives meanwhile.
  FolderPlan plan;
  const std::vector<Entry> entries = PlanEntries(wishes, &plan);
  plan.Apply();
  for (const Entry& entry : entries)
    SetText(EntryKey(entry.module), EntryValue(entry.module), entry.place.desktopPath);
  RegisterServer(server);
  Tell(home.Folder(), madeHome, plan, entries, server, answer);
}

}  // namespace

void AddSetup(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"setup", "Make the home, enter the folders, register the server", kFooter}, SetUp);
  command->add_option("--reports", options->reports, "The reports folder, shared by all modules")
      ->required()
      ->type_name("DIR");
  command->add_option("--module", options->modules, "The folder of a module's application; may be repeated")
      ->type_name("CODE=DIR")
      ->allow_extra_args(false);
}

}  // namespace kestorctl
