// The command log: what the journal of the home says.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "commands.h"
#include "contract/results.h"
#include "explanation.h"
#include "failure.h"
#include "host_files.h"
#include "journal/journal.h"
#include "platform/home/home.h"
#include "platform/host/whole_file.h"
#include "platform/text/text.h"
#include "text_table.h"
#include "times.h"

namespace kestorctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFooter =
    R"(Shows the changes that servers have made in the home and those that they have refused, the oldest first: the local time,
the user, the method, the model, its outcome and bytes, and for a refused change the result and the reason. A migration
or a renumbering has a line for each model. Reading is not logged. Letter case does not matter.

TIME is local, such as 2026-11-26 or "2026-11-26 14:30" or "2026-11-26 14:30:12", or a time ago, such as 30m, 12h or 7d.

With --json: "entries", each with "time" (UTC), "user" and "process" of the client, "result", and of "class", "method",
"module", "component", "model", "outcome", "bytes" and "reason" those that are known. With --follow each entry is a
document of its own, on one line.

Examples:
  kestorctl log
  kestorctl log CT 01 Vendas
  kestorctl log CT --since 7d --failed
  kestorctl log --since "2026-11-26 14:30" --follow

Exit status: 0 shown, even if there are none; 1 a file of the journal cannot be read, or another failure;
2 wrong usage.)";

struct LogOptions {
  std::optional<std::string> module;
  std::optional<std::string> component;
  std::optional<std::string> name;
  std::optional<std::string> since;
  bool follow = false;
  bool failed = false;
};

// ---- Times ---------------------------------------------------------------------------------------------------------

// Returns the time from which entries count, as a text that compares with their times; empty: all count.
std::string Since(const LogOptions& options) {
  if (!options.since) return {};
  const std::optional<std::time_t> time = ReadPastTime(*options.since);
  if (!time) {
    throw UsageError("--since: " + *options.since +
                     " is neither a time such as \"2026-11-26 14:30\" nor one ago such as 12h");
  }
  return UtcText(*time, "%Y-%m-%dT%H:%M:%S");
}

// ---- Entries -------------------------------------------------------------------------------------------------------

// Returns a member that is a text; empty when there is none.
std::string Text(const Json& entry, const char* name) {
  const auto member = entry.find(name);
  return member != entry.end() && member->is_string() ? member->get<std::string>() : std::string();
}

HRESULT ResultOf(const Json& entry) {
  const std::string text = Text(entry, "result");
  std::uint32_t result = 0;
  if (text.starts_with("0x")) std::from_chars(text.data() + 2, text.data() + text.size(), result, 16);
  return static_cast<HRESULT>(result);
}

bool IsFailure(const Json& entry) {
  const std::string outcome = Text(entry, "outcome");
  return ResultOf(entry) != S_OK || outcome == "stays" || outcome == "passed over";
}

bool Names(const std::optional<std::string>& wanted, const Json& entry, const char* member) {
  return !wanted || text::EqualNoCase(text::FromUtf8(*wanted), text::FromUtf8(Text(entry, member)));
}

// Selects the entries that are told.
class Selection {
 public:
  explicit Selection(const LogOptions& options) : options_(options), since_(Since(options)) {}

  // Returns the entry of a line; none when the line is malformed, or the entry is not asked for.
  std::optional<Json> Take(std::string_view line) const {
    // Compares before parsing, which takes most of the time.
    if (line.substr(kTime, since_.size()) < since_) return std::nullopt;
    Json entry = Json::parse(line, nullptr, false);
    if (!entry.is_object()) return std::nullopt;
    const bool isNamed = Names(options_.module, entry, "module") && Names(options_.component, entry, "component") &&
                         Names(options_.name, entry, "model");
    if (!isNamed || (options_.failed && !IsFailure(entry))) return std::nullopt;
    return entry;
  }

 private:
  static constexpr std::size_t kTime = std::string_view(R"({"time":")").size();  // where it stands in a line

  const LogOptions& options_;
  const std::string since_;
};

// Formats entries as lines for people.
class Page {
 public:
  std::string Line(const Json& entry) {
    std::string line = LocalTime(entry);
    AppendColumn(User(entry), &line);
    AppendColumn(Text(entry, "method"), &line);
    AppendColumn(Model(entry), &line);
    AppendColumn(Text(entry, "outcome"), &line);
    const auto bytes = entry.find("bytes");
    if (bytes != entry.end() && bytes->is_number_unsigned()) AppendColumn(bytes->dump() + " bytes", &line);
    const HRESULT result = ResultOf(entry);
    if (result != S_OK) AppendColumn(kestor::ResultCode(result) + " " + kestor::Describe(result).name, &line);
    const std::string reason = Text(entry, "reason");
    if (!reason.empty()) line += ": " + text::Printable(reason);
    return line + '\n';
  }

 private:
  static void AppendColumn(const std::string& text, std::string* line) {
    if (!text.empty()) *line += "  " + text::Printable(text);
  }

  static std::string LocalTime(const Json& entry) {
    const std::string text = Text(entry, "time");
    std::string_view fraction;
    std::optional<std::tm> utc = ReadTime(text, "%Y-%m-%dT%H:%M:%S", &fraction);
    if (!utc) return text::Printable(text);
    return LocalText(timegm(&*utc), "%Y-%m-%d %H:%M:%S");
  }

  static std::string Model(const Json& entry) {
    std::string model;
    for (const char* const member : {"module", "component", "model"}) {
      const std::string text = Text(entry, member);
      if (!text.empty()) model += (model.empty() ? "" : " ") + text;
    }
    return model;
  }

  // Pads the name to the longest one so far, so that the columns of a few users line up.
  std::string User(const Json& entry) {
    const auto member = entry.find("user");
    if (member == entry.end() || !member->is_number_unsigned()) return {};
    std::string& name = names_[member->get<uid_t>()];
    if (name.empty()) name = UserName(member->get<uid_t>());
    widest_ = std::max(widest_, name.size());
    return name + std::string(widest_ - name.size(), ' ');
  }

  std::map<uid_t, std::string> names_;
  std::size_t widest_ = 0;
};

// ---- The command ---------------------------------------------------------------------------------------------------

void TellEntries(journal::Reader& reader, const Selection& selection, Answer& answer) {
  Page page;
  Json entries = Json::array();
  reader.ReadNew([&](std::string_view line) {
    std::optional<Json> entry = selection.Take(line);
    if (!entry) return;
    if (answer.json) {
      entries.push_back(std::move(*entry));
    } else {
      answer.output += page.Line(*entry);
    }
  });
  answer.data["entries"] = std::move(entries);
  for (const std::string& trouble : reader.Troubles())
    answer.error += (answer.error.empty() ? "" : "; ") + trouble;
  if (!answer.error.empty()) answer.result = E_FAIL;
}

// Returns false when the reader of standard output has gone away.
bool WaitForEntries() {
  constexpr int kPauseMilliseconds = 200;
  pollfd output = {.fd = STDOUT_FILENO, .events = 0, .revents = 0};
  return poll(&output, 1, kPauseMilliseconds) <= 0 || (output.revents & POLLERR) == 0;
}

void FollowEntries(journal::Reader& reader, const Selection& selection, Answer& answer) {
  Page page;
  std::size_t told = 0;
  int error = 0;
  while (error == 0) {
    std::string lines;
    reader.ReadNew([&](std::string_view line) {
      const std::optional<Json> entry = selection.Take(line);
      if (!entry) return;
      lines += answer.json ? entry->dump(-1, ' ', false, Json::error_handler_t::replace) + '\n' : page.Line(*entry);
    });
    for (; told < reader.Troubles().size(); ++told)
      host::WriteAll(STDERR_FILENO, "kestorctl: " + text::Printable(reader.Troubles()[told]) + "\n");
    error = host::WriteAll(STDOUT_FILENO, lines);
    if (error == 0 && !WaitForEntries()) error = EPIPE;
  }
  answer.unread = error == EPIPE;
  if (answer.unread) return;
  answer.error = std::string("cannot write standard output: ") + std::strerror(error);
  answer.result = E_FAIL;
}

void TellLog(const LogOptions& options, Answer& answer) {
  const Selection selection(options);
  RequireHome();
  journal::Reader reader(platform::Home::Current());
  options.follow ? FollowEntries(reader, selection, answer) : TellEntries(reader, selection, answer);
}

}  // namespace

void AddLog(CLI::App& program, Command* chosen) {
  const auto [log, options] =
      AddCommand(&program, chosen, {"log", "Show the changes that were made or refused", kFooter}, TellLog);
  AddText(log, "MODULE", &options->module, "Only entries of the module with this code")->required(false);
  AddText(log, "COMPONENT", &options->component, "Only entries of the component with this code")->required(false);
  AddText(log, "NAME", &options->name, "Only entries of the model with this name")->required(false);
  log->add_option("--since", options->since, "Only entries from this time on")->type_name("TIME")->check(CheckUtf8);
  log->add_flag("--follow", options->follow, "Keep showing new entries until interrupted");
  log->add_flag("--failed", options->failed, "Only refused changes, and models that stay or were passed over");
}

}  // namespace kestorctl
