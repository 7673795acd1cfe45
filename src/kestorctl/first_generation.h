// The first-generation models of all modules and components.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kestorctl {

// A module and a component; UTF-8.
struct CodePair {
  std::string module;
  std::string component;
  std::size_t models = 0;  // of the first generation, by the names of their files
};

struct FirstGeneration {
  // Those with a field catalogue in the folder of their module, longer component codes first. A model counts for the
  // first of them that fits.
  std::vector<CodePair> pairs;

  // Those of them that the first generation cannot tell apart; they are not among `pairs`.
  std::vector<CodePair> ambiguous;

  // Files of models that fit none of either.
  std::vector<std::string> unassigned;
};

// Looks at the names in the folders that the registry names. Throws LocalFailure when it names no reports folder, or
// that cannot be read.
FirstGeneration FindFirstGeneration();

}  // namespace kestorctl
