#include "check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <set>

#include "common/nomes_arquivos.h"
#include "platform/files/files.h"
#include "platform/host/system.h"
#include "platform/text/text.h"

namespace admin {
namespace {

constexpr std::string_view kHidden = ".kestor-";
constexpr std::string_view kRecords = ".DAT";
constexpr std::time_t kLeftoverAge = 60 * 60;  // no writer takes this long
constexpr std::size_t kRecordBytes = 264;      // in the record files
constexpr std::size_t kControlBytes = 32;      // in the control file

std::string Quoted(const std::string& name) {
  return text::Presentable(name);
}

bool IsOneOf(const std::string& file, std::initializer_list<std::string_view> extensions) {
  return std::any_of(extensions.begin(), extensions.end(),
                     [&](std::string_view extension) { return text::EndsWithNoCase(file, extension); });
}

bool IsModelFile(const std::string& file) {
  return IsOneOf(
      file, {kestor::kExtensaoRelatorio, kestor::kExtensaoRel, kestor::kExtensaoExportacao, kestor::kExtensaoFiltro});
}

// ---- The names in the folder ---------------------------------------------------------------------------------------

class FolderCheck {
 public:
  FolderCheck(const Inventory& inventory, bool mends, const CheckVisitor& visitor)
      : inventory_(inventory), mends_(mends), visitor_(visitor) {
    std::string path;
    const DWORD refused = files::HostPath(inventory.folder.c_str(), &path);
    int error = refused == ERROR_SUCCESS ? host::OpenFolder(AT_FDCWD, path, &folder_) : ENOENT;
    if (error == 0) error = host::Stat(folder_, &place_);
    if (error == 0)
      error = host::ReadNames(folder_, [&](const char* name, unsigned char) { names_.emplace_back(name); });
    if (error != 0) throw Failure("the reports folder cannot be read: " + std::string(std::strerror(error)));
    std::sort(names_.begin(), names_.end());
  }

  void Run() {
    for (const std::string& name : names_) {
      if (std::string ansi; text::FromUtf8Exactly(name, &ansi) && !name.starts_with('.'))
        spellings_[text::Upper(ansi)].push_back(name);
    }
    for (const std::string& name : names_) {
      struct stat status = {};
      if (host::StatLinkWithTimes(folder_.Number(), name, &status) != 0) continue;
      if (name.starts_with(kHidden)) {
        if (S_ISREG(status.st_mode)) CheckLeftover(name, status);
      } else if (Concerns(name)) {
        CheckName(name, status);
      }
    }
    CheckTwins();
    CheckCompanions();
  }

  bool HasRenamed() const { return hasRenamed_; }

 private:
  void Find(const std::string& name, std::string problem, std::string remedy, std::string mended = {}) const {
    visitor_.found({Quoted(name), std::move(problem), std::move(remedy), std::move(mended)});
  }

  // If a module, or a module and component, was asked for: only the files that begin with its codes, which are plain in
  // every encoding, and the record files.
  bool Concerns(const std::string& name) const {
    if (inventory_.module.empty() || text::EndsWithNoCase(name, kRecords)) return true;
    const std::string module = text::FromUtf8(inventory_.module);
    const std::string component = text::FromUtf8(inventory_.component);
    const std::string upper = text::Upper(name);
    return upper.starts_with(text::Upper(module + component)) ||
           upper.starts_with(text::Upper(kestor::ModuloRel(module) + kestor::ComponenteRel(component)));
  }

  void CheckLeftover(const std::string& name, const struct stat& status) const {
    if (std::time(nullptr) - status.st_mtim.tv_sec < kLeftoverAge) return;
    const bool removed = mends_ && host::Unlink(folder_, name) == 0;
    Find(name, "a killed writer has left it", "--fix removes it", removed ? "removed" : "");
  }

  void CheckName(const std::string& found, const struct stat& status) {
    std::string name = found;
    if (const std::string intended = IntendedName(name); !intended.empty()) {
      if (CheckIntended(name, intended)) name = intended;
    } else if (!text::IsValidUtf8(name)) {
      Find(name, "no program can see it: its name comes from another system, and what it means cannot be told",
           "give it another name");
    } else if (std::string any; !text::FromUtf8Exactly(name, &any)) {
      Find(name, "no program can see it: code page 1252 lacks a character of its name", "give it another name");
    } else if (name.find_first_of("\"*:<>?\\|") != name.npos || name.ends_with('.') || name.ends_with(' ') ||
               std::any_of(name.begin(), name.end(), [](unsigned char one) { return one < ' '; })) {
      Find(name, "no program can see it: the desktop has no such names", "give it another name");
    }
    std::string ansi;
    const bool isPlatformName = text::FromUtf8Exactly(name, &ansi);
    if (S_ISDIR(status.st_mode)) return;  // it cannot be read as a model
    if (S_ISLNK(status.st_mode)) {
      struct stat target = {};
      if (host::Stat(folder_.Number(), name, &target) != 0)
        Find(name, "it is a symbolic link that leads nowhere", "remove it");
    } else if (isPlatformName) {
      CheckRights(name, status);
      CheckRecords(name, ansi, status);
    }
  }

  // Returns whether the file has the intended name now.
  bool CheckIntended(const std::string& name, const std::string& intended) {
    const std::string problem =
        "no program can see it: its name comes from another system and means " + Quoted(intended);
    const std::string key = text::Upper(text::FromUtf8(intended));
    if (spellings_.contains(key)) {
      Find(name, problem, "there is a file of that name: look which of the two is to stay");
      return false;
    }
    const bool renamed = mends_ && host::RenameToFreeName(folder_, name, folder_, intended) == 0;
    if (renamed) spellings_[key].push_back(intended);
    hasRenamed_ = hasRenamed_ || renamed;
    Find(name, problem, "--fix gives it that name", renamed ? "renamed to " + Quoted(intended) : "");
    return renamed;
  }

  void CheckRights(const std::string& name, const struct stat& status) const {
    constexpr mode_t kGroup = S_IRGRP | S_IWGRP;
    if (!IsModelFile(text::FromUtf8(name)) && !text::EndsWithNoCase(name, kRecords)) return;
    if (host::IsReadOnly(status)) {
      Find(name, "it is read-only: it can be neither replaced nor deleted", "chmod u+w, unless that is meant");
    } else if ((place_.st_mode & S_IWGRP) != 0 &&
               (status.st_gid != place_.st_gid || (status.st_mode & kGroup) != kGroup)) {
      Find(name, "the group that shares the folder may not read and write it",
           "kestorctl setup --shared GROUP as its owner");
    } else if ((place_.st_mode & S_IWGRP) == 0 && status.st_uid != place_.st_uid) {
      Find(name, "it is another user's than the folder",
           "chown it, or share the folder: kestorctl setup --shared GROUP");
    }
  }

  void CheckRecords(const std::string& name, const std::string& ansi, const struct stat& status) const {
    const auto is = [&](const std::string& file) { return text::EqualNoCase(ansi, file); };
    const bool isControl = is(kestor::CaminhoControle({}));
    if (!isControl && !is(kestor::CaminhoPadroes({})) && !is(kestor::CaminhoExcluidos({}))) return;
    const auto bytes = static_cast<std::uint64_t>(status.st_size);
    const std::size_t record = isControl ? kControlBytes : kRecordBytes;
    if (bytes % record != 0) {
      Find(name,
           "its last record is cut: it has " + std::to_string(bytes) + " bytes, and a record has " +
               std::to_string(record),
           "nothing: the next entry completes it");
    } else if (bytes > kestor::kMaxArquivoRegistros) {
      Find(name, "it is longer than any such file: no program reads it", "put a backup in its place");
    }
  }

  void CheckTwins() const {
    for (const auto& [key, names] : spellings_) {
      if (names.size() < 2 || !Concerns(names.front())) continue;
      for (std::size_t i = 1; i < names.size(); ++i) {
        Find(names[i],
             "its name is that of " + Quoted(names.front()) +
                 " but for the letter case: the desktop can have only one of them",
             "look which of them is to stay, and rename the other one");
      }
    }
  }

  // Export settings belong to a first-generation model; a filter may also belong to a document.
  void CheckCompanions() const {
    for (const auto& [key, names] : spellings_) {
      const bool isFilter = key.ends_with(kestor::kExtensaoFiltro);
      if (!Concerns(names.front()) || (!isFilter && !key.ends_with(kestor::kExtensaoExportacao))) continue;
      const std::string stem = key.substr(0, key.find('.'));
      const bool hasModel = spellings_.contains(stem + std::string(kestor::kExtensaoRel)) ||
                            (isFilter && spellings_.contains(stem + std::string(kestor::kExtensaoRelatorio)));
      if (hasModel) continue;
      Find(names.front(), isFilter ? "it is a filter without a model" : "they are export settings without a model",
           "take it away, unless the model is to come back");
    }
  }

  const Inventory& inventory_;
  const bool mends_;
  const CheckVisitor& visitor_;
  host::Descriptor folder_;
  struct stat place_ = {};
  std::vector<std::string> names_;
  std::map<std::string, std::vector<std::string>> spellings_;  // by upper case, in code page 1252
  bool hasRenamed_ = false;
};

// ---- The models ----------------------------------------------------------------------------------------------------

class ModelCheck {
 public:
  ModelCheck(const Inventory& inventory, const CheckVisitor& visitor)
      : inventory_(inventory), visitor_(visitor), reader_(inventory) {
    for (const Model& model : inventory.models) {
      if (model.generation == Generation::second) documents_.insert(KeyOf(model));
    }
  }

  void Run() {
    std::size_t done = 0;
    for (const Model& model : inventory_.models) {
      if (!IsReadByItsName(inventory_, model)) {
        visitor_.found({Quoted(text::ToUtf8(model.file)),
                        "it is listed as " + Quoted(model.name) + ", under which no program reads it",
                        "give it a name with one dot",
                        {}});
      } else if (model.generation == Generation::second) {
        CheckDocument(model);
      } else {
        CheckFirst(model);
      }
      visitor_.progress(++done, inventory_.models.size());
    }
    for (const Pair& pair : inventory_.pairs)
      CheckRecords(pair);
  }

 private:
  std::string KeyOf(const Model& model) const {
    return std::to_string(model.pair) + ' ' + kestor::ChaveRelatorio(text::FromUtf8(model.name));
  }

  std::string PlaceOf(const Pair& pair, const std::string& name) const {
    return pair.module + " " + pair.component + " " + Quoted(name);
  }

  void Find(const Model& model, std::string problem, std::string remedy) const {
    visitor_.found({PlaceOf(inventory_.pairs[model.pair], model.name), std::move(problem), std::move(remedy), {}});
  }

  // Returns whether the file can be read at all. A file that is in use or forbidden may still be intact.
  bool CheckOpening(const Model& model) const {
    std::string content;
    const std::string trouble = ReadContent(inventory_.folder + model.file, &content);
    if (!trouble.empty()) Find(model, "it cannot be looked at: " + trouble, "look again later, or see its rights");
    return trouble.empty();
  }

  void CheckDocument(const Model& model) {
    kestor::CDocRelatorio document;
    if (const std::string reason = reader_.Read(model, document); !reason.empty()) {
      if (CheckOpening(model)) Find(model, "it is no report document: " + reason, "kestorctl restore, or a backup");
      return;
    }
    if (kestor::ChaveRelatorio(document.nome) != kestor::ChaveRelatorio(text::FromUtf8(model.name))) {
      Find(model,
           "its document bears another name, " + Quoted(text::ToUtf8(document.nome)) +
               ", under which renumber stores it",
           "store it in its application once more");
    }
    const Catalogue& catalogue = reader_.CatalogueOf(model.pair);
    if (!catalogue.trouble.empty()) {
      if (unknownFields_.insert(model.pair).second) {
        const Pair& pair = inventory_.pairs[model.pair];
        visitor_.found({pair.module + " " + pair.component,
                        "the codes in its models are not looked at: " + catalogue.trouble,
                        "see the field catalogue",
                        {}});
      }
      return;
    }
    for (const kestor::CampoEscolhido& column : document.camposEscolhidos.campos) {
      if (!column.fixo) CheckCode(model, catalogue, column.codigo, "a column", nullptr);
    }
    using Field = tagREG_CAMPOS_RELATORIO2;
    for (const kestor::CampoOrdenacao& key : document.ordenacao.campos)
      CheckCode(model, catalogue, key.codigo, "a sort key", &Field::bPodeOrdenar);
    for (const kestor::CampoTotalizacao& total : document.ordenacao.totalizacoes)
      CheckCode(model, catalogue, total.codigo, "a total", &Field::bPodeTotalizar);
    for (const kestor::CondicaoFiltro& condition : document.filtro.condicoes)
      CheckCode(model, catalogue, condition.codigo, "a condition", &Field::bPodeFiltrar);
  }

  void CheckCode(const Model& model, const Catalogue& catalogue, std::uint16_t code, const char* use,
                 char tagREG_CAMPOS_RELATORIO2::*allowed) const {
    const tagREG_CAMPOS_RELATORIO2* const field = catalogue.Find(code);
    const std::string where = std::string(use) + " has the code " + std::to_string(code);
    if (field == nullptr) {
      Find(model, where + ", which the field catalogue lacks", "kestorctl renumber, or another catalogue");
    } else if (allowed != nullptr && field->*allowed == 0) {
      Find(model,
           where + " (" + Quoted(text::ToUtf8(field->szApelido)) + "), which the field catalogue does not allow there",
           "change the report in its application");
    }
  }

  void CheckFirst(const Model& model) {
    const kestor::CConteudoRel* content = nullptr;
    if (const std::string reason = reader_.Read(model, &content); !reason.empty()) {
      if (CheckOpening(model))
        Find(model, "it stays a first-generation model: " + reason, "kestorctl restore, or a backup");
    } else if (documents_.contains(KeyOf(model))) {
      Find(model, "it waits to be migrated, and there is a document of its name already: it will be dropped",
           "rename it first if it is to become a document");
    } else if (model.name.empty()) {
      Find(model, "it has no name: migration may pass over it", "rename it");
    } else {
      Find(model, "it waits to be migrated", "kestorctl migrate");
    }
  }

  void CheckRecords(const Pair& pair) const {
    const Records records = RecordsOf(inventory_, pair);
    if (!records.trouble.empty()) {
      visitor_.found({pair.module + " " + pair.component, records.trouble, "see the file", {}});
      return;
    }
    bool hasDefault = records.defaultReport.empty();
    for (const Model& model : inventory_.models) {
      if (&inventory_.pairs[model.pair] != &pair) continue;
      hasDefault = hasDefault || records.IsDefault(model);
      if (records.Hides(model)) {
        Find(model, "it is not listed: a demonstration model of its name was deleted",
             "kestorctl copy, under another name");
      }
    }
    if (hasDefault) return;
    visitor_.found({PlaceOf(pair, records.defaultReport),
                    "it is the default report, and there is no such model",
                    "kestorctl default, with another name or --clear",
                    {}});
  }

  const Inventory& inventory_;
  const CheckVisitor& visitor_;
  Reader reader_;
  std::set<std::string> documents_;
  std::set<std::size_t> unknownFields_;  // pairs whose catalogue cannot be read
};

void CheckModels(const Inventory& inventory, const CheckVisitor& visitor) {
  ModelCheck(inventory, visitor).Run();
  for (const std::string& reason : inventory.unread)
    visitor.found({"field catalogues", reason, "see the folder", {}});
  for (const Model& model : inventory.unassigned) {
    visitor.found({Quoted(text::ToUtf8(model.file)),
                   "no field catalogue of a module fits it",
                   "bring the catalogue, or take it away",
                   {}});
  }
}

}  // namespace

void Check(const Inventory& inventory, bool mends, const CheckVisitor& visitor) {
  FolderCheck names(inventory, mends, visitor);
  names.Run();
  if (names.HasRenamed()) {
    CheckModels(TakeInventory(inventory.module, inventory.component), visitor);
  } else {
    CheckModels(inventory, visitor);
  }
}

}  // namespace admin
