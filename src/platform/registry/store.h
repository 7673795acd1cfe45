// Reads the registry files of the home and of the whole machine as they are now, and changes that of the home.
//
// The functions throw FormatError for a damaged file and std::filesystem::filesystem_error for one that cannot be read
// or written. Any thread may call them.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "tree.h"

namespace registry {

// Thrown when another program has held the lock that all writers take for longer than the caller waits. It has a type
// of its own because its errno value also stands for a file in use.
class LockHeld : public std::filesystem::filesystem_error {
 public:
  using filesystem_error::filesystem_error;
};

// Returns the current registry: the home's, and what only the machine's has. Never null.
std::shared_ptr<const Tree> Current();

// Return each of the two by itself. Never null.
std::shared_ptr<const Tree> OfHome();
std::shared_ptr<const Tree> OfSystem();

// Runs `change` on a copy of the home's current registry and replaces the registry with the copy, under the lock that
// all writers take. Writes nothing when `change` changes nothing or does not return ERROR_SUCCESS. Returns the result
// of `change`. Waits at most `patience` for the lock, then throws LockHeld.
inline constexpr std::chrono::milliseconds kPatience{5000};
LONG Change(const std::function<LONG(Tree&)>& change, std::chrono::milliseconds patience = kPatience);

}  // namespace registry
