// What a person should look at in a reports folder: what cannot be read, what no program can see, what refers to what
// is not there.
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
  std::string mended;   // what has been done about it; empty: nothing
};

struct CheckVisitor {
  std::function<void(const Problem&)> found;
  std::function<void(std::size_t done, std::size_t total)> progress;  // of the models
};

// Looks at the names of the folder and at all models of the inventory, with their record files. `mends` has it do what
// loses nothing: give files that no path leads to the name that they were meant to have, where that is free, and remove
// what killed writers have left. Needs the markup component. Throws Failure when the folder cannot be read.
void Check(const Inventory& inventory, bool mends, const CheckVisitor& visitor);

// The name that a file from another system was meant to have, in UTF-8 and composed: bytes that are no UTF-8 count as
// code page 1252, or as code page 850 where there they are letters and here they are none. Empty when the name is fine
// as it is, or when it cannot be told.
std::string IntendedName(const std::string& name);

}  // namespace admin
