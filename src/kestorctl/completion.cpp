#include "completion.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

#include "admin/admin.h"
#include "common/caminhos_instalacao.h"
#include "explanation.h"
#include "kept_versions.h"
#include "platform/home/home.h"
#include "platform/text/text.h"

namespace kestorctl {

namespace {

bool IsOption(const std::string& word) {
  return word.size() > 1 && word.front() == '-';
}

const CLI::App* FindCommand(const CLI::App& group, const std::string& name) {
  const auto named = group.get_subcommands([&](const CLI::App* one) { return one->get_name() == name; });
  return named.empty() ? nullptr : named.front();
}

// Returns what the values of an option or argument are, such as MODULE, COMPONENT and NAME. The last word holds for all
// further values.
std::vector<std::string> KindsOf(const CLI::Option& option) {
  if (option.get_positional()) {
    if (option.get_items_expected_max() > 1 && option.get_name() == "FILE") return {"MODULE", "COMPONENT", "NAME"};
    return {option.get_name()};
  }
  std::string words = option.get_type_name();
  words.erase(std::remove_if(words.begin(), words.end(), [](char c) { return c == '[' || c == ']' || c == '.'; }),
              words.end());
  std::istringstream stream(words);
  std::vector<std::string> kinds;
  for (std::string kind; stream >> kind;)
    kinds.push_back(kind);
  return kinds;
}

// Walks along the command line, and knows what can follow.
class Line {
 public:
  explicit Line(const CLI::App& program) : command_(&program), helped_(&program) {}

  void Pass(const std::string& word) {
    const bool isOption = !onlyArguments_ && IsOption(word);
    if (!isOption && option_ != nullptr && TakesMore(*option_, values_)) return Note(Kind(*option_, values_++), word);
    option_ = nullptr;
    if (isOption) return PassOption(word);
    const CLI::App* const command = arguments_ == 0 ? FindCommand(*command_, word) : nullptr;
    if (command != nullptr) {
      command_ = command;
    } else {
      Note(KindOfArgument(), word);
      ++arguments_;
    }
  }

  std::string Offer(const std::string& begun) {
    begun_ = begun;
    const std::size_t equals = begun.find('=');
    if (!onlyArguments_ && begun.starts_with("--") && equals != begun.npos) {
      option_ = nullptr;
      PassOption(begun.substr(0, equals));
      begun_.erase(0, equals + 1);
      if (option_ != nullptr) OfferValues(Kind(*option_, 0));
    } else if (!onlyArguments_ && begun.starts_with('-')) {
      OfferOptions();
    } else if (option_ != nullptr && TakesMore(*option_, values_)) {
      OfferValues(Kind(*option_, values_));
    } else {
      OfferArgument();
    }
    return output_;
  }

 private:
  static bool TakesMore(const CLI::Option& option, std::size_t values) {
    return values < static_cast<std::size_t>(option.get_items_expected_max());
  }

  static std::string Kind(const CLI::Option& option, std::size_t value) {
    const std::vector<std::string> kinds = KindsOf(option);
    return kinds.empty() ? std::string() : kinds[std::min(value, kinds.size() - 1)];
  }

  void PassOption(const std::string& word) {
    const std::size_t equals = word.find('=');
    onlyArguments_ = word == "--";
    values_ = 0;
    for (const CLI::App* app = command_; app != nullptr && option_ == nullptr && !onlyArguments_;
         app = app->get_parent())
      option_ = app->get_option_no_throw(word.substr(0, equals));
    if (option_ == nullptr) return;
    isHome_ = option_->check_name("--home");
    if (equals != word.npos) Note(Kind(*option_, values_++), word.substr(equals + 1));
  }

  // Returns the argument that comes next; null when there is none. `*value`: how many values it has already.
  const CLI::Option* NextArgument(std::size_t* value) const {
    *value = arguments_;
    for (const CLI::Option* argument : command_->get_options([](const auto* one) { return one->get_positional(); })) {
      if (TakesMore(*argument, *value)) return argument;
      *value -= static_cast<std::size_t>(argument->get_items_expected_max());
    }
    return nullptr;
  }

  std::string KindOfArgument() const {
    std::size_t value = 0;
    const CLI::Option* const argument = NextArgument(&value);
    return argument == nullptr ? std::string() : Kind(*argument, value);
  }

  void Note(const std::string& kind, const std::string& word) {
    if (kind == "MODULE") store_.module = word;
    if (kind == "COMPONENT") store_.component = word;
    if (kind == "COMMAND" && helped_ != nullptr) helped_ = FindCommand(*helped_, word);
    if (isHome_ && !word.empty()) platform::Home::Use(word);
    isHome_ = false;
  }

  bool IsWithin(const std::string& name) const {
    for (const CLI::App* app = command_; app != nullptr; app = app->get_parent()) {
      if (app->get_name() == name) return true;
    }
    return false;
  }

  void Put(const std::string& value, std::string_view description = {}) {
    // A value that would break the line cannot be typed either.
    if (!value.starts_with(begun_) || text::Presentable(value) != value || !offered_.insert(value).second) return;
    output_.append(value).append(description.empty() ? "" : "\t").append(description).append("\n");
  }

  void OfferCommands(const CLI::App& group) {
    for (const CLI::App* command : group.get_subcommands({}))
      Put(command->get_name(), command->get_description());
  }

  // Offers the options of the command and of those above it; of one name, only the innermost option.
  void OfferOptions() {
    for (const CLI::App* app = command_; app != nullptr; app = app->get_parent()) {
      for (const CLI::Option* option : app->get_options([](const auto* one) { return !one->get_positional(); })) {
        for (const std::string& name : option->get_lnames())
          Put("--" + name, option->get_description());
        for (const std::string& name : option->get_snames())
          Put("-" + name, option->get_description());
      }
    }
  }

  void OfferArgument() {
    std::size_t value = 0;
    const CLI::Option* const argument = NextArgument(&value);
    if (arguments_ == 0) OfferCommands(*command_);
    if (argument != nullptr) OfferValues(Kind(*argument, value));
    if (argument != nullptr && argument->get_items_expected_max() > 1) OfferValues(argument->get_name());
    if (argument == nullptr && begun_.empty() && command_->get_subcommands({}).empty()) OfferOptions();
  }

  void OfferValues(const std::string& kind) {
    const std::size_t brace = kind.find('{');
    if (brace != kind.npos) {
      std::istringstream words(kind.substr(brace + 1, kind.size() - brace - 2));
      for (std::string word; std::getline(words, word, ',');)
        Put(word);
    } else if (kind == "FILE") {
      output_ += ":files\n";
    } else if (kind == "DIR" || (kind.ends_with("=DIR") && begun_.find('=') != begun_.npos)) {
      output_ += ":folders\n";
    } else if (kind == "COMMAND") {
      if (helped_ != nullptr) OfferCommands(*helped_);
    } else if (kind == "MODULE" || kind == "COMPONENT" || kind == "NAME" || kind == "OTHER") {
      OfferFromHome(kind);
    }
  }

  void OfferFromHome(const std::string& kind) {
    try {
      RequireHome();
      if (kind == "MODULE") {
        OfferModules();
      } else if (kind == "COMPONENT") {
        for (const admin::Pair& pair : admin::TakeInventory(store_.module).pairs)
          Put(pair.component);
      } else {
        OfferNames();
      }
    } catch (const std::runtime_error&) {
      // Completion fails silently. The command itself will report the reason.
    }
  }

  void OfferModules() {
    for (const kestor::ModuloFamilia& module : kestor::ModulosDaFamilia()) {
      std::string path;
      if (kestor::CCaminhosInstalacao::BuscaCaminhoModulo(std::string(module.codigo), path) != 0) continue;
      Put(std::string(module.codigo), module.subchave);
    }
  }

  void OfferNames() {
    const bool isLegacy = IsWithin("legacy");
    const admin::Inventory inventory = admin::TakeInventory(store_.module, store_.component);
    if (inventory.pairs.empty()) return;
    const admin::Records records = admin::RecordsOf(inventory, inventory.pairs.front());
    for (const admin::Model& model : inventory.models) {
      if (isLegacy ? model.generation == admin::Generation::first : !records.Hides(model)) Put(model.name);
    }
    if (!IsWithin("restore") && !IsWithin("history")) return;
    Answer unused;
    for (const history::Version& version : FindVersions(store_, unused))
      Put(StoreName(version));
  }

  const CLI::App* command_;
  const CLI::App* helped_;  // the command that "help" will describe; null when there is none
  bool onlyArguments_ = false;
  const CLI::Option* option_ = nullptr;  // whose values may follow; null when there is none
  std::size_t values_ = 0;
  std::size_t arguments_ = 0;
  bool isHome_ = false;
  StoreOptions store_;
  std::string begun_;
  std::set<std::string> offered_;
  std::string output_;
};

}  // namespace

std::string Completions(const CLI::App& program, const std::vector<std::string>& words) {
  Line line(program);
  for (std::size_t i = 0; i + 1 < words.size(); ++i)
    line.Pass(words[i]);
  return line.Offer(words.empty() ? std::string() : words.back());
}

}  // namespace kestorctl
