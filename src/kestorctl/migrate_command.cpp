// The command migrate: makes report documents of first-generation models.
#include <algorithm>
#include <map>
#include <vector>

#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "first_generation.h"
#include "marshal/marshal.h"
#include "model_options.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Has the server make report documents of the first-generation models of the module and component, which are then deleted;
and tells what became of each, as the server says:

  converted: NAME        it is a report document now
  dropped: NAME          it was one before, which stays as it was; the first-generation model is deleted
  stays: NAME: REASON    what the server has not understood to its end it leaves as it is

Any command for the second generation migrates as well. On a terminal it shows how many models are done. When the command
is interrupted, the server goes on to the end.

Without MODULE and COMPONENT it goes over all of them that have a field catalogue in the folder of a module, the longer
component codes first, and tells of each how many models it has before it begins. Where the first generation cannot tell
two of them apart, because it keeps 2 and 3 characters of the codes, both are left out: name the one that is meant. It
lists first-generation models that belong to none.

--dry-run tells what would become of each model and does nothing of it.

With --json: "converted" and "dropped", lists of names, and "stayed", a list of objects with "name" and "reason"; without
MODULE and COMPONENT "migrations", a list of these with "module" and "component", "ambiguous", a list of such pairs, and
"unassigned", a list of files.

Examples:
  kestorctl migrate CT 01 --dry-run
  kestorctl migrate CT 01
  kestorctl --json migrate > migrated.json

Exit status: 0 done; 3 models stay; 1 failure; 2 wrong usage.)";

using kestor::Destino;
using Json = nlohmann::ordered_json;

struct MigrateOptions {
  std::string module;
  std::string component;
  bool dryRun = false;
};

// Adds what became of the models to the answer, and to `data` for programs.
void Tell(const CallNotes& notes, bool dryRun, Answer& answer, Json& data) {
  struct Row {
    Destino fate;
    const char* member;
    const char* done;
    const char* planned;
  };
  constexpr Row kRows[] = {{Destino::convertido, "converted", "converted: ", "would be converted: "},
                           {Destino::descartado, "dropped", "dropped: ", "would be dropped: "},
                           {Destino::fica, "stayed", "stays: ", "would stay: "}};
  for (const Row& row : kRows)
    data[row.member] = Json::array();
  for (const ModelNote& note : notes.All()) {
    for (const Row& row : kRows) {
      if (note.fate != row.fate) continue;
      if (note.fate == Destino::fica) {
        data[row.member].push_back({{"name", note.name}, {"reason", note.reason}});
      } else {
        data[row.member].push_back(note.name);
      }
      answer.output.append(dryRun ? row.planned : row.done).append(note.name);
      answer.output.append(note.reason.empty() ? "" : ": ").append(note.reason) += '\n';
      // One that is converted has a reason when it could not be deleted.
      if (!note.reason.empty()) answer.incomplete = true;
    }
  }
}

void MigratePair(const std::string& module, const std::string& component, bool dryRun, Answer& answer, Json& data) {
  RequireHome();
  if (dryRun) {
    CallNotes notes("looking");
    answer.result = marshal::RehearseMigration(ToBstr(module).get(), ToBstr(component).get(), &notes);
    Tell(notes, dryRun, answer, data);
    return;
  }
  const ReportStore store(module, component);
  if (IsOpen(static_cast<const StoreSession&>(store), answer)) answer.note = store.Detail();
  Tell(store.Migration(), dryRun, answer, data);
}

void MigrateAll(bool dryRun, Answer& answer) {
  RequireHome();
  const FirstGeneration all = FindFirstGeneration();
  answer.data["migrations"] = Json::array();
  for (const CodePair& pair : all.pairs) {
    answer.output += pair.module + " " + pair.component + ": " + std::to_string(pair.models) +
                     (pair.models == 1 ? " first-generation model\n" : " first-generation models\n");
  }
  answer.data["ambiguous"] = Json::array();
  for (const CodePair& pair : all.ambiguous) {
    answer.data["ambiguous"].push_back({{"module", pair.module}, {"component", pair.component}});
    answer.output += "not migrated: " + pair.module + " " + pair.component +
                     ": another component has the same first three characters; name the one that is meant\n";
  }
  answer.data["unassigned"] = all.unassigned;
  for (const std::string& file : all.unassigned)
    answer.output += "left alone: " + file + ": no field catalogue of a module fits it\n";
  for (const CodePair& pair : all.pairs) {
    if (pair.models == 0) continue;
    Json data = {{"module", pair.module}, {"component", pair.component}};
    answer.output += pair.module + " " + pair.component + "\n";
    MigratePair(pair.module, pair.component, dryRun, answer, data);
    answer.data["migrations"].push_back(data);
    if (FAILED(answer.result)) return;
  }
}

void Migrate(const MigrateOptions& options, Answer& answer) {
  if (options.module.empty() != options.component.empty()) throw UsageError("COMPONENT is required");
  if (options.module.empty()) {
    MigrateAll(options.dryRun, answer);
  } else {
    MigratePair(options.module, options.component, options.dryRun, answer, answer.data);
  }
}

}  // namespace

void AddMigrate(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"migrate", "Make report documents of first-generation models", kFooter}, Migrate);
  AddText(command, "MODULE", &options->module, "Module code, such as CT")->required(false);
  AddText(command, "COMPONENT", &options->component, "Component code, such as 01")->required(false);
  command->add_flag("--dry-run", options->dryRun, "Tell what would become of each model, and do nothing");
}

}  // namespace kestorctl
