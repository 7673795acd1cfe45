// Finds what needs attention in a reports folder: files that cannot be read, files that no program can see, and
// references to what is missing.
#pragma once

#include <functional>
#include <string>

#include "admin.h"

namespace admin {

// One line for people. Texts are UTF-8.
struct Problem {
  std::string place;    // a file of the reports folder, or a module, a component and a model
  std::string problem;  // what is wrong
  std::string remedy;   // what can be done about it
  std::string mended;   // what the check did about it; empty: nothing
};

struct CheckVisitor {
  std::function<void(const Problem&)> found;
  std::function<void(std::size_t done, std::size_t total)> progress;  // counted in models
};

// Checks the names in the folder, all models of the inventory, and their record files. With `mends`, also makes the
// repairs that lose nothing: gives a file that no path leads to its intended name if that is free, and removes what
// killed writers have left. Needs the markup component. Throws Failure if the folder cannot be read.
void Check(const Inventory& inventory, bool mends, const CheckVisitor& visitor);

// Returns the name that a file from another system was meant to have, in composed UTF-8. Reads bytes that are not UTF-8
// as code page 1252, or as code page 850 if they are letters there but not in 1252. Returns an empty string if the name
// is fine as it is, or if its meaning cannot be told.
std::string IntendedName(const std::string& name);

}  // namespace admin
