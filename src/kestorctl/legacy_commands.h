// What the commands of first-generation models share.
#pragma once

#include <string>

#include "commands.h"
#include "model_options.h"

namespace kestorctl {

// Codes and name as the files that the store writes have them. UTF-8.
std::string LegacyCodes(const StoreOptions& options);
std::string LegacyStem(const std::string& name);

// The file that a name is written to, up to its first dot.
ModelFile LegacyModelFile(const ModelOptions& options, const char* extension);

// The commands for the files beside a model, below the group of the others.
void AddCompanions(CLI::App* legacy, Command* chosen);

}  // namespace kestorctl
