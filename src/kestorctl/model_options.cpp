#include "model_options.h"

#include "commands.h"
#include "content.h"
#include "model_names.h"
#include "platform/text/text.h"

namespace kestorctl {

void AddStoreOptions(CLI::App* command, StoreOptions* options) {
  const auto notEmpty = [](const std::string& code) { return code.empty() ? "the code is empty" : std::string(); };
  AddText(command, "MODULE", &options->module, "Module code, such as CT")->check(notEmpty);
  AddText(command, "COMPONENT", &options->component, "Component code, such as 01")->check(notEmpty);
}

void AddModelOptions(CLI::App* command, ModelOptions* options) {
  AddStoreOptions(command, options);
  AddText(command, "NAME", &options->name, "Name of the model");
}

void AddReadOptions(CLI::App* command, ReadOptions* options) {
  AddModelOptions(command, &options->model);
  AddOutput(command, &options->output);
}

void AddWriteOptions(CLI::App* command, WriteOptions* options) {
  AddModelOptions(command, &options->model);
  AddInput(command, &options->input);
}

void AddWriteModelOptions(CLI::App* command, WriteModelOptions* options) {
  AddWriteOptions(command, options);
  command->add_flag("--no-overwrite", options->keepExisting, "Leave a model of that name as it is");
}

void Conclude(HRESULT result, Answer& answer) {
  answer.result = result;
  const std::string reason = ReasonOfLastCall();
  if (result != S_OK) {
    answer.detail = reason;
  } else {
    answer.AddNote(reason);
  }
}

bool IsOpen(const StoreSession& store, Answer& answer) {
  answer.result = store.Result();
  answer.detail = store.Detail();
  return SUCCEEDED(answer.result);
}

bool IsOpen(const ReportStore& store, Answer& answer) {
  answer.migrated += store.Migration().Count(kestor::Destino::convertido);
  return IsOpen(static_cast<const StoreSession&>(store), answer);
}

void Rehearse(const StoreOptions& store, const std::function<HRESULT()>& rehearsal, Answer& answer) {
  // A rehearsal that is refused gives no reason. A store of the first generation, which changes nothing, is refused for
  // the same reasons and gives them. It also reports a folder that cannot be read.
  const LegacyStore sameCodes(store.module, store.component);
  if (!IsOpen(sameCodes, answer)) return;
  std::vector<std::string> names;
  ListModels(sameCodes, &names);
  answer.AddNote(ReasonOfLastCall());
  answer.result = rehearsal();
  answer.detail = answer.result == rpc::kVersionMismatch ? kOlderServer : "";
}

bool TellsAll(const CallNotes& notes, Answer& answer) {
  if (notes.Incomplete()) answer.AddNote("memory was lacking for telling of all models; see kestorctl log");
  if (!notes.All().empty() || notes.Incomplete() || !ServerIsOlder()) return !notes.Incomplete();
  answer.AddNote(kOlderServer);
  return false;
}

}  // namespace kestorctl
