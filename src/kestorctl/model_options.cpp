#include "model_options.h"

#include "commands.h"
#include "common/nomes_arquivos.h"
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

ModelFile ReportFileRead(const ModelOptions& options) {
  const std::string prefix = ReportsPrefix(Generation::second, options.module, options.component);
  return {options.name, kestor::CaminhoRelatorioLido(prefix, text::FromUtf8(options.name))};
}

ModelFile ReportFileWritten(const ModelOptions& options) {
  const std::string prefix = ReportsPrefix(Generation::second, options.module, options.component);
  return {options.name, kestor::CaminhoRelatorioGravado(prefix, text::FromUtf8(options.name))};
}

bool IsOpen(const StoreSession& store, Answer& answer) {
  answer.result = store.Result();
  answer.detail = store.Detail();
  return SUCCEEDED(answer.result);
}

}  // namespace kestorctl
