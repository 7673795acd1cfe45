// The command fields: what reports of a module and component can show.
#include "commands.h"
#include "contract/results.h"
#include "field_table.h"
#include "model_options.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Shows the fields of the component's catalogue, XMODULECOMPONENT.REL in the folder of the module, in its order. A field
has a code and an alias, a type (text, date, number, amount, month, account, history, options), an alignment (left,
right, centre), a width in characters, and may be used to filter, to total and to sort. A letter of the catalogue that
stands for no type or alignment is shown as it is; an empty line is not shown.

With --json: "fields", a list of objects with "code", "alias", "description", "type" (A, D, N, V, d, C, H or X in the
order above), "alignment" (E, D or C), "width", "filter", "total", "sort" and "options". An empty line is a field of
code 0 with no other content.

Examples:
  kestorctl fields CT 01
  kestorctl --json fields CT 01 > fields.json

Exit status: 0 shown, even if there are none; 1 failure, such as no catalogue (0x80040001); 2 wrong usage.)";

void Fields(const StoreOptions& options, Answer& answer) {
  const ReportStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return;
  REG_CAMPOS_DISPONIVEIS2* list = nullptr;
  Conclude(store->GetCamposDisponiveis(&list), answer);
  if (answer.result != S_OK) return;
  const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(list);
  const TaskBlock<tagREG_CAMPOS_RELATORIO2> fields(list->pregCampos);
  TellFields(std::vector<Field>(fields.get(), fields.get() + list->nQtdeCampos), answer);
}

}  // namespace

void AddFields(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"fields", "Show the fields that reports can use", kFooter}, Fields);
  AddStoreOptions(command, options);
}

}  // namespace kestorctl
