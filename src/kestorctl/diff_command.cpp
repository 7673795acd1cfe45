// The command diff: what two report documents say differently.
#include <algorithm>
#include <sstream>

#include "commands.h"
#include "document_page.h"
#include "failure.h"
#include "kept_versions.h"
#include "marcacao/componente_marcacao.h"
#include "stored_model.h"

namespace kestorctl {

namespace {

constexpr const char* kFooter =
    R"(Shows how a model differs from what it said before, line by line in the words of "kestorctl show": lines that are gone
begin with "-", new ones with "+". It is compared with its last version in the history, with the one of WHEN (as for
"kestorctl restore"), or with the model OTHER, which then counts as the newer one.

With --json: "lines", a list of objects with "change" (gone or new) and "text".

Examples:
  kestorctl diff CT 01 Vendas
  kestorctl diff CT 01 Vendas --at "2026-11-26 14:30"
  kestorctl diff CT 01 Vendas "Vendas por mês"

Exit status: 0 no difference; 3 differences, or there is no such model (0x00040001); 1 failure, such as a content that
is no report document; 2 wrong usage.)";

using Lines = std::vector<std::string>;

struct DiffOptions : ModelOptions {
  std::optional<std::string> when;
  std::string other;
};

Lines LinesOf(const REG_RELATORIO2& model, const std::string& name) {
  kestor::CDocRelatorio document;
  if (const std::string reason = LoadDocument(model, document); !reason.empty())
    throw LocalFailure(name + ": " + reason);
  std::istringstream page(DocumentPage(document));
  Lines lines;
  for (std::string line; std::getline(page, line);)
    lines.push_back(line);
  return lines;
}

// Returns none when the model cannot be read; the answer has the result.
std::optional<Lines> Stored(const DiffOptions& options, const std::string& name, Answer& answer) {
  const ReportStore store(options.module, options.component);
  if (!IsOpen(store, answer)) return std::nullopt;
  const StoredModel model(store, name);
  Conclude(model.Result(), answer);
  if (answer.result != S_OK) return std::nullopt;
  return LinesOf(model.Record(), name);
}

Lines Kept(const DiffOptions& options, Answer& answer) {
  Versions all = FindVersions(static_cast<const ModelOptions&>(options), answer);
  std::erase_if(all, [](const history::Version& one) { return KindOf(one) != Kind::document; });
  const history::Version version = VersionsAt(all, options.name, options.when).front();
  std::string content = Content(version);
  const std::optional<USHORT> number = DocumentVersion(version);
  if (!number) throw LocalFailure(version.file.string() + " is too short for a model");
  content.erase(0, sizeof *number);
  return LinesOf({*number, static_cast<LONG>(content.size()), reinterpret_cast<unsigned char*>(content.data())},
                 version.file.string());
}

void TellLine(bool isNew, const std::string& line, Answer& answer) {
  answer.output += (isNew ? "+ " : "- ") + line + "\n";
  answer.data["lines"].push_back({{"change", isNew ? "new" : "gone"}, {"text", line}});
  answer.incomplete = true;
}

// Tells the lines that are not in the longest common subsequence. Beyond a size that no page has, tells all lines
// between the common beginning and the common end.
void TellDifference(const Lines& before, const Lines& after, Answer& answer) {
  const auto [firstBefore, firstAfter] = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
  const auto [lastBefore, lastAfter] = std::mismatch(before.rbegin(), std::make_reverse_iterator(firstBefore),
                                                     after.rbegin(), std::make_reverse_iterator(firstAfter));
  const Lines a(firstBefore, lastBefore.base());
  const Lines b(firstAfter, lastAfter.base());
  constexpr std::size_t kMostCells = std::size_t{16} << 20;
  const bool isSmall = (a.size() + 1) * (b.size() + 1) <= kMostCells;
  std::vector<std::vector<std::size_t>> common(isSmall ? a.size() + 1 : 0, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = common.empty() ? 0 : a.size(); i-- > 0;) {
    for (std::size_t j = b.size(); j-- > 0;)
      common[i][j] = a[i] == b[j] ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
  }
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() || j < b.size()) {
    if (isSmall && i < a.size() && j < b.size() && a[i] == b[j]) {
      ++i;
      ++j;
    } else if (i < a.size() && (j == b.size() || !isSmall || common[i + 1][j] >= common[i][j + 1])) {
      TellLine(false, a[i++], answer);
    } else {
      TellLine(true, b[j++], answer);
    }
  }
}

void Diff(const DiffOptions& options, Answer& answer) {
  if (options.when && !options.other.empty()) throw UsageError("--at and OTHER exclude each other");
  const kestor::ComponenteMarcacao markup;
  answer.data["lines"] = nlohmann::ordered_json::array();
  const std::optional<Lines> own = Stored(options, options.name, answer);
  if (!own) return;
  if (options.other.empty()) return TellDifference(Kept(options, answer), *own, answer);
  if (const std::optional<Lines> other = Stored(options, options.other, answer)) TellDifference(*own, *other, answer);
}

}  // namespace

void AddDiff(CLI::App& program, Command* chosen) {
  const auto [command, options] =
      AddCommand(&program, chosen, {"diff", "Show the differences between two report documents", kFooter}, Diff);
  AddModelOptions(command, options);
  AddText(command, "OTHER", &options->other, "The model that it is compared with")->required(false);
  command->add_option("--at", options->when, "The version that it is compared with")
      ->type_name("WHEN")
      ->check(CheckUtf8);
}

}  // namespace kestorctl
