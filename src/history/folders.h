// The folders of the history.
#pragma once

#include <functional>

#include "history.h"
#include "platform/host/descriptor.h"

namespace history {

using platform::Descriptor;

// The prefix of unfinished files: they are no versions yet.
inline constexpr std::string_view kUnfinished = ".kestor-";

// The folder of a model whose name is empty. No model has this name, because model names have no dots.
inline constexpr std::string_view kNameless = ".nameless";

// Returns a code as the history writes it. Takes code page 1252 or UTF-8, returns UTF-8.
std::string FolderName(std::string_view code);

std::filesystem::path FolderOfPair(const std::filesystem::path& folder, const std::string& module,
                                   const std::string& component);

// Returns whether a text can be the name of a folder.
bool IsFolderName(std::string_view name);

// Opens a folder within another one; refuses a symbolic link. Returns 0 or an errno value.
int OpenInner(const Descriptor& folder, const std::string& name, Descriptor* opened);

// Opens the folder of a module and component. Returns 0 or an errno value.
int OpenPair(const std::filesystem::path& folder, const std::string& module, const std::string& component,
             Descriptor* pair);

// Calls `visit` for the folder of each model in the history, or only for that of the model `only` unless it is empty.
// Adds to `*trouble` (unless null) what cannot be read.
void VisitModels(const std::filesystem::path& folder, const std::string& module, const std::string& component,
                 const std::string& only, std::string* trouble,
                 const std::function<void(const Descriptor&, const std::string& model)>& visit);

// Returns the prefix of the names of an operation's versions: TIME-PROCESS-. The prefix of an earlier operation sorts
// first, and the names of one operation sort next to each other.
std::string OperationName(Time time, pid_t process);
std::string_view OperationOf(std::string_view versionName);

// Returns the name of the note that an operation is taken back.
std::string UndoneName(const Version& operation);
inline constexpr std::string_view kUndone = ".undone-";

// Calls `visit` for each name of a version.
void VisitVersions(const Descriptor& models,
                   const std::function<void(const Version& version, const std::string& name)>& visit);

// Returns how many versions over its limit a server may add to a model before it lists the model's folder again.
unsigned RoomOverLimit(const Settings& settings);

// Removes versions over the limits, and leftovers, from the folder of a model. The limit counts operations; the
// versions of `running` (unless null) stay. With a running operation it removes only a few versions, so that it does
// not take long. Returns how many versions it removed. `*error` (unless null) gets the first errno value of a removal
// that failed.
std::size_t PruneModel(const Descriptor& models, const Settings& settings, const Version* running, int* error);

}  // namespace history
