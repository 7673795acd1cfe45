// The commands of the group legacy for first-generation models themselves.
#include "legacy_commands.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "common/nomes_arquivos.h"
#include "content.h"
#include "contract/campo_texto.h"
#include "contract/results.h"
#include "explanation.h"
#include "failure.h"
#include "field_table.h"
#include "model_names.h"
#include "platform/text/text.h"
#include "registry_values.h"

namespace kestorctl {

namespace {

constexpr const char* kGroupFooter =
    R"(A first-generation model is a file MODULE + COMPONENT + NAME + ".REL" of the reports folder, with its export settings in
".REE" and its filter in ".REF" beside it. File names hold the first 2 characters of the module code and the first 3 of
the component code. A dot in NAME begins an extension: see the help of each command.

Exit status: 0 done; 3 done with a notice; 1 failure; 2 wrong usage.)";

constexpr const char* kListFooter =
    R"(One name a line, sorted without regard to letter case, each up to its first dot.

With --json: "names".

Exit status: 0 listed; 3 there is none (0x00040008); 1 failure; 2 wrong usage.)";

constexpr const char* kReadFooter =
    R"(Writes the content of a model to FILE, which is written whole or not at all, or to standard output. A NAME with a dot is
read with that extension instead of ".REL".

With --json: "bytes", and the content as "content" when it is UTF-8, otherwise as "contentBase64"; with -o "file"
instead.

Example:
  kestorctl legacy read CT 01 Vendas -o vendas.rel

Exit status: 0 read; 3 there is no such model, or it is in use (0x00040001); 1 failure; 2 wrong usage.)";

constexpr const char* kWriteFooter =
    R"(Stores a content as a model. A model of that name is replaced, whole or not at all, unless --no-overwrite is given. NAME
counts up to its first dot.

Examples:
  kestorctl legacy write CT 01 Vendas vendas.rel
  kestorctl legacy write CT 01 Vendas - --no-overwrite < vendas.rel

Exit status: 0 written; 3 nothing written, because a model of that name exists (0x00040004); 1 failure; 2 wrong usage.)";

constexpr const char* kDeleteFooter =
    R"(Deletes a model and its export settings for good; its filter stays. With a dot in NAME it deletes the file of that
extension alone.

The server passes over what is not there or in use: a line on standard error tells when there was nothing to delete, and
which file is still there. With --json: "deleted", whether a file went, and "left", the files that are still there.

Examples:
  kestorctl legacy delete CT 01 Vendas
  kestorctl legacy delete CT 01 Vendas.REE

Exit status: 0 the server has answered; 1 failure; 2 wrong usage.)";

constexpr const char* kUpdateFooter =
    R"(Sets the margins of a model, and the order and the widths of its columns: the columns stand in the order of the
arguments. Each ALIAS is that of a field ("kestorctl legacy fields") in its letter case, at most 25 characters. All
columns of the model must be given, a field that stands there twice two times; fields beyond those do not matter. The
model is changed whole or not at all. Only models of the oldest layout, whose first byte is not 1, can be updated.

Example:
  kestorctl legacy update CT 01 Vendas --left 10 --top 5 Conta=12 Valor=15

Exit status: 0 updated; 3 there is no such model, or it is in use (0x00040001), or the columns are not those of the
model (0x0004000B); 1 failure, such as no catalogue (0x80040001); 2 wrong usage.)";

constexpr const char* kFieldsFooter =
    R"(As "kestorctl fields", as first-generation clients get it: letter case counts in the catalogue ("S" allows a use, "s"
does not), and numbers are not cut to 16 bits.

With --json: "fields", a list of objects as "kestorctl fields" tells them.

Exit status: 0 shown, though there be none; 1 failure, such as no catalogue (0x80040001); 2 wrong usage.)";

struct UpdateOptions {
  ModelOptions model;
  std::string left;
  std::string top;
  std::vector<std::string> columns;
};

void List(const StoreOptions& options, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  std::vector<std::string> names;
  answer.result = ListModels(store, &names);
  if (SUCCEEDED(answer.result)) TellNames(names, answer);
  // The server finds nothing in a folder that is not there.
  if (answer.result != S_OK) answer.detail = ExplainReportsFolder();
}

HRESULT ReadContent(const LegacyStore& store, const std::string& name, std::string* content) {
  LONG size = 0;
  if (const HRESULT result = store->BuscaTamanhoRelatorio(ToBstr(name).get(), &size); result != S_OK) return result;
  content->resize(static_cast<std::size_t>(size));
  return store->BuscaRelatorio(size, reinterpret_cast<unsigned char*>(content->data()));
}

void Read(const ReadOptions& options, Answer& answer) {
  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  std::string content;
  answer.result = ReadContent(store, options.model.name, &content);
  if (answer.result == S_OK) {
    HandOut(content, options.output, answer);
  } else {
    answer.detail = ExplainUnread(LegacyFile(options.model, kestor::CaminhoRelLido));
  }
}

void Write(const WriteModelOptions& options, Answer& answer) {
  std::string content = TakeIn(options.input);
  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  answer.result =
      store->GravaRelatorio(ToBstr(options.model.name).get(), options.keepExisting ? 0 : 1,
                            static_cast<LONG>(content.size()), reinterpret_cast<unsigned char*>(content.data()));
  if (FAILED(answer.result)) answer.detail = ExplainUnwritten(LegacyFile(options.model, kestor::CaminhoRelGravado));
  if (answer.result != S_OK) return;
  answer.data["bytes"] = content.size();
  const std::string_view stem = kestor::AntesDoPonto(options.model.name);
  if (stem != options.model.name) answer.note = std::string("the model is stored as ").append(stem);
}

// The files that a deletion of that name means and that are there.
std::vector<std::string> ExistingFiles(const ModelOptions& options) {
  const std::string prefix = ReportsPrefix(Generation::first, options.module, options.component);
  std::vector<std::string> files = kestor::CaminhosRelExcluidos(prefix, text::FromUtf8(options.name));
  std::erase_if(files, [](const std::string& file) { return !Exists(file); });
  return files;
}

// The server answers the same whether it has deleted something or not: the folder tells.
void Delete(const ModelOptions& options, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  const std::size_t before = ExistingFiles(options).size();
  answer.result = store->ExcluiRelatorio(ToBstr(options.name).get());
  if (answer.result != S_OK) return;
  const std::vector<std::string> left = ExistingFiles(options);
  answer.data["deleted"] = left.size() < before;
  answer.data["left"] = nlohmann::ordered_json::array();
  for (const std::string& path : left) {
    const std::string file = text::ToUtf8(kestor::NomeDoArquivo(path));
    answer.data["left"].push_back(file);
    answer.note += (answer.note.empty() ? "" : " and ") + file;
  }
  if (!left.empty()) answer.note += " could not be deleted";
  if (before != 0) return;
  const std::string reason = ExplainUnread(LegacyFile(options, kestor::CaminhoRelLido));
  answer.note = "there is no model " + options.name + (reason.empty() ? "" : ": " + reason);
}

// The catalogue's fields.
HRESULT FetchFields(const LegacyStore& store, std::vector<Field>* fields) {
  LONG count = 0;
  if (const HRESULT result = store->BuscaQdeCamposArquivo(&count); result != S_OK) return result;
  std::vector<tagREG_CAMPOS_RELATORIO> records(static_cast<std::size_t>(count));
  const HRESULT result = store->BuscaCampos(count, records.data());
  if (result == S_OK) *fields = std::vector<Field>(records.begin(), records.end());
  return result;
}

void ExplainWithoutCatalogue(const StoreOptions& options, Answer& answer) {
  if (answer.result != kestor::ErrorForm(KESTOR_ARQ_NAO_EXISTE)) return;
  answer.detail = ExplainCatalogue(Generation::first, options.module, options.component);
}

void Fields(const StoreOptions& options, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  std::vector<Field> fields;
  answer.result = FetchFields(store, &fields);
  ExplainWithoutCatalogue(options, answer);
  if (answer.result == S_OK) TellFields(fields, answer);
}

REG_ATUALIZACAO_RELATORIO ParseColumn(const std::string& argument) {
  const std::size_t equals = argument.rfind('=');
  if (equals == argument.npos || equals == 0) throw UsageError(argument + ": ALIAS=WIDTH is needed");
  const std::string alias = AnsiArgument(argument, argument.substr(0, equals));
  REG_ATUALIZACAO_RELATORIO column{};
  constexpr std::size_t kMostCharacters = sizeof column.cNomeColuna - 1;
  if (alias.size() > kMostCharacters) {
    throw UsageError(argument + ": an alias has at most " + std::to_string(kMostCharacters) + " characters");
  }
  kestor::PreencheCampo(column.cNomeColuna, alias);
  column.iTamanho = static_cast<std::int32_t>(
      NumberArgument(argument, argument.substr(equals + 1), std::numeric_limits<std::int32_t>::max()));
  return column;
}

std::vector<REG_ATUALIZACAO_RELATORIO> ParseColumns(const std::vector<std::string>& arguments) {
  constexpr std::size_t kMostColumns = std::numeric_limits<USHORT>::max();
  if (arguments.size() > kMostColumns) throw UsageError("a model has at most 65535 columns");
  std::vector<REG_ATUALIZACAO_RELATORIO> columns(arguments.size());
  std::transform(arguments.begin(), arguments.end(), columns.begin(), ParseColumn);
  return columns;
}

// The server says the same of each of these.
std::string ExplainNotUpdated(const LegacyStore& store, const std::string& name,
                              const std::vector<REG_ATUALIZACAO_RELATORIO>& columns) {
  constexpr char kOtherLayouts = 1;
  std::string content;
  if (ReadContent(store, name, &content) == S_OK && content.starts_with(kOtherLayouts)) {
    return "only models of the oldest layout can be updated, and this one has another";
  }
  std::vector<Field> fields;
  if (FetchFields(store, &fields) != S_OK) return {};
  for (const REG_ATUALIZACAO_RELATORIO& column : columns) {
    const std::string alias = text::ToUtf8(column.cNomeColuna);
    const auto same = [&alias](const Field& field) { return field.alias == alias; };
    if (std::none_of(fields.begin(), fields.end(), same)) return "no field has the alias " + alias;
  }
  return "all columns of the model must be given";
}

void Update(const UpdateOptions& options, Answer& answer) {
  constexpr USHORT kMostMargin = std::numeric_limits<USHORT>::max();
  const auto left = static_cast<USHORT>(NumberArgument("--left", options.left, kMostMargin));
  const auto top = static_cast<USHORT>(NumberArgument("--top", options.top, kMostMargin));
  std::vector<REG_ATUALIZACAO_RELATORIO> columns = ParseColumns(options.columns);

  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  answer.result = store->AtualizaRelatorio(ToBstr(options.model.name).get(), left, top,
                                           static_cast<USHORT>(columns.size()), columns.data());
  if (answer.result == kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE)) {
    answer.detail = ExplainUnread(LegacyFile(options.model, kestor::CaminhoRelAtualizado));
  }
  if (answer.result == kestor::NoticeForm(KESTOR_ARQ_JA_FOI_ALTERADO)) {
    answer.detail = ExplainNotUpdated(store, options.model.name, columns);
  }
  ExplainWithoutCatalogue(options.model, answer);
}

void AddUpdate(CLI::App* group, Command* chosen) {
  const auto [command, options] =
      AddCommand(group, chosen, {"update", "Set margins and columns of a model", kUpdateFooter}, Update);
  AddModelOptions(command, &options->model);
  AddText(command, "COLUMN", &options->columns, "ALIAS=WIDTH: a column and its width in characters");
  command->add_option("--left", options->left, "Left margin, 0 to 65535")->type_name("N")->required();
  command->add_option("--top", options->top, "Top margin, 0 to 65535")->type_name("N")->required();
}

}  // namespace

ModelFile LegacyFile(const ModelOptions& options, LegacyPath path) {
  const std::string prefix = ReportsPrefix(Generation::first, options.module, options.component);
  return {options.name, path(prefix, text::FromUtf8(options.name))};
}

void AddLegacy(CLI::App& program, Command* chosen) {
  CLI::App* group = AddGroup(&program, {"legacy", "First-generation models", kGroupFooter});
  const auto list = AddCommand(group, chosen, {"list", "List the models", kListFooter}, List);
  AddStoreOptions(list.command, list.options);
  const auto read = AddCommand(group, chosen, {"read", "Read a model", kReadFooter}, Read);
  AddReadOptions(read.command, read.options);
  const auto write = AddCommand(group, chosen, {"write", "Write a model", kWriteFooter}, Write);
  AddWriteModelOptions(write.command, write.options);
  const auto deletion = AddCommand(group, chosen, {"delete", "Delete a model", kDeleteFooter}, Delete);
  AddModelOptions(deletion.command, deletion.options);
  AddUpdate(group, chosen);
  const auto fields =
      AddCommand(group, chosen, {"fields", "Show the fields that models can use", kFieldsFooter}, Fields);
  AddStoreOptions(fields.command, fields.options);
  AddCompanions(group, chosen);
}

}  // namespace kestorctl
