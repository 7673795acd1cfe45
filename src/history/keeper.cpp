#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "common/nomes_arquivos.h"
#include "folders.h"
#include "platform/host/system.h"
#include "platform/host/whole_file.h"
#include "platform/text/text.h"

namespace history {
namespace {

std::int64_t Nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// A folder of the history has the rights of the one that it lies in: whoever may work there may work here.
int OpenOrMakeFolder(const Descriptor& folder, const std::string& name, Descriptor* opened) {
  int error = OpenInner(folder, name, opened);
  if (error != ENOENT) return error;
  error = host::MakeFolder(folder, name);
  if (error != 0 && error != EEXIST) return error;
  const bool isNew = error == 0;
  error = OpenInner(folder, name, opened);
  struct stat outer = {};
  if (error != 0 || !isNew || host::Stat(folder, &outer) != 0) return error;
  host::TakeOverOwners(*opened, outer);
  host::ChangeMode(*opened, outer.st_mode & 07777);
  return 0;
}

int Copy(const Descriptor& from, const Descriptor& folder, const std::string& name) {
  const std::string hidden = std::string(kUnfinished) + std::to_string(getpid()) + "-" + std::to_string(host::Random());
  Descriptor copy;
  int error = host::Open(folder.Number(), hidden, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, &copy, 0600);
  if (error != 0) return error;
  struct stat old = {};
  error = host::Stat(from, &old);
  if (error == 0) error = host::TakeOverRights(copy, old);
  if (error == 0) error = host::CopyContent(from, copy);
  if (error == 0) error = host::Sync(copy);
  if (error == 0) error = host::RenameToFreeName(folder, hidden, folder, name);
  if (error != 0) host::Unlink(folder, hidden);
  return error;
}

// False also where the name has come to lead to another file.
bool IsLinked(const files::LeavingFile& leaving, const Descriptor& folder, const std::string& name, int* error) {
  if (leaving.folder == nullptr) return false;
  *error = host::Link(*leaving.folder, leaving.entry, folder, name);
  if (*error == EEXIST) return true;
  if (*error != 0) return false;
  struct stat kept = {};
  struct stat leaves = {};
  if (host::StatLink(folder.Number(), name, &kept) == 0 && host::Stat(leaving.file, &leaves) == 0 &&
      host::SameFile(kept, leaves)) {
    return true;
  }
  host::Unlink(folder, name);
  return false;
}

bool IsSharedFile(const std::string& name) {
  for (const std::string& shared :
       {kestor::CaminhoPadroes({}), kestor::CaminhoExcluidos({}), kestor::CaminhoControle({})}) {
    if (text::EqualNoCase(name, shared)) return true;
  }
  return false;
}

bool IsOfFirstGeneration(const std::string& name) {
  for (const std::string_view extension :
       {kestor::kExtensaoRel, kestor::kExtensaoExportacao, kestor::kExtensaoFiltro}) {
    if (text::EndsWithNoCase(name, extension)) return true;
  }
  return false;
}

}  // namespace

struct Keeper::Place {
  std::string module;
  std::string component;
  std::string model;
  std::string extension;
};

bool Keeper::IsWanted() {
  settings_ = ReadSettings();
  return !settings_.folder.empty();
}

void Keeper::Begin(Operation operation) {
  const Time now = std::chrono::time_point_cast<std::chrono::microseconds>(Clock::now());
  begun_ = std::max(now, begun_ + std::chrono::microseconds(1));
  operation_ = std::move(operation);
  trouble_.clear();
  made_ = {};
}

void Keeper::Keep(const files::LeavingFile& leaving) noexcept {
  kept_.clear();
  try {
    TryKeep(leaving);
  } catch (const std::exception&) {
    trouble_.assign("no memory");  // short enough to need none
  }
}

void Keeper::Drop() noexcept {
  if (!kept_.empty()) host::Unlink(keptIn_, kept_);
  kept_.clear();
}

void Keeper::SeeNew(const std::string& name, const Descriptor& file) noexcept {
  struct stat status = {};
  if (host::StatNow(file, &status) != 0) return;
  try {
    made_ = {name, status.st_ino, static_cast<std::uint64_t>(status.st_size), Nanoseconds(status.st_mtim)};
  } catch (const std::exception&) {
    made_ = {};
  }
}

// The record files and the control file are none of a model.
bool Keeper::FindPlace(const std::string& file, Place* place) {
  const std::string name = text::FromUtf8(file);
  if (IsSharedFile(name)) return false;
  const bool keepsCodesShort = operation_.ofFirstGeneration || IsOfFirstGeneration(name);
  const std::size_t codes =
      keepsCodesShort ? kestor::ModuloRel(operation_.module).size() + kestor::ComponenteRel(operation_.component).size()
                      : operation_.module.size() + operation_.component.size();
  const std::string_view model = kestor::NomeDoModelo(name, codes);
  place->module = FolderName(operation_.module);
  place->component = FolderName(operation_.component);
  place->model = model.empty() ? std::string(kNameless) : text::ToUtf8(model);
  place->extension = text::ToUtf8(std::string_view(name).substr(std::min(codes + model.size(), name.size())));
  if (IsFolderName(place->module) && IsFolderName(place->component) && IsFolderName(place->model)) return true;
  Miss(file, "its codes can name no folder of the history");
  return false;
}

// The file that a migration makes of a model.
std::string Keeper::DocumentOf(const std::string& model) const {
  return kestor::CaminhoRelatorioGravado(operation_.module + operation_.component, text::FromUtf8(model));
}

Version Keeper::VersionOf(const files::LeavingFile& leaving, const Place& place) const {
  using Way = files::LeavingFile::Way;
  Version version;
  version.time = begun_;
  version.process = getpid();
  version.user = operation_.user;
  version.method = operation_.method;
  version.extension = place.extension;
  version.after = leaving.way == Way::removed ? After::gone : After::overwritten;
  struct stat successor = {};
  if (leaving.successor != nullptr && host::StatNow(*leaving.successor, &successor) == 0) {
    version.after = After::replaced;
    version.sizeAfter = static_cast<std::uint64_t>(successor.st_size);
    version.timeAfter = Nanoseconds(successor.st_mtim);
  } else if (leaving.way == Way::removed && text::EqualNoCase(text::FromUtf8(made_.name), DocumentOf(place.model))) {
    version.after = After::replaced;
    version.sizeAfter = made_.size;
    version.timeAfter = made_.time;
  }
  return version;
}

void Keeper::TryKeep(const files::LeavingFile& leaving) {
  struct stat status = {};
  const bool isOwn = leaving.way == files::LeavingFile::Way::rewritten && host::Stat(leaving.file, &status) == 0 &&
                     status.st_ino == made_.number;
  Place place;
  if (isOwn || !FindPlace(leaving.name, &place)) return;
  const std::string name = NameOf(VersionOf(leaving, place));

  Descriptor root;
  Descriptor ofModule;
  Descriptor ofPair;
  int error = host::OpenFolder(AT_FDCWD, settings_.folder, &root);
  if (error == 0) error = OpenOrMakeFolder(root, place.module, &ofModule);
  if (error == 0) error = OpenOrMakeFolder(ofModule, place.component, &ofPair);
  if (error == 0) error = OpenOrMakeFolder(ofPair, place.model, &keptIn_);
  if (error == 0 && !IsLinked(leaving, keptIn_, name, &error)) error = Copy(leaving.file, keptIn_, name);
  // What the operation had found is kept already, and counts: what it has made itself meanwhile is no version.
  if (error == EEXIST) return;
  if (error != 0) return Miss(leaving.name, settings_.folder.string() + ": " + std::strerror(error));
  kept_ = name;
  if (settings_.versions != 0 || settings_.days != 0) PruneModel(keptIn_, settings_, nullptr);
}

void Keeper::Miss(const std::string& file, const std::string& reason) {
  if (!trouble_.empty()) return;
  trouble_ = "what " + text::Presentable(file) + " held is not in the history: " + reason;
}

}  // namespace history
