// The command list: the models of a store, or which modules and components have models.
#include <limits>
#include <vector>

#include "admin/admin.h"
#include "commands.h"
#include "explanation.h"
#include "failure.h"
#include "model_names.h"
#include "model_options.h"
#include "platform/text/text.h"
#include "text_table.h"
#include "times.h"

namespace kestorctl {

namespace {

using admin::Generation;
using Json = nlohmann::ordered_json;

constexpr const char* kFooter =
    R"(With MODULE and COMPONENT it lists the names of their models, one per line, sorted without regard to letter case. It
leaves out deleted demonstration models, even if a model of that name exists again. -0 ends each name with NUL, for
"xargs -0". A store lists at most 65,535 models; -l lists all.

With -l it shows bytes, time of the last change (local), version, generation, whether the model is the default report,
and name. It lists first-generation models too; their version is that of their layout. It reads the files themselves: no
server takes part, and no model is migrated. Without -l, first-generation models are migrated before the listing, as by
any command for the second generation.

Without COMPONENT it shows how many models of each generation every module and component has, or every component of
MODULE. It counts a module and component if their field catalogue is in the folder of the module; files of models that
fit none follow. Where the first generation cannot tell components apart, because it keeps 2 and 3 characters of the
codes, its models count for each.

With --json: "names"; with -l "models", each with "name", "generation" (1 or 2), "bytes", "changed" (UTC), "version",
"default" and "file"; without COMPONENT "pairs", each with "module", "component", "firstGeneration", "secondGeneration"
and "ambiguous", "unassigned", a list of files, and "unread", a list of module folders that could not be looked at.

Examples:
  kestorctl list
  kestorctl list CT 01
  kestorctl list CT 01 -l
  kestorctl list CT 01 -0 | xargs -0 -I{} kestorctl read CT 01 {} -o {}.xml

Exit status: 0 listed, even if there are none; 3 not all could be read; 1 failure; 2 wrong usage.)";

struct ListOptions {
  StoreOptions store;
  bool isLong = false;
  bool endsInNul = false;
};

using Clock = std::chrono::system_clock;

std::string Time(const std::optional<Clock::time_point>& time, decltype(LocalText)& textOf) {
  return time ? textOf(Clock::to_time_t(*time), "%Y-%m-%d %H:%M:%S") : std::string();
}

template <typename Number>
std::string Text(const std::optional<Number>& number) {
  return number ? std::to_string(*number) : std::string();
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

void ListLong(const StoreOptions& store, Answer& answer) {
  RequireHome();
  const admin::Inventory inventory = admin::TakeInventory(store.module, store.component);
  const admin::Records records = admin::RecordsOf(inventory, inventory.pairs.front());
  answer.AddNote(records.trouble);
  std::vector<TableRow> rows;
  answer.data["models"] = Json::array();
  for (const admin::Model& model : inventory.models) {
    if (records.Hides(model)) continue;
    const admin::Details details = admin::DetailsOf(inventory, model);
    answer.AddNote(details.trouble);
    const bool isDefault = records.IsDefault(model);
    rows.push_back({Text(details.bytes), Time(details.changed, LocalText), Text(details.version),
                    model.generation == Generation::first ? "first" : "second", isDefault ? "default" : "",
                    text::Presentable(model.name)});
    std::string changed = Time(details.changed, UtcText);
    if (!changed.empty()) changed.replace(changed.find(' '), 1, "T") += 'Z';
    answer.data["models"].push_back({{"name", model.name},
                                     {"generation", static_cast<int>(model.generation)},
                                     {"bytes", OrNull(details.bytes)},
                                     {"changed", changed.empty() ? Json() : Json(changed)},
                                     {"version", OrNull(details.version)},
                                     {"default", isDefault},
                                     {"file", text::ToUtf8(model.file)}});
  }
  answer.incomplete = !answer.note.empty();
  if (rows.empty()) return;
  answer.output =
      TextTable({{"BYTES", true}, {"CHANGED"}, {"VERSION", true}, {"GENERATION"}, {"DEFAULT"}, {"NAME"}}, rows);
}

void TellInventory(const std::string& module, Answer& answer) {
  RequireHome();
  const admin::Inventory inventory = admin::TakeInventory(module);
  std::vector<TableRow> rows;
  for (const char* member : {"pairs", "unassigned", "unread"})
    answer.data[member] = Json::array();
  for (const admin::Pair& pair : inventory.pairs) {
    if (pair.firstCount + pair.secondCount == 0) continue;
    rows.push_back({pair.module, pair.component, std::to_string(pair.firstCount), std::to_string(pair.secondCount)});
    answer.data["pairs"].push_back({{"module", pair.module},
                                    {"component", pair.component},
                                    {"firstGeneration", pair.firstCount},
                                    {"secondGeneration", pair.secondCount},
                                    {"ambiguous", pair.ambiguous}});
  }
  if (!rows.empty()) answer.output = TextTable({{"MODULE"}, {"COMPONENT"}, {"FIRST", true}, {"SECOND", true}}, rows);
  for (const admin::Model& model : inventory.unassigned) {
    const std::string file = text::ToUtf8(model.file);
    answer.data["unassigned"].push_back(file);
    answer.output += "belongs to none: " + text::Presentable(file) + ": no field catalogue of a module fits it\n";
  }
  for (const std::string& reason : inventory.unread) {
    answer.data["unread"].push_back(reason);
    answer.output += "not looked at: " + reason + "\n";
    answer.incomplete = true;
  }
}

void ListNames(const ListOptions& options, Answer& answer) {
  const ReportStore store(options.store.module, options.store.component);
  if (!IsOpen(store, answer)) return;
  std::vector<std::string> names;
  Conclude(ListModels(store, &names), answer);
  if (answer.result != S_OK) return;
  TellNames(names, answer);
  if (names.size() == std::numeric_limits<USHORT>::max())
    answer.note = "a store lists at most " + std::to_string(names.size()) + " models; -l shows all";
  if (!options.endsInNul) return;
  answer.output.clear();
  for (const std::string& name : names)
    answer.output += name + '\0';
}

void List(const ListOptions& options, Answer& answer) {
  if (!options.store.component.empty()) {
    return options.isLong ? ListLong(options.store, answer) : ListNames(options, answer);
  }
  if (options.isLong || options.endsInNul) throw UsageError("-l and -0 need MODULE and COMPONENT");
  TellInventory(options.store.module, answer);
}

}  // namespace

void AddList(CLI::App& program, Command* chosen) {
  const auto [command, options] = AddCommand(
      &program, chosen, {"list", "List the report models, or the modules and components that have any", kFooter}, List);
  AddStoreOptions(command, &options->store);
  for (const char* code : {"MODULE", "COMPONENT"})
    command->get_option(code)->required(false);
  CLI::Option* const isLong = command->add_flag("-l,--long", options->isLong, "Show what is known of each model");
  command->add_flag("-0,--null", options->endsInNul, "End each name with NUL")->excludes(isLong);
}

}  // namespace kestorctl
