// The command renumber: field codes inside all report documents of a module and component.
#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "commands.h"
#include "document_page.h"
#include "explanation.h"
#include "failure.h"
#include "marcacao/componente_marcacao.h"
#include "marshal/marshal.h"
#include "model_options.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Replaces field codes in every second-generation model of the module and component, each once: with 150=160 160=170 a
field 150 becomes 160, not 170. A renumbered column gets the title that the field catalogue has for its new code. Sort
keys, totals and conditions on fields that the catalogue does not allow for them are removed, even where no code
changes. Codes up to 99 are places of fixed columns and cannot be given. Without the field catalogue it changes nothing.

First-generation models are migrated first. It prints what became of the models; models that need no change are listed
only with --json:

  renumbered: NAME             it has the new codes now
  renumbered: NAME: stored as "OTHER", …
                               what is renumbered is stored under the name that its document bears
  not changed: NAME: REASON    such as one that is no report document or in use

It changes nothing and says why if a new code is no field of the catalogue, if an old code is given twice with different
new ones, if a model would be stored over another one whose name its document bears, and if a server older than this
program cannot tell. With --force it continues; of an old code that is given twice the last pair counts. --dry-run
changes nothing and reports what would happen to each model: the lines of "show" that would go (-) and come (+). It
leaves out first-generation models, and says so.

On a terminal it shows how many models are done. If the command is interrupted, the server finishes the work.

With --json: "renumbered" and "skipped", lists of objects with "name", "reason" (null where there is none) and, with
--dry-run, "changes"; "unchanged", a list of names; "refused", a list of reasons to change nothing. The first three are
null where a server older than this program does not tell.

Examples:
  kestorctl renumber CT 01 150=160 151=161 --dry-run
  kestorctl renumber CT 01 150=160 151=161

Exit status: 0 done; 3 done, except for models that are not changed for a reason, or whose outcome is not known; 1
failure, or refused before any change; 2 wrong usage. After a failure in the middle, such as a server that was ended,
some models have the new codes: "kestorctl log" tells which. Codes that others have been changed to would be changed
again by a second run.)";

using kestor::Destino;
using Json = nlohmann::ordered_json;

using Pairs = std::vector<REL_CODIGO_CAMPOS_ALTERADOS>;

constexpr std::uint16_t kLastFixedCode = 99;

struct RenumberOptions {
  StoreOptions store;
  std::vector<std::string> pairs;
  bool dryRun = false;
  bool force = false;
};

std::uint16_t Code(const std::string& pair, const std::string& code) {
  return static_cast<std::uint16_t>(NumberArgument(pair, code, std::numeric_limits<std::uint16_t>::max()));
}

Pairs ParsePairs(const std::vector<std::string>& arguments) {
  Pairs pairs;
  pairs.reserve(arguments.size());
  for (const std::string& pair : arguments) {
    const std::size_t equals = pair.find('=');
    if (equals == pair.npos) throw UsageError(pair + ": OLD=NEW is needed");
    const REL_CODIGO_CAMPOS_ALTERADOS parsed = {Code(pair, pair.substr(0, equals)),
                                                Code(pair, pair.substr(equals + 1))};
    if (std::min(parsed.nCodigoAntigo, parsed.nNovoCodigo) <= kLastFixedCode) {
      throw UsageError(pair + ": codes up to 99 are places of fixed columns, no field has one");
    }
    pairs.push_back(parsed);
  }
  return pairs;
}

// Returns a sentence for each old code that is given with different new ones.
std::vector<std::string> Contradictions(const Pairs& pairs) {
  std::map<std::uint16_t, std::uint16_t> newCodes;
  std::set<std::uint16_t> told;
  std::vector<std::string> reasons;
  for (const REL_CODIGO_CAMPOS_ALTERADOS pair : pairs) {
    const std::uint16_t oldCode = pair.nCodigoAntigo;
    const auto [known, isNew] = newCodes.emplace(oldCode, std::uint16_t{pair.nNovoCodigo});
    if (isNew || known->second == pair.nNovoCodigo || !told.insert(oldCode).second) continue;
    reasons.push_back("the code " + std::to_string(oldCode) + " is given with different new ones");
  }
  return reasons;
}

// ---- What a rehearsal shows ----------------------------------------------------------------------------------------

std::vector<std::string> PageLines(std::string_view content) {
  kestor::CDocRelatorio document;
  std::string bytes(content);
  document.CarregaConteudo(
      {kestor::kVersaoDocumento, static_cast<LONG>(bytes.size()), reinterpret_cast<unsigned char*>(bytes.data())});
  std::vector<std::string> lines;
  std::istringstream page(DocumentPage(document));
  for (std::string line; std::getline(page, line);) {
    // Only the words count: a title of another length moves whole columns.
    std::string words;
    std::istringstream parts(line);
    for (std::string word; parts >> word;)
      words += (words.empty() ? "" : " ") + word;
    lines.push_back(words);
  }
  return lines;
}

// Returns the lines that the page would lose and those that it would gain.
std::vector<std::string> Changes(std::string_view before, std::string_view after) {
  std::vector<std::string> changes;
  if (before == after) return changes;
  const std::vector<std::string> old = PageLines(before);
  const std::vector<std::string> now = PageLines(after);
  const auto add = [&changes](const char* mark, const std::vector<std::string>& lines,
                              const std::vector<std::string>& others) {
    std::multiset<std::string> known(others.begin(), others.end());
    for (const std::string& line : lines) {
      const auto same = known.find(line);
      if (same == known.end()) changes.push_back(mark + line);
      if (same != known.end()) known.erase(same);
    }
  };
  add("- ", old, now);
  add("+ ", now, old);
  return changes;
}

// ---- The command ---------------------------------------------------------------------------------------------------

constexpr const char* kMembers[] = {"renumbered", "skipped", "unchanged", "refused"};

Json Object(const ModelNote& note, bool dryRun) {
  Json object = {{"name", note.name}, {"reason", note.reason.empty() ? Json() : Json(note.reason)}};
  if (dryRun) object["changes"] = note.changes;
  return object;
}

void Tell(const CallNotes& notes, bool dryRun, Answer& answer) {
  for (const ModelNote& note : notes.All()) {
    const bool changes = note.fate == Destino::renumerado || note.fate == Destino::substituiria;
    const bool stays = note.fate == Destino::ignorado || (note.fate == Destino::inalterado && !note.reason.empty());
    if (note.fate == Destino::inalterado && !stays) answer.data["unchanged"].push_back(note.name);
    if (!changes && !stays) continue;
    answer.data[changes ? "renumbered" : "skipped"].push_back(Object(note, dryRun));
    answer.output += changes ? (dryRun ? "would be renumbered: " : "renumbered: ") : "not changed: ";
    answer.output.append(note.name).append(note.reason.empty() ? "" : ": ").append(note.reason) += '\n';
    for (const std::string& change : note.changes)
      answer.output.append("  ").append(change) += '\n';
    answer.incomplete = answer.incomplete || stays;
  }
  if (FAILED(answer.result) || TellsAll(notes, answer)) return;
  answer.incomplete = true;
  if (!notes.All().empty()) return;
  for (const char* member : {"renumbered", "skipped", "unchanged"})
    answer.data[member] = nullptr;
}

// Returns the objections to renumbering that a rehearsal has shown.
std::vector<std::string> Objections(const CallNotes& notes) {
  std::vector<std::string> reasons;
  for (const ModelNote& note : notes.All()) {
    if (note.fate == Destino::codigoSemCampo) reasons.push_back("the field catalogue has no field " + note.name);
    if (note.fate == Destino::substituiria) reasons.push_back(note.name + " would be " + note.reason);
  }
  return reasons;
}

std::string Sentence(const char* start, const std::vector<std::string>& reasons) {
  std::string sentence = start;
  for (std::size_t i = 0; i < reasons.size(); ++i)
    sentence += (i == 0 ? "" : "; ") + reasons[i];
  return sentence;
}

// Returns false when the command must not begin; the answer tells why.
bool MayBegin(const RenumberOptions& options, const std::vector<std::string>& reasons, Answer& answer) {
  if (options.force || reasons.empty()) return true;
  answer.result = E_INVALIDARG;
  answer.data["refused"] = reasons;
  answer.error = Sentence("nothing is renumbered (--force goes on): ", reasons);
  return false;
}

HRESULT RehearseRenumbering(const StoreOptions& store, const Pairs& pairs, CallNotes* notes) {
  return marshal::RehearseRenumbering(ToBstr(store.module).get(), ToBstr(store.component).get(),
                                      static_cast<LONG>(pairs.size()), pairs.data(), notes);
}

// Tells how many models a dry run leaves out, because it does not convert them.
void TellFirstGeneration(const StoreOptions& store, Answer& answer) {
  CallNotes notes("looking");
  marshal::RehearseMigration(ToBstr(store.module).get(), ToBstr(store.component).get(), &notes);
  const std::size_t count = notes.Count(Destino::convertido);
  if (count == 0) return;
  answer.AddNote((count == 1 ? "1 first-generation model, which would become a report document first, is"
                             : std::to_string(count) +
                                   " first-generation models, which would become report documents first, are") +
                 std::string(" left out"));
}

void DryRun(const RenumberOptions& options, const Pairs& pairs, Answer& answer) {
  CallNotes notes("looking", Changes);
  Rehearse(
      options.store, [&] { return RehearseRenumbering(options.store, pairs, &notes); }, answer);
  if (FAILED(answer.result)) return;
  Tell(notes, true, answer);
  TellFirstGeneration(options.store, answer);
  std::vector<std::string> reasons = Contradictions(pairs);
  for (std::string& reason : Objections(notes))
    reasons.push_back(std::move(reason));
  if (reasons.empty()) return;
  answer.data["refused"] = reasons;
  answer.AddNote(Sentence("without --force nothing would be renumbered: ", reasons));
}

// Without the catalogue the server changes no code.
bool HasCatalogue(const ReportStore& store, Answer& answer) {
  REG_CAMPOS_DISPONIVEIS2* list = nullptr;
  Conclude(store->GetCamposDisponiveis(&list), answer);
  const TaskBlock<REG_CAMPOS_DISPONIVEIS2> owner(list);
  const TaskBlock<tagREG_CAMPOS_RELATORIO2> fields(list != nullptr ? list->pregCampos : nullptr);
  return answer.result == S_OK;
}

void Renumber(const RenumberOptions& options, Answer& answer) {
  Pairs pairs = ParsePairs(options.pairs);
  for (const char* member : kMembers)
    answer.data[member] = Json::array();
  const kestor::ComponenteMarcacao markup;
  if (options.dryRun) return DryRun(options, pairs, answer);
  if (!MayBegin(options, Contradictions(pairs), answer)) return;
  const ReportStore store(options.store.module, options.store.component);
  if (!IsOpen(store, answer) || !HasCatalogue(store, answer)) return;
  CallNotes planned("looking");
  answer.result = RehearseRenumbering(options.store, pairs, &planned);
  std::vector<std::string> objections = Objections(planned);
  if (answer.result == rpc::kVersionMismatch) {
    objections = {"the server that runs is older than this program and cannot tell what it would be"};
  } else if (FAILED(answer.result)) {
    return;
  }
  if (!MayBegin(options, objections, answer)) return;

  const FieldConverter converter;
  if (!IsOpen(converter, answer)) return;
  CallNotes notes("renumbering");
  {
    const com::Following following(&notes);
    Conclude(converter->AlteraCodigoCampos(ToBstr(options.store.module).get(), ToBstr(options.store.component).get(),
                                           static_cast<LONG>(pairs.size()), pairs.data()),
             answer);
  }
  Tell(notes, false, answer);
}

}  // namespace

void AddRenumber(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"renumber", "Renumber field codes in all report documents", kFooter}, Renumber);
  AddStoreOptions(command, &options->store);
  command->add_flag("--dry-run", options->dryRun, "Report what would happen to each model, and change nothing");
  command->add_flag("--force", options->force, "Continue despite objections");
  AddText(command, "PAIR", &options->pairs, "OLD=NEW: a field code and the one that replaces it");
}

}  // namespace kestorctl
