#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "folders.h"
#include "platform/host/system.h"
#include "platform/host/whole_file.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"

namespace history {
namespace {

// A new folder takes over the rights of its parent, so that the same users may work in it.
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
  // Not the sticky bit: a version belongs to the owner of the file, and other users must be able to take it back.
  host::ChangeMode(*opened, outer.st_mode & (07777 & ~S_ISVTX));
  return 0;
}

int Copy(const Descriptor& from, const Descriptor& folder, const std::string& name) {
  const std::string hidden = std::string(kUnfinished) + std::to_string(getpid()) + "-" + std::to_string(host::Random());
  Descriptor copy;
  int error = host::Open(folder.Number(), hidden, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, &copy, 0600);
  if (error != 0) return error;
  struct stat old = {};
  error = host::StatNow(from, &old);
  if (error == 0) error = host::TakeOverRights(copy, old);
  if (error == 0) error = host::CopyContent(from, copy);
  if (error == 0) host::ChangeTime(copy, old.st_mtim);  // tells when the content was written
  if (error == 0) error = host::Sync(copy);
  if (error == 0) error = host::RenameToFreeName(folder, hidden, folder, name);
  if (error != 0) host::Unlink(folder, hidden);
  return error;
}

// The errors of a file system that cannot give the file a second name there.
bool GivesNoLink(int error) {
  return error == EXDEV || error == EPERM || error == EMLINK || error == EOPNOTSUPP || error == ENOSYS;
}

// Returns 0, an error that GivesNoLink accepts, or another errno value. If the name leads to another file by now,
// returns an error that GivesNoLink accepts.
int Link(const files::LeavingFile& leaving, const struct stat& status, const Descriptor& folder,
         const std::string& name) {
  if (leaving.folder == nullptr) return EXDEV;
  const int error = host::Link(*leaving.folder, leaving.entry, folder, name);
  if (error != 0) return error;
  struct stat kept = {};
  if (host::StatLink(folder.Number(), name, &kept) == 0 && host::SameFile(kept, status)) return 0;
  host::Unlink(folder, name);
  return EXDEV;
}

bool IsSharedFile(const std::string& name) {
  for (const std::string& shared :
       {kestor::CaminhoPadroes({}), kestor::CaminhoExcluidos({}), kestor::CaminhoControle({})}) {
    if (text::EqualNoCase(name, shared)) return true;
  }
  return false;
}

std::string KeyOf(const std::string& file) {
  return text::Upper(text::FromUtf8(file));
}

// Returns whether the operation treats the file as one of the first generation. Only a migration deals with both
// generations.
bool IsOfFirstGeneration(const Operation& operation, const std::string& name) {
  if (operation.ofFirstGeneration) return true;
  if (operation.method != kMigration) return false;
  for (const std::string_view extension :
       {kestor::kExtensaoRel, kestor::kExtensaoExportacao, kestor::kExtensaoFiltro}) {
    if (text::EndsWithNoCase(name, extension)) return true;
  }
  return false;
}

// A server that was killed between keeping a file and changing it leaves a version that is the file itself. The version
// that is kept now replaces it.
void RemoveEarlierNames(const struct stat& status, const Descriptor& folder) {
  if (status.st_nlink < 2) return;
  std::vector<std::string> names;
  VisitVersions(folder, [&](const Version&, const std::string& name) {
    struct stat version = {};
    if (host::StatLink(folder.Number(), name, &version) == 0 && host::SameFile(version, status)) names.push_back(name);
  });
  for (const std::string& name : names)
    host::Unlink(folder, name);
}

}  // namespace

struct Keeper::Descriptors {
  Descriptor root;
  Descriptor module;
  Descriptor pair;
};

struct Keeper::Place {
  std::string module;
  std::string component;
  std::string model;
  std::string extension;
};

// An empty folder may be the result of an allocation failure, so it is looked up again each time.
bool Keeper::IsWanted() {
  std::shared_ptr<const void> now = registry::Moment();
  if (folder_.empty() || now == nullptr || now != folderOf_) {
    folder_ = kestor::CCaminhosInstalacao::BuscaCaminhoHistorico();
    folderOf_ = std::move(now);
  }
  return !folder_.empty();
}

void Keeper::Begin(Operation operation) {
  const Time now = std::chrono::time_point_cast<std::chrono::microseconds>(Clock::now());
  begun_ = std::max(now, begun_ + std::chrono::microseconds(1));
  operation_ = std::move(operation);
  trouble_.clear();
  seen_.clear();
}

void Keeper::Keep(const files::LeavingFile& leaving) noexcept {
  kept_.clear();
  try {
    TryKeep(leaving);
  } catch (const std::exception&) {
    trouble_.assign("no memory");  // short enough to need no allocation
  }
}

void Keeper::Drop() noexcept {
  if (kept_.empty()) return;
  host::Unlink(keptIn_, kept_);
  kept_.clear();
  seen_.erase(keptOf_);  // the operation may retry
}

void Keeper::SeeNew(const std::string& name, const Descriptor& file, bool isComplete) noexcept {
  try {
    const bool isDocument = !IsOfFirstGeneration(operation_, name);
    struct stat status = {};
    Place place;
    if (!seen_.insert(KeyOf(name)).second || !isComplete || !isDocument || !FindPlace(name, &place) ||
        host::StatNow(file, &status) != 0) {
      return;
    }
    Version version = VersionOf(place, After::made);
    version.sizeAfter = static_cast<std::uint64_t>(status.st_size);
    version.timeAfter = Nanoseconds(status.st_mtim);
    const int error = InFolder(place, [&] {
      Descriptor marker;
      const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
      const int refused = host::Open(keptIn_.Number(), NameOf(version), flags, &marker, 0666);
      return refused == 0 ? host::TakeFolderRights(marker, keptIn_) : refused;
    });
    if (error != 0) Miss(name, std::strerror(error));
  } catch (const std::exception&) {
    // The file then has no version that tells that it is new.
  }
}

// The record files and the control file belong to no model.
bool Keeper::FindPlace(const std::string& file, Place* place) {
  const std::string name = text::FromUtf8(file);
  if (IsSharedFile(name)) return false;
  const std::size_t codes =
      IsOfFirstGeneration(operation_, name)
          ? kestor::ModuloRel(operation_.module).size() + kestor::ComponenteRel(operation_.component).size()
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

Version Keeper::VersionOf(const Place& place, After after) const {
  Version version;
  version.time = begun_;
  version.process = getpid();
  version.user = operation_.user;
  version.method = operation_.method;
  if (version.method == kDeletion && !operation_.ofFirstGeneration) version.method = kDocumentDeletion;
  version.after = after;
  version.extension = place.extension;
  return version;
}

// Runs `work` in the folder of the model. Makes the folder if it is missing, and makes it again if a process that
// prunes the history has just removed it as empty.
template <typename Work>
int Keeper::InFolder(const Place& place, const Work& work) {
  constexpr int kAttempts = 5;
  int error = ENOENT;
  for (int i = 0; i < kAttempts && error == ENOENT; ++i) {
    error = OpenModel(place);
    if (error == 0) error = work();
  }
  return error;
}

// Sets `keptIn_` to the folder of the model, which nearly always exists already.
int Keeper::OpenModel(const Place& place) {
  if (!folder_.is_absolute()) return ENOTDIR;
  Descriptors folders;
  int error = host::OpenFolder(AT_FDCWD, folder_, &folders.root);
  if (error != 0) return error;
  error = host::OpenFolderBelow(folders.root, place.module + '/' + place.component + '/' + place.model, &keptIn_);
  return error == 0 ? 0 : OpenOrMakeFolders(place, &folders);
}

int Keeper::OpenOrMakeFolders(const Place& place, Descriptors* folders) {
  int error = OpenOrMakeFolder(folders->root, place.module, &folders->module);
  if (error == 0) error = OpenOrMakeFolder(folders->module, place.component, &folders->pair);
  if (error == 0) error = OpenOrMakeFolder(folders->pair, place.model, &keptIn_);
  return error;
}

int Keeper::SyncFolders(const Place& place) {
  Descriptors folders;
  int error = host::OpenFolder(AT_FDCWD, folder_, &folders.root);
  if (error == 0) error = OpenInner(folders.root, place.module, &folders.module);
  if (error == 0) error = OpenInner(folders.module, place.component, &folders.pair);
  const Descriptor* const changed[] = {&keptIn_, &folders.pair, &folders.module, &folders.root};
  for (const Descriptor* folder : changed)
    if (error == 0) error = host::Sync(*folder);
  return error;
}

void Keeper::TryKeep(const files::LeavingFile& leaving) {
  using Way = files::LeavingFile::Way;
  Place place;
  if (!seen_.insert(KeyOf(leaving.name)).second || !FindPlace(leaving.name, &place)) return;
  Version version = VersionOf(place, leaving.way == Way::removed ? After::gone : After::overwritten);
  struct stat successor = {};
  if (leaving.successor != nullptr && host::StatNow(*leaving.successor, &successor) == 0) {
    version.after = After::replaced;
    version.sizeAfter = static_cast<std::uint64_t>(successor.st_size);
    version.timeAfter = Nanoseconds(successor.st_mtim);
  }
  const std::string name = NameOf(version);
  // A filter is written in place. If the file stayed after all, a linked version would be overwritten with it.
  const bool mayStay = text::EqualNoCase(text::FromUtf8(place.extension), kestor::kExtensaoFiltro);
  const int error = InFolder(place, [&] {
    struct stat status = {};
    int refused = host::Stat(leaving.file, &status);
    if (refused != 0) return refused;
    RemoveEarlierNames(status, keptIn_);
    refused = mayStay ? EXDEV : Link(leaving, status, keptIn_, name);
    if (!GivesNoLink(refused)) return refused;
    refused = Copy(leaving.file, keptIn_, name);
    // A link reaches the disk together with the change; a copy must be there before.
    return refused == 0 ? SyncFolders(place) : refused;
  });
  if (error != 0) return Miss(leaving.name, std::strerror(error));
  kept_ = name;
  keptOf_ = KeyOf(leaving.name);
  PruneNowAndThen(place, version);
}

// Listing the folder costs as much as keeping the version.
void Keeper::PruneNowAndThen(const Place& place, const Version& running) {
  constexpr std::size_t kMostModels = 4096;
  if (room_.size() > kMostModels) room_.clear();
  unsigned& room = room_[place.module + '/' + place.component + '/' + place.model];
  if (room > 0) {
    --room;
    return;
  }
  const Settings settings = ReadSettings();
  PruneModel(keptIn_, settings, &running, nullptr);
  room = RoomOverLimit(settings);
}

void Keeper::Miss(const std::string& file, const std::string& reason) {
  if (!trouble_.empty()) return;
  trouble_ = "what " + text::Presentable(file) + " held is not in the history: " + folder_.string() + ": " + reason;
}

}  // namespace history
