// The registry file of the home: reading it as it is now, together with that of the whole machine, and changing it.
//
// Both throw FormatError for a damaged file and std::filesystem::filesystem_error for one that cannot be read or
// written. They may be called from any thread.
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

// The registry as it is now: what the home's file has, and what that of the machine has beside it. Never null.
std::shared_ptr<const Tree> Current();

// The two by themselves. Never null.
std::shared_ptr<const Tree> OfHome();
std::shared_ptr<const Tree> OfSystem();

// Runs `change` on a copy of the home's registry as it is now and puts the copy in its place, while no other process
// changes it. Nothing is written when `change` changes nothing, or when it does not return ERROR_SUCCESS. The result is
// that of `change`. Waits `patience` for others who change it, then throws LockHeld.
inline constexpr std::chrono::milliseconds kPatience{5000};
LONG Change(const std::function<LONG(Tree&)>& change, std::chrono::milliseconds patience = kPatience);

}  // namespace registry
