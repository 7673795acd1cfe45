// The command status: what the home says, and whether its server runs.
#include <sys/resource.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "commands.h"
#include "contract/interfaces.h"
#include "explanation.h"
#include "failure.h"
#include "history_folder.h"
#include "installed_folders.h"
#include "journal/journal.h"
#include "model_options.h"
#include "platform/home/home.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "server_registration.h"

namespace kestorctl {

namespace fs = std::filesystem;

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFooter =
    R"(Shows the home and its journal, the folders that its registry names and where they are on this system, the registered
classes with their executable, and whether the server runs: its process id and the number of live objects. It starts no
server. A server that is busy with a long call, such as a migration, does not report them, and neither does one whose
connections are all in use.

A warning says why the journal cannot be written now (changes are still made), or what lets machines that share the
reports folder overlook each other, as far as its mount shows that. It also names a limit of the system that is lower
for the server than for this program: the process that started the server may have lowered it, and the server cannot
raise it.

With --json: "home" {"folder", "exists", "machine"}, "journal" {"path", "bytes" of all its files, "trouble" or null},
"reports" (null when none is entered; its "hazards" are the warnings) and "modules" {"path", "folder", "exists",
"missing" where the home maps no such drive or share}, "history" {"folder", "exists"}, "classes" {"name", "clsid",
"executable", "exists"}, "server" {"running", "pid", "objects", "limits" {"limit", "most"}, or "busy", or "full";
"sockets", the folder of its sockets}.

Exit status: 0 shown; 1 there is no home, or it cannot be read; 2 wrong usage.)";

constexpr const char* kStartFooter =
    R"(Starts the server if it is not running, and prints the folder of its sockets, for clients that speak the protocol
themselves. The server ends six seconds after its last client, or six seconds after this command if no client comes.

With --json: "sockets", the folder.

Examples:
  kestorctl start

Exit status: 0 it runs; 1 failure; 2 wrong usage.)";

struct NoOptions {};

void TellHome(Answer& answer) {
  const fs::path& folder = platform::Home::Current().Folder();
  answer.data["home"] = {{"folder", folder.string()}, {"exists", fs::is_directory(folder)}};
  RequireHome();
  answer.output += "home     " + folder.string() + "\n";
  const fs::path& machine = platform::Home::Current().SystemRegistry();
  if (machine.empty()) return;
  answer.output += "machine  " + machine.string() + " (what the home lacks)\n";
  answer.data["home"]["machine"] = machine.string();
}

void TellJournal(Answer& answer) {
  const journal::Condition journal = journal::ConditionOf(platform::Home::Current());
  answer.output += "journal  " + journal.file.string() + "\n";
  answer.data["journal"] = {{"path", journal.file.string()}, {"bytes", journal.bytes}, {"trouble", nullptr}};
  if (journal.trouble.empty()) return;
  answer.output += "warning  the journal cannot be written: " + journal.trouble + "\n";
  answer.data["journal"]["trouble"] = journal.trouble;
}

void TellClasses(Answer& answer) {
  answer.data["classes"] = Json::array();
  for (const ServerClass& row : ServerClasses()) {
    const std::string executable = RegisteredExecutable(row.clsid);
    if (executable.empty()) continue;
    const bool exists = fs::is_regular_file(executable);
    answer.output += std::string("class    ") + row.name + ": " + executable + (exists ? "\n" : " (does not exist)\n");
    answer.data["classes"].push_back(
        {{"name", row.name}, {"clsid", GuidText(row.clsid)}, {"executable", executable}, {"exists", exists}});
  }
  if (answer.data["classes"].empty()) answer.output += "class    none registered\n";
}

// Returns a hard limit from the system's table of a process's limits. A row of the table is "Max NAME", the soft limit
// and the hard limit.
std::optional<rlim_t> HardLimit(const std::string& table, const std::string& name) {
  const std::size_t row = table.find("\nMax " + name + "  ");
  if (row == std::string::npos) return std::nullopt;
  std::istringstream columns(table.substr(row + 1 + 4 + name.size()));
  std::string soft;
  std::string hard;
  columns >> soft >> hard;
  rlim_t limit = RLIM_INFINITY;
  if (hard != "unlimited" && std::from_chars(hard.data(), hard.data() + hard.size(), limit).ec != std::errc())
    return {};
  return limit;
}

// Tells the hard limits that are lower for the server than for this program: the process that started the server may
// have lowered them for good.
void TellLimits(DWORD server, Answer& answer) {
  constexpr std::pair<decltype(RLIMIT_NOFILE), const char*> kLimits[] = {
      {RLIMIT_CPU, "cpu time"},          {RLIMIT_FSIZE, "file size"},  {RLIMIT_DATA, "data size"},
      {RLIMIT_STACK, "stack size"},      {RLIMIT_NPROC, "processes"},  {RLIMIT_NOFILE, "open files"},
      {RLIMIT_MEMLOCK, "locked memory"}, {RLIMIT_AS, "address space"},
  };
  std::ifstream file("/proc/" + std::to_string(server) + "/limits");
  const std::string table{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  Json lowered = Json::array();
  for (const auto& [resource, name] : kLimits) {
    rlimit here{};
    const std::optional<rlim_t> theirs = HardLimit(table, name);
    if (!theirs || getrlimit(resource, &here) != 0 || *theirs >= here.rlim_max) continue;
    answer.output += "limit    " + std::string(name) + ": at most " + std::to_string(*theirs) + " for the server\n";
    lowered.push_back({{"limit", name}, {"most", *theirs}});
  }
  answer.data["server"]["limits"] = lowered;
}

void TellServer(Answer& answer) {
  com::ServerStatus status{};
  const HRESULT result = com::AskServerStatus(CLSID_ZNPL_Relatorio2, &status);
  if (result == HRESULT_FROM_WIN32(ERROR_TIMEOUT)) {
    answer.output += "server   running, busy\n";
    answer.data["server"] = {{"running", true}, {"busy", true}};
  } else if (result == rpc::kServerTooBusy) {
    answer.output += "server   running, has as many connections as it can have\n";
    answer.data["server"] = {{"running", true}, {"full", true}};
  } else if (FAILED(result)) {
    answer.result = result;
    answer.detail = ExplainActivation(result, CLSID_ZNPL_Relatorio2);
  } else if (result != S_OK) {
    answer.output += "server   not running\n";
    answer.data["server"] = {{"running", false}};
  } else {
    answer.output += "server   running, process " + std::to_string(status.processId) + ", live objects " +
                     std::to_string(status.liveObjects) + "\n";
    answer.data["server"] = {{"running", true}, {"pid", status.processId}, {"objects", status.liveObjects}};
    TellLimits(status.processId, answer);
  }
  const auto server = answer.data.find("server");
  if (server != answer.data.end() && server->value("running", false))
    (*server)["sockets"] = platform::Home::Current().ServingFolder();
}

void Start(const NoOptions&, Answer& answer) {
  const FieldConverter anyObject;
  if (!IsOpen(anyObject, answer)) return;
  const std::string sockets = platform::Home::Current().ServingFolder();
  answer.output = sockets + "\n";
  answer.data["sockets"] = sockets;
}

void TellStatus(const NoOptions&, Answer& answer) {
  TellHome(answer);
  TellJournal(answer);
  registry::Check();
  TellInstalledFolders(answer);
  TellHistory(answer);
  TellClasses(answer);
  TellServer(answer);
}

}  // namespace

void AddStart(CLI::App& program, Command* chosen) {
  AddCommand(&program, chosen, {"start", "Start the server if it is not running", kStartFooter}, Start);
}

void AddStatus(CLI::App& program, Command* chosen) {
  AddCommand(&program, chosen, {"status", "Show the home, its folders and whether the server runs", kFooter},
             TellStatus);
}

}  // namespace kestorctl
