// The command migrate: turns first-generation models into report documents.
#include <algorithm>
#include <vector>

#include "admin/admin.h"
#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "marshal/marshal.h"
#include "model_options.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Makes the server convert the first-generation models of the module and component to report documents, and delete the
originals. Prints what became of each:

  converted: NAME          it is a report document now
  converted: NAME: REASON  the same, but the first-generation model could not be deleted
  dropped: NAME            a document of that name exists and stays; the first-generation model is deleted
  stays: NAME: REASON      the server could not read it to the end and leaves it as it is

Any command for the second generation migrates as well. On a terminal it shows how many models are done. If the command
is interrupted, the server finishes the work; "kestorctl log" tells what became of the models.

Without MODULE and COMPONENT it goes over all of them that have a field catalogue in the folder of a module, the longer
component codes first. It begins with a summary, and lists the first-generation files that belong to none. It passes
over components that the first generation cannot tell apart, because it keeps 2 and 3 characters of the codes; to
migrate one of them, name it. It also passes over a component that would take, as its own, models that stay with a
longer code.

--dry-run reports what would happen to each model and changes nothing.

With --json: "converted" and "dropped", lists of names, and "stayed", a list of objects with "name" and "reason", of all
models that are left; null where a server older than this program does not tell. Without MODULE and COMPONENT
"migrations", a list of these with "module" and "component"; "passedOver", a list of objects with "module", "component",
"models" and "reason"; "unassigned", a list of files; and "unread", a list of module folders that could not be looked
at.

Examples:
  kestorctl migrate CT 01 --dry-run
  kestorctl migrate CT 01
  kestorctl --json migrate > migrated.json

Exit status: 0 done; 3 models stay or are passed over, or what became of them is not known; 1 failure; 2 wrong usage.)";

using kestor::Destino;
using Json = nlohmann::ordered_json;
using admin::Inventory;
using admin::Pair;

struct MigrateOptions {
  StoreOptions store;
  bool dryRun = false;
};

struct Outcome {
  std::vector<ModelNote> notes;
  bool known = true;  // the notes cover every model
};

// Adds what became of the models to the answer, and to `data` for programs. Returns how many are still there.
std::size_t Tell(const Outcome& outcome, bool dryRun, Answer& answer, Json& data) {
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
    data[row.member] = outcome.known || !outcome.notes.empty() ? Json::array() : Json();
  for (const ModelNote& note : outcome.notes) {
    for (const Row& row : kRows) {
      if (note.fate != row.fate) continue;
      if (note.fate != Destino::fica) data[row.member].push_back(note.name);
      answer.output.append(dryRun ? row.planned : row.done).append(note.name);
      answer.output.append(note.reason.empty() ? "" : ": ").append(note.reason) += '\n';
    }
    // A model that is converted has a reason when it could not be deleted.
    if (!note.reason.empty()) data["stayed"].push_back({{"name", note.name}, {"reason", note.reason}});
  }
  if (!data["stayed"].empty()) answer.incomplete = true;
  return data["stayed"].size();
}

// Migrates a pair, or rehearses that. The answer has the result.
Outcome Run(const StoreOptions& pair, bool dryRun, Answer& answer) {
  const auto taken = [&answer](const CallNotes& notes) {
    const bool known = FAILED(answer.result) || TellsAll(notes, answer);
    if (!answer.note.empty()) answer.incomplete = true;  // such as of a folder that cannot be read
    return Outcome{notes.All(), known};
  };
  if (dryRun) {
    CallNotes notes("looking");
    const auto rehearsal = [&] {
      return marshal::RehearseMigration(ToBstr(pair.module).get(), ToBstr(pair.component).get(), &notes);
    };
    Rehearse(pair, rehearsal, answer);
    return taken(notes);
  }
  const ReportStore store(pair.module, pair.component);
  if (IsOpen(static_cast<const StoreSession&>(store), answer)) answer.AddNote(store.Detail());
  return taken(store.Migration());
}

std::string Models(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " first-generation model" : " first-generation models");
}

std::string Words(const Pair& pair) {
  return pair.module + " " + pair.component;
}

void PassOver(const Pair& pair, const std::string& reason, Answer& answer) {
  answer.output += "passed over: " + Words(pair) + ", " + Models(pair.firstCount) + ": " + reason + "\n";
  answer.data["passedOver"].push_back(
      {{"module", pair.module}, {"component", pair.component}, {"models", pair.firstCount}, {"reason", reason}});
  if (pair.firstCount != 0) answer.incomplete = true;
}

void Summarise(const Inventory& all, Answer& answer) {
  for (const char* member : {"migrations", "passedOver", "unassigned", "unread"})
    answer.data[member] = Json::array();
  for (const Pair& pair : all.pairs) {
    if (!pair.ambiguous) answer.output += Words(pair) + ": " + Models(pair.firstCount) + "\n";
  }
  for (const Pair& pair : all.pairs) {
    if (!pair.ambiguous) continue;
    std::string others;
    for (const Pair& other : all.pairs) {
      if (&other != &pair && other.codes == pair.codes) others += (others.empty() ? "" : ", ") + Words(other);
    }
    PassOver(pair, "its models may be those of " + others + "; name the one that is meant", answer);
  }
  for (const admin::Model& model : all.unassigned) {
    if (model.generation != admin::Generation::first) continue;
    const std::string file = text::ToUtf8(model.file);
    answer.data["unassigned"].push_back(file);
    answer.output += "left alone: " + text::Presentable(file) + ": no field catalogue of a module fits it\n";
  }
  for (const std::string& reason : all.unread) {
    answer.data["unread"].push_back(reason);
    answer.output += "not looked at: " + reason + "\n";
    answer.incomplete = true;
  }
}

// Otherwise a pair with a shorter code would take the models of one with a longer code.
void LongerOnesFirst(std::vector<Pair>* pairs) {
  const auto length = [](const Pair& pair) { return text::FromUtf8(pair.component).size(); };
  std::stable_sort(pairs->begin(), pairs->end(), [&](const Pair& a, const Pair& b) { return length(a) > length(b); });
}

// Returns the pairs whose models are, by their file names, also models of this pair.
std::vector<const Pair*> LongerOnes(const Pair& pair, const Inventory& all) {
  std::vector<const Pair*> longer;
  for (const Pair& other : all.pairs) {
    if (other.codes != pair.codes && other.codes.starts_with(pair.codes)) longer.push_back(&other);
  }
  return longer;
}

void MigrateAll(bool dryRun, Answer& answer) {
  RequireHome();
  Inventory all = admin::TakeInventory();
  LongerOnesFirst(&all.pairs);
  Summarise(all, answer);
  for (Pair& pair : all.pairs) {
    if (pair.ambiguous || pair.firstCount == 0) continue;
    TellSoFar(answer);
    const std::vector<const Pair*> longer = LongerOnes(pair, all);
    const auto holds = std::find_if(longer.begin(), longer.end(), [](const Pair* one) { return one->firstCount != 0; });
    if (holds != longer.end()) {
      PassOver(pair, "it would take the models of " + Words(**holds) + ", which stay, for its own", answer);
      continue;
    }
    answer.output += Words(pair) + "\n";
    Outcome outcome = Run({pair.module, pair.component}, dryRun, answer);
    // In a dry run the models of the longer ones are still there.
    std::erase_if(outcome.notes, [&](const ModelNote& note) {
      const std::string file = pair.codes + text::Upper(text::FromUtf8(note.name));
      return std::any_of(longer.begin(), longer.end(), [&](const Pair* one) { return file.starts_with(one->codes); });
    });
    Json data = {{"module", pair.module}, {"component", pair.component}};
    const std::size_t left = Tell(outcome, dryRun, answer, data);
    if (outcome.known) pair.firstCount = left;
    answer.data["migrations"].push_back(data);
    if (!FAILED(answer.result)) continue;
    answer.AddNote("the failure is that of " + Words(pair) + "; what follows it is not migrated");
    return;
  }
}

void Migrate(const MigrateOptions& options, Answer& answer) {
  if (options.store.module.empty()) return MigrateAll(options.dryRun, answer);
  if (options.store.component.empty()) throw UsageError("COMPONENT is required");
  Tell(Run(options.store, options.dryRun, answer), options.dryRun, answer, answer.data);
}

}  // namespace

void AddMigrate(CLI::App& program, Command* chosen) {
  const auto [command, options] = AddCommand(
      &program, chosen, {"migrate", "Convert first-generation models to report documents", kFooter}, Migrate);
  AddStoreOptions(command, &options->store);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
  command->add_flag("--dry-run", options->dryRun, "Report what would happen to each model, and change nothing");
}

}  // namespace kestorctl
