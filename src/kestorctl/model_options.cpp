#include "model_options.h"

#include "commands.h"
#include "content.h"
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
  } else if (!reason.empty()) {
    answer.note = reason;
  }
}

bool IsOpen(const StoreSession& store, Answer& answer) {
  answer.result = store.Result();
  answer.detail = store.Detail();
  return SUCCEEDED(answer.result);
}

bool IsOpen(const ReportStore& store, Answer& answer) {
  answer.migrated = store.Migration().Count(kestor::Destino::convertido);
  return IsOpen(static_cast<const StoreSession&>(store), answer);
}

}  // namespace kestorctl
