// The folders of the history.
#pragma once

#include <functional>

#include "history.h"
#include "platform/host/descriptor.h"

namespace history {

using platform::Descriptor;

// What is written under a name that starts so is no version yet.
inline constexpr std::string_view kUnfinished = ".kestor-";

// The folder of a model whose name is empty. No name of a model has a dot.
inline constexpr std::string_view kNameless = ".nameless";

// Codes as the history writes them: code page 1252 or UTF-8 in, UTF-8 out.
std::string FolderName(std::string_view code);

std::filesystem::path FolderOfPair(const std::filesystem::path& folder, const std::string& module,
                                   const std::string& component);

// Whether a text can be the name of a folder.
bool IsFolderName(std::string_view name);

// Opens a folder within another one, which must be none behind a symbolic link.
int OpenInner(const Descriptor& folder, const std::string& name, Descriptor* opened);

// Opens the folder of a module and component. Returns 0 or an errno value.
int OpenPair(const std::filesystem::path& folder, const std::string& module, const std::string& component,
             Descriptor* pair);

// Calls `visit` for the folder of each model that the history has versions of, or for `only` that one.
void VisitModels(const std::filesystem::path& folder, const std::string& module, const std::string& component,
                 const std::string& only, std::string* trouble,
                 const std::function<void(const Descriptor&, const std::string& model)>& visit);

// What the names of an operation's versions begin with: TIME-PROCESS-. Of two operations the earlier one's is less, and
// no other name comes between those of one.
std::string OperationName(Time time, pid_t process);
std::string_view OperationOf(std::string_view versionName);

// The name of the note that an operation is taken back.
std::string UndoneName(const Version& operation);
inline constexpr std::string_view kUndone = ".undone-";

// Calls `visit` for each name of a version.
void VisitVersions(const Descriptor& models,
                   const std::function<void(const Version& version, const std::string& name)>& visit);

// How many versions over its limit a model may get from a server until that looks at its folder again.
unsigned RoomOverLimit(const Settings& settings);

// Removes what is over the limits in the folder of a model: operations count, and those of `running` (null: none) stay.
// With a running one no more than a few versions go, so that it does not take long. How many those were; `*error`
// (unless null) is the first errno value of a removal that failed.
std::size_t PruneModel(const Descriptor& models, const Settings& settings, const Version* running, int* error);

}  // namespace history
