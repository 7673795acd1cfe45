// What the commands of first-generation models share.
#pragma once

#include <string>
#include <string_view>

#include "commands.h"
#include "model_options.h"

namespace kestorctl {

// The commands for the files beside a model, below the group of the others.
void AddCompanions(CLI::App* legacy, Command* chosen);

}  // namespace kestorctl
