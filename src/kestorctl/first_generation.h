// The first-generation models of all modules and components.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kestorctl {

// A module and a component with a field catalogue. UTF-8, but for `codes`.
struct CodePair {
  std::string module;
  std::string component;
  std::string codes;       // what the names of its first-generation files begin with; capitals, code page 1252
  bool ambiguous = false;  // another one has the same `codes`
  std::size_t models = 0;  // first-generation files that are its own, or also those of others with these `codes`
};

struct FirstGeneration {
  std::vector<CodePair> pairs;          // longer component codes first; a file is that of the first one that fits
  std::vector<std::string> unassigned;  // files that fit none
  std::vector<std::string> unread;      // why the catalogues of a module are not known, a sentence each
};

// Looks at the names in the folders that the registry names. Throws LocalFailure when it names no reports folder, or
// that cannot be read.
FirstGeneration FindFirstGeneration();

}  // namespace kestorctl
