// What the commands of first-generation models share.
#pragma once

#include <string>
#include <string_view>

#include "commands.h"
#include "model_options.h"

namespace kestorctl {

// Returns the file of a first-generation model, or one beside it, by a rule of common/nomes_arquivos.h.
using LegacyPath = std::string (*)(const std::string& prefix, std::string_view name);
ModelFile LegacyFile(const ModelOptions& options, LegacyPath path);

// The commands for the files beside a model, below the group of the others.
void AddCompanions(CLI::App* legacy, Command* chosen);

}  // namespace kestorctl
