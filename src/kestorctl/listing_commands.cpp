// The commands delete, default and deleted: the models of a store as a whole.
#include <algorithm>
#include <vector>

#include "commands.h"
#include "common/nomes_arquivos.h"
#include "failure.h"
#include "model_names.h"
#include "model_options.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

constexpr const char* kDeleteFooter =
    R"(Deletes a report model for good. If it is the default report, spelled as it was when it became that, there is no default
report afterwards.

With --demo the model is a demonstration model, and its name is remembered: "list" leaves it out, and a write with
--check-demo refuses it. NAME must be the name that "list" shows. The codes of module and component must then have at
most 7 characters together, and their letter case counts.

With --json: "deleted"; with --demo also "remembered" (null when that cannot be seen).

Examples:
  kestorctl delete CT 01 Vendas
  kestorctl delete CT 01 Exemplo --demo

Exit status: 0 deleted; 1 failure, such as no model of that name (0x80070002) or one that is in use (0x80070020);
2 wrong usage.)";

constexpr const char* kDefaultFooter =
    R"(Shows the name of the default report, or nothing if there is none. With NAME it makes that model the default report;
with --clear it leaves none. With either, the codes of module and component must have at most 7 characters together, and
their letter case counts.

With --json: "default", the name or null.

Examples:
  kestorctl default CT 01
  kestorctl default CT 01 Vendas
  kestorctl default CT 01 --clear

Exit status: 0 done; 3 nothing changed, because there is no model NAME (0x00000001); 1 failure, such as another station
that holds the file all the time (0x80043EEE); 2 wrong usage.)";

constexpr const char* kDeletedFooter =
    R"(Lists the names of demonstration models that were deleted with "delete --demo", one per line in the order of their
deletion, each as often as it was deleted.

With --json: "names".

Exit status: 0 listed, even if there are none; 1 failure; 2 wrong usage.)";

struct DeleteOptions {
  ModelOptions model;
  bool demonstration = false;
};

struct DefaultOptions {
  StoreOptions store;
  std::string name;
  CLI::Option* nameGiven = nullptr;
  bool clear = false;
};

void Deleted(const StoreOptions& options, Answer& answer) {
  const ReportStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  std::vector<std::string> names;
  Conclude(DeletedNames(store, &names), answer);
  if (answer.result == S_OK) TellNames(names, answer);
}

// The server cuts longer codes in its records. The record would then be that of another component, and nothing removes
// a record again.
void RequireRecordKey(const StoreOptions& store) {
  const std::string key = text::FromUtf8(store.module + store.component);
  if (key.size() <= kestor::kMaxChave) return;
  throw LocalFailure(
      "the codes of module and component have more than 7 characters together: the server would take the "
      "record for that of " +
      text::Presentable(text::ToUtf8(key.substr(0, kestor::kMaxChave))));
}

// The server deletes a demonstration model even when it cannot remember its name. Only its list of deleted names shows
// that.
void TellRemembered(const ReportStore& store, const std::string& name, Answer& answer) {
  constexpr int kAttempts = 20;
  constexpr DWORD kPauseMilliseconds = 20;
  const std::string why = answer.note.empty() ? std::string() : " (" + answer.note + ")";
  std::vector<std::string> names;
  HRESULT result = DeletedNames(store, &names);
  for (int i = 1; i < kAttempts && result == HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION); ++i) {
    Sleep(kPauseMilliseconds);
    result = DeletedNames(store, &names);
  }
  if (result != S_OK) {
    answer.data["remembered"] = nullptr;
    answer.note = "the model is deleted; whether its name is remembered cannot be seen" + why;
    return;
  }
  const bool remembered = std::find(names.begin(), names.end(), name) != names.end();
  answer.data["remembered"] = remembered;
  if (!remembered) answer.note = "the model is deleted, but its name could not be remembered" + why;
  if (remembered && name.find('.') != std::string::npos)
    answer.note = "the model is deleted, but the name that is remembered is not the one that lists show";
}

void Delete(const DeleteOptions& options, Answer& answer) {
  if (options.demonstration) RequireRecordKey(options.model);
  const ReportStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  char deleted = 0;
  Conclude(store->ExcluiRelatorio(ToBstr(options.model.name).get(), options.demonstration ? 1 : 0, &deleted), answer);
  answer.data["deleted"] = deleted != 0;
  if (answer.result == S_OK && options.demonstration) TellRemembered(store, options.model.name, answer);
}

void TellDefault(BSTR name, Answer& answer) {
  if (name == nullptr) {
    answer.data["default"] = nullptr;
    return;
  }
  const std::string text = text::Utf16ToUtf8({name, SysStringLen(name)});
  answer.data["default"] = text;
  answer.output = text + '\n';
}

void ShowDefault(const ReportStore& store, Answer& answer) {
  BSTR name = nullptr;
  Conclude(store->GetRelatorioPadrao(&name), answer);
  const OwnedBstr owner(name);
  if (answer.result == S_OK) TellDefault(name, answer);
}

void SetDefault(const ReportStore& store, const std::string& name, Answer& answer) {
  Conclude(store->SetRelatorioPadrao(ToBstr(name).get()), answer);
  if (answer.result == S_OK) answer.data["default"] = name;
}

void Default(const DefaultOptions& options, Answer& answer) {
  const bool sets = options.nameGiven->count() > 0;
  if (sets || options.clear) RequireRecordKey(options.store);
  const ReportStore store(options.store.module, options.store.component);
  if (!IsOpen(store, answer)) return;
  if (options.clear) {
    Conclude(store->SetRelatorioPadrao(nullptr), answer);
    if (answer.result == S_OK) answer.data["default"] = nullptr;
  } else if (sets) {
    SetDefault(store, options.name, answer);
  } else {
    ShowDefault(store, answer);
  }
}

void AddDelete(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"delete", "Delete a report model", kDeleteFooter}, Delete);
  AddModelOptions(command, &options->model);
  command->add_flag("--demo", options->demonstration, "The model is a demonstration model; remember its name");
}

void AddDefault(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"default", "Show, set or clear the default report", kDefaultFooter}, Default);
  AddStoreOptions(command, &options->store);
  options->nameGiven = AddText(command, "NAME", &options->name, "Name of the model")->required(false);
  command->add_flag("--clear", options->clear, "Leave no default report")->excludes(options->nameGiven);
}

}  // namespace

void AddListing(CLI::App& program, Command* chosen) {
  AddDelete(program, chosen);
  AddDefault(program, chosen);
  const auto [command, options] =
      AddCommand(&program, chosen, {"deleted", "List the deleted demonstration models", kDeletedFooter}, Deleted);
  AddStoreOptions(command, options);
}

}  // namespace kestorctl
