// The commands copy, rename and move: a report model under another name, in another component, in another home.
#include "commands.h"
#include "common/nomes_arquivos.h"
#include "explanation.h"
#include "failure.h"
#include "kept_versions.h"
#include "marcacao/componente_marcacao.h"
#include "model_options.h"
#include "platform/home/home.h"
#include "platform/text/text.h"
#include "stored_model.h"

namespace kestorctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kCopyFooter =
    R"(Stores a report model a second time: under the name NEW, for the module and component of --to, or in the home of
--to-home. A document that bears the model's name gets the new name. An existing model is replaced only with --force.

With --json: "model", the new name, and in "note" the warnings, as for "kestorctl write".

Examples:
  kestorctl copy CT 01 Vendas "Vendas por mês"
  kestorctl copy CT 01 Vendas --to CT 02
  kestorctl copy CT 01 Vendas --to-home /srv/test/home

Exit status: 0 copied; 3 nothing copied, because there is no such model (0x00040001) or one of the new name exists
(0x00040004); 1 failure; 2 wrong usage.)";

constexpr const char* kRenameFooter =
    R"(Gives a report model another name, which may differ in letter case alone. A document that bears the old name gets the
new one, and a default report stays the default report. A model of the new name is replaced only with --force.

With --json: "model", the new name, and in "note" the warnings, as for "kestorctl write".

Examples:
  kestorctl rename CT 01 Vendas "Vendas por mês"
  kestorctl rename CT 01 vendas Vendas

Exit status: 0 renamed; 3 nothing done, because there is no such model (0x00040001) or one of the new name exists
(0x00040004); 1 failure; 2 wrong usage.)";

constexpr const char* kMoveFooter =
    R"(Stores a report model for the module and component of --to, or in the home of --to-home, and deletes it where it was.
With NEW it also gets that name. It is no longer the default report. An existing model is replaced only with --force.

With --json: "model", its name, and in "note" the warnings, as for "kestorctl write".

Examples:
  kestorctl move CT 01 Vendas --to CT 02
  kestorctl move CT 01 Vendas "Vendas 2026" --to-home /srv/new/home

Exit status: 0 moved; 3 nothing done, because there is no such model (0x00040001) or one of the new name exists
(0x00040004); 1 failure; 2 wrong usage.)";

struct CopyOptions : ModelOptions {
  std::string newName;          // empty: the same
  std::vector<std::string> to;  // module and component; empty: the same
  std::string home;             // empty: the same
  bool force = false;
};

struct Copied {
  std::string content;
  USHORT version = 0;
  bool isDefault = false;
};

// Where a model is, and its name there.
struct Place {
  fs::path home;
  ModelOptions model;
};

bool IsSameFile(const Place& a, const Place& b) {
  std::error_code error;
  const auto same = [](const std::string& one, const std::string& other) {
    return text::EqualNoCase(text::FromUtf8(one), text::FromUtf8(other));
  };
  return fs::equivalent(a.home, b.home, error) && same(a.model.module, b.model.module) &&
         same(a.model.component, b.model.component) &&
         kestor::ChaveRelatorio(text::FromUtf8(a.model.name)) == kestor::ChaveRelatorio(text::FromUtf8(b.model.name));
}

void Enter(const Place& place) {
  if (platform::Home::Current().Folder() != place.home) platform::Home::Use(place.home);
  RequireHome();
}

struct File {
  dev_t device = 0;
  ino_t inode = 0;
  bool hasFilter = false;  // there is a filter next to it
};

// Returns the file of a model; none when there is no such model.
std::optional<File> FileOf(const Place& place) {
  Enter(place);
  const ReportsFolder folder(place.model);
  LiveFile found;
  const std::string file = kestor::CaminhoRelatorioLido({}, text::FromUtf8(place.model.name));
  const std::string name = text::ToUtf8(kestor::NomeDoModelo(file, 0));
  if (!folder.Find(Kind::document, name, std::string(kestor::kExtensaoRelatorio), &found)) return {};
  LiveFile filter;
  const bool hasFilter = folder.Find(Kind::filter, found.model, std::string(kestor::kExtensaoFiltro), &filter);
  return File{found.status.st_dev, found.status.st_ino, hasFilter};
}

// One file can have several places: in its name the codes and the model's name run together, and homes can share a
// folder. A move must not delete the file that it has just written.
bool IsOneFile(const std::optional<File>& a, const std::optional<File>& b) {
  return a && b && a->device == b->device && a->inode == b->inode;
}

Place SourceOf(const CopyOptions& options) {
  return {platform::Home::Current().Folder(), static_cast<const ModelOptions&>(options)};
}

// Refuses a name that includes another extension or is a path: no program would list and read such a model.
void RequireReadable(const std::string& name) {
  const std::string ansi = text::FromUtf8(name);
  if (name.find_first_of("\"*/:<>?\\|") == name.npos &&
      kestor::CaminhoRelatorioGravado({}, ansi) == kestor::CaminhoRelatorioLido({}, ansi) &&
      kestor::ChaveRelatorio(kestor::NomeDoModelo(kestor::CaminhoRelatorioLido({}, ansi), 0)) ==
          kestor::ChaveRelatorio(ansi)) {
    return;
  }
  throw UsageError("no program would list or read a model called " + text::Presentable(name));
}

Place TargetOf(const CopyOptions& options) {
  Place target = SourceOf(options);
  if (!options.home.empty()) target.home = fs::absolute(options.home);
  if (!options.to.empty()) {
    target.model.module = options.to[0];
    target.model.component = options.to[1];
  }
  if (!options.newName.empty()) target.model.name = options.newName;
  RequireReadable(options.name);
  RequireReadable(target.model.name);
  return target;
}

bool Read(const Place& place, Copied* copied, Answer& answer) {
  Enter(place);
  const ReportStore store(place.model.module, place.model.component);
  if (!IsOpen(store, answer)) return false;
  const StoredModel model(store, place.model.name);
  Conclude(model.Result(), answer);
  if (answer.result != S_OK) return false;
  copied->content = model.Content();
  copied->version = model.Record().nVersao;
  BSTR name = nullptr;
  const HRESULT result = store->GetRelatorioPadrao(&name);
  const OwnedBstr owner(name);
  copied->isDefault = result == S_OK && name != nullptr &&
                      kestor::ChaveRelatorio(text::FromUtf16({name, SysStringLen(name)})) ==
                          kestor::ChaveRelatorio(text::FromUtf8(place.model.name));
  return true;
}

// Gives the new name to a document that bears the model's name. Leaves every other content unchanged.
void Rename(const Place& from, const Place& to, Copied* copied) {
  const kestor::ComponenteMarcacao markup;
  kestor::CDocRelatorio document;
  const std::string oldName = text::FromUtf8(from.model.name);
  const std::string newName(
      kestor::NomeDoModelo(kestor::CaminhoRelatorioGravado({}, text::FromUtf8(to.model.name)), 0));
  const bool isDocument =
      document.CarregaConteudo({copied->version, static_cast<LONG>(copied->content.size()), BytesOf(copied->content)});
  if (!isDocument || document.nome == newName ||
      kestor::ChaveRelatorio(document.nome) != kestor::ChaveRelatorio(oldName)) {
    return;
  }
  document.nome = newName;
  const std::unique_ptr<kestor::CMemStream> content = document.GeraConteudo();
  if (!content || content->Size() == 0) throw LocalFailure("the document cannot be given the new name");
  copied->version = kestor::kVersaoDocumento;
  copied->content.assign(reinterpret_cast<const char*>(content->Buffer()), content->Size());
}

bool Write(const Place& place, Copied& copied, bool mayReplace, Answer& answer) {
  Enter(place);
  const ReportStore store(place.model.module, place.model.component);
  if (!IsOpen(store, answer)) return false;
  Conclude(store->Grava(ToBstr(place.model.name).get(), copied.version,
                        static_cast<unsigned char>(mayReplace ? 0 : KESTOR_NaoSobreescrever),
                        static_cast<LONG>(copied.content.size()), BytesOf(copied.content)),
           answer);
  if (answer.result != S_OK) return false;
  answer.data["model"] = place.model.name;
  answer.AddNote(Warnings(store, place.model.name, copied.version, copied.content));
  return true;
}

// Makes the model the default report. With an empty name there is none afterwards.
bool SetDefault(const ReportStore& store, const std::string& name, Answer& answer) {
  Conclude(store->SetRelatorioPadrao(name.empty() ? nullptr : ToBstr(name).get()), answer);
  return answer.result == S_OK;
}

void Respell(const Place& place, Answer& answer) {
  const ReportStore store(place.model.module, place.model.component);
  if (IsOpen(store, answer)) SetDefault(store, place.model.name, answer);
}

// Deletes a model that has been stored elsewhere. If it is the default report, makes `newDefault` the default report
// first: the server's deletion clears the default report only when it is spelled the same.
void Remove(const Place& place, bool isDefault, const std::string& newDefault, Answer& answer) {
  Enter(place);
  const ReportStore store(place.model.module, place.model.component);
  if (!IsOpen(store, answer) || (isDefault && !SetDefault(store, newDefault, answer))) return;
  char deleted = 0;
  const HRESULT result = store->ExcluiRelatorio(ToBstr(place.model.name).get(), 0, &deleted);
  Conclude(result, answer);
  if (result == S_OK && deleted != 0) return;
  if (isDefault) store->SetRelatorioPadrao(ToBstr(place.model.name).get());
  answer.AddNote("the model is stored where it is to be, but it is still where it was as well");
}

void Copy(const CopyOptions& options, Answer& answer) {
  const Place from = SourceOf(options);
  const Place to = TargetOf(options);
  if (IsSameFile(from, to) || IsOneFile(FileOf(from), FileOf(to)))
    throw UsageError("a new name, --to or --to-home is needed: a model is no copy of itself");
  Copied copied;
  if (!Read(from, &copied, answer)) return;
  Rename(from, to, &copied);
  Write(to, copied, options.force, answer);
}

void Move(const CopyOptions& options, Answer& answer) {
  const Place from = SourceOf(options);
  const Place to = TargetOf(options);
  const bool isSame = IsSameFile(from, to);
  const std::optional<File> source = FileOf(from);
  if (isSame ? from.model.name == to.model.name : IsOneFile(source, FileOf(to)))
    throw UsageError("the model has that name and place already");
  Copied copied;
  if (!Read(from, &copied, answer)) return;
  Rename(from, to, &copied);
  if (!Write(to, copied, options.force || isSame, answer)) return;
  if (!isSame && source && source->hasFilter)
    answer.AddNote("the filter beside it stays where it was: kestorctl legacy filter");
  const bool isRenamed = options.to.empty() && options.home.empty();
  if (!isSame) {
    Remove(from, copied.isDefault, isRenamed ? to.model.name : std::string(), answer);
  } else if (copied.isDefault) {
    Respell(to, answer);
  }
}

void AddPlaceOptions(CLI::App* command, CopyOptions* options) {
  command->add_option("--to", options->to, "The module and component that get the model")
      ->type_name("MODULE COMPONENT")
      ->expected(2)
      ->check(CheckUtf8);
  command->add_option("--to-home", options->home, "The home that gets the model")->type_name("DIR");
}

void AddForce(CLI::App* command, CopyOptions* options) {
  command->add_flag("--force", options->force, "Replace an existing model");
}

}  // namespace

void AddCopy(CLI::App& program, Command* chosen) {
  const auto copy = AddCommand(&program, chosen, {"copy", "Store a report model a second time", kCopyFooter}, Copy);
  const auto rename = AddCommand(&program, chosen, {"rename", "Give a report model another name", kRenameFooter}, Move);
  const auto move = AddCommand(&program, chosen, {"move", "Move a report model elsewhere", kMoveFooter}, Move);
  for (const auto& [command, options] : {copy, rename, move}) {
    const bool isRename = command == rename.command;
    AddModelOptions(command, options);
    AddText(command, "NEW", &options->newName, "The new name")->required(isRename);
    if (!isRename) AddPlaceOptions(command, options);
    AddForce(command, options);
  }
}

}  // namespace kestorctl
