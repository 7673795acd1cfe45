// The commands of the group legacy for first-generation models themselves.
#include "legacy_commands.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "common/nomes_arquivos.h"
#include "content.h"
#include "contract/campo_texto.h"
#include "contract/results.h"
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
    R"(Lists the names of the models up to their first dot, one per line, sorted without regard to letter case.

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
    R"(Stores content as a model. A model of that name is replaced, whole or not at all, unless --no-overwrite is given. NAME
counts up to its first dot.

With --json: "bytes".

Examples:
  kestorctl legacy write CT 01 Vendas vendas.rel
  kestorctl legacy write CT 01 Vendas - --no-overwrite < vendas.rel

Exit status: 0 written; 3 nothing written, because a model of that name exists (0x00040004); 1 failure;
2 wrong usage.)";

constexpr const char* kDeleteFooter =
    R"(Deletes a model and its export settings for good; its filter stays. With a dot in NAME it deletes the file of that
extension alone.

The server passes over files that do not exist or are in use; a line on standard error says which file could not be
deleted and why.

With --json: "deleted", whether the model was there and is gone.

Examples:
  kestorctl legacy delete CT 01 Vendas
  kestorctl legacy delete CT 01 Vendas.REE

Exit status: 0 the server has answered; 1 failure; 2 wrong usage.)";

constexpr const char* kUpdateFooter =
    R"(Sets the margins of a model, and the order and the widths of its columns, which get the order of the arguments. Each
ALIAS is that of a field ("kestorctl legacy fields"), in the same letter case and at most 25 characters long. Give every
column of the model, and a field with two columns twice; fields that the model does not have are ignored. The model is
changed whole or not at all. Only models of the oldest layout, whose first byte is not 1, can be updated.

Example:
  kestorctl legacy update CT 01 Vendas --left 10 --top 5 Conta=12 Valor=15

Exit status: 0 updated; 3 there is no such model, or it is in use (0x00040001), or the columns are not those of the
model (0x0004000B); 1 failure, such as no catalogue (0x80040001); 2 wrong usage.)";

constexpr const char* kFieldsFooter =
    R"(Shows the same as "kestorctl fields", as first-generation clients get it: letter case counts in the catalogue ("S"
allows a use, "s" does not), and numbers are not cut to 16 bits.

With --json: "fields", a list of objects as "kestorctl fields" gives them.

Exit status: 0 shown, even if there are none; 1 failure, such as no catalogue (0x80040001); 2 wrong usage.)";

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
  Conclude(ListModels(store, &names), answer);
  if (SUCCEEDED(answer.result)) TellNames(names, answer);
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
  Conclude(ReadContent(store, options.model.name, &content), answer);
  if (answer.result == S_OK) HandOut(content, options.output, answer);
}

void Write(const WriteModelOptions& options, Answer& answer) {
  std::string content = TakeIn(options.input);
  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  Conclude(store->GravaRelatorio(ToBstr(options.model.name).get(), options.keepExisting ? 0 : 1,
                                 static_cast<LONG>(content.size()), reinterpret_cast<unsigned char*>(content.data())),
           answer);
  if (answer.result != S_OK) return;
  answer.data["bytes"] = content.size();
  const std::string_view stem = kestor::AntesDoPonto(options.model.name);
  if (stem != options.model.name) answer.note = std::string("the model is stored as ").append(stem);
}

// The server's result is the same whether it has deleted something or not.
void Delete(const ModelOptions& options, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  const auto isThere = [&] {
    LONG size = 0;
    return store->BuscaTamanhoRelatorio(ToBstr(options.name).get(), &size) != kestor::NoticeForm(KESTOR_ARQ_NAO_EXISTE);
  };
  const bool wasThere = isThere();
  Conclude(store->ExcluiRelatorio(ToBstr(options.name).get()), answer);
  if (answer.result != S_OK) return;
  answer.data["deleted"] = wasThere && !isThere();
}

HRESULT FetchFields(const LegacyStore& store, std::vector<Field>* fields) {
  LONG count = 0;
  if (const HRESULT result = store->BuscaQdeCamposArquivo(&count); result != S_OK) return result;
  std::vector<tagREG_CAMPOS_RELATORIO> records(static_cast<std::size_t>(count));
  const HRESULT result = store->BuscaCampos(count, records.data());
  if (result == S_OK) *fields = std::vector<Field>(records.begin(), records.end());
  return result;
}

void Fields(const StoreOptions& options, Answer& answer) {
  const LegacyStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  std::vector<Field> fields;
  Conclude(FetchFields(store, &fields), answer);
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

void Update(const UpdateOptions& options, Answer& answer) {
  constexpr USHORT kMostMargin = std::numeric_limits<USHORT>::max();
  const auto left = static_cast<USHORT>(NumberArgument("--left", options.left, kMostMargin));
  const auto top = static_cast<USHORT>(NumberArgument("--top", options.top, kMostMargin));
  std::vector<REG_ATUALIZACAO_RELATORIO> columns = ParseColumns(options.columns);

  const LegacyStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  Conclude(store->AtualizaRelatorio(ToBstr(options.model.name).get(), left, top, static_cast<USHORT>(columns.size()),
                                    columns.data()),
           answer);
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

void AddLegacy(CLI::App& program, Command* chosen) {
  CLI::App* group = AddGroup(&program, {"legacy", "Read and change first-generation models", kGroupFooter});
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
