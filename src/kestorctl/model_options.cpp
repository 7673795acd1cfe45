#include "model_options.h"

#include "commands.h"

namespace kestorctl {

void AddStoreOptions(CLI::App* command, StoreOptions* options) {
  AddText(command, "MODULE", &options->module, "Module code, such as CT");
  AddText(command, "COMPONENT", &options->component, "Component code, such as 01");
}

void AddModelOptions(CLI::App* command, ModelOptions* options) {
  AddStoreOptions(command, options);
  AddText(command, "NAME", &options->name, "Name of the model");
}

bool IsOpen(const StoreSession& store, Answer& answer) {
  answer.result = store.Result();
  answer.detail = store.Detail();
  return SUCCEEDED(answer.result);
}

}  // namespace kestorctl
