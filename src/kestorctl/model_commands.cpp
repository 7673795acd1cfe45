// The commands read and write: second-generation models, through the server.
#include <limits>

#include "commands.h"
#include "content.h"
#include "failure.h"
#include "model_options.h"
#include "stored_model.h"

namespace kestorctl {

namespace {

constexpr const char* kReadFooter =
    R"(Writes the content of a report model to FILE, which is written whole or not at all, or to standard output, and a line
such as "version 1" to standard error. A NAME with a dot is read with ".RXL" appended, unless it ends so.

With --json: "version", "bytes", and the content as "content" when it is UTF-8, otherwise as "contentBase64"; with -o
"file" instead.

Examples:
  kestorctl read CT 01 Vendas -o vendas.xml
  kestorctl read CT 01 "Vendas por mês" | less

Exit status: 0 read; 3 there is no such model (0x00040001); 1 failure; 2 wrong usage.)";

constexpr const char* kWriteFooter =
    R"(Stores content and its version number as a report model. A model of that name is replaced, whole or not at all, unless
--no-overwrite is given. A dot in NAME begins the extension of its file: without ".RXL" there the model is neither
listed nor read.

It warns of a model that is neither listed nor read, that is listed under another name, that is hidden because a
demonstration model of its name was deleted, or whose document bears another name than NAME.

With --json: "version" and "bytes", and in "note" the warnings.

Examples:
  kestorctl write CT 01 Vendas vendas.xml
  kestorctl write CT 01 Vendas - --version 2 < vendas.xml
  kestorctl write CT 01 Exemplo exemplo.xml --no-overwrite --check-demo

Exit status: 0 written; 3 nothing written, because a model of that name exists (0x00040004) or was deleted as a
demonstration (0x0004000C); 1 failure; 2 wrong usage.)";

struct WriteReportOptions : WriteModelOptions {
  std::string version = "1";
  bool checkDemonstrations = false;
};

void Read(const ReadOptions& options, Answer& answer) {
  const ReportStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  const StoredModel model(store, options.model.name);
  Conclude(model.Result(), answer);
  if (answer.result != S_OK) return;

  answer.data["version"] = model.Record().nVersao;
  HandOut(model.Content(), options.output, answer);
  if (!answer.json) answer.note = "version " + std::to_string(model.Record().nVersao);
}

void Write(const WriteReportOptions& options, Answer& answer) {
  const auto version =
      static_cast<USHORT>(NumberArgument("--version", options.version, std::numeric_limits<USHORT>::max()));
  if (options.model.name.empty()) throw UsageError("NAME is empty: no client could list or show such a model");
  std::string content = TakeIn(options.input);
  const int flags = (options.keepExisting ? KESTOR_NaoSobreescrever : 0) |
                    (options.checkDemonstrations ? KESTOR_VerificarModelosDemoExcluidos : 0);

  const ReportStore store(options.model.module, options.model.component);
  if (!IsOpen(store, answer)) return;
  Conclude(store->Grava(ToBstr(options.model.name).get(), version, static_cast<unsigned char>(flags),
                        static_cast<LONG>(content.size()), BytesOf(content)),
           answer);
  if (answer.result != S_OK) return;
  answer.data["version"] = version;
  answer.data["bytes"] = content.size();
  answer.AddNote(Warnings(store, options.model.name, version, content));
}

}  // namespace

void AddModels(CLI::App& program, Command* chosen) {
  const auto [read, readOptions] = AddCommand(&program, chosen, {"read", "Read a report model", kReadFooter}, Read);
  AddReadOptions(read, readOptions);

  const auto [write, options] = AddCommand(&program, chosen, {"write", "Write a report model", kWriteFooter}, Write);
  AddWriteModelOptions(write, options);
  write->add_option("--version", options->version, "Version number, 0 to 65535; 1 when not given")->type_name("N");
  write->add_flag("--check-demo", options->checkDemonstrations,
                  "Write nothing when a demonstration model of that name was deleted");
}

}  // namespace kestorctl
