// The client library of KESTOR in C++20, header only: what kestor.h has, with types that own what they hold.
//
//   kestor::Reports store("CT", "01");
//   for (const std::string& name : *store.List())
//     if (const auto content = store.Read(name)) std::cout << name << ": " << content->bytes.size() << " bytes\n";
//
// A call that fails throws Error. A call with another expected outcome, such as "no such model", returns an Outcome
// without a value: test it as a condition, because taking the value throws. Texts are UTF-8. One thread at a time may
// use an object. A program links libkestor.so.1.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "kestor.h"

namespace kestor {

// How a call without success ended: the result, its name and meaning, and the server's reason, which may be empty.
struct Notice {
  kestor_result result = 0;
  std::string name = {};
  std::string meaning = {};
  std::string reason = {};

  std::string Text() const { return name + ": " + meaning + (reason.empty() ? "" : " (" + reason + ")"); }
};

// A failure, or a notice whose missing value was taken.
class Error : public std::runtime_error {
 public:
  explicit Error(Notice notice) : std::runtime_error(notice.Text()), notice_(std::move(notice)) {}
  const Notice& Why() const { return notice_; }

 private:
  Notice notice_;
};

// A value, or the notice why there is none.
template <typename Value>
class [[nodiscard]] Outcome {
 public:
  Outcome(Value value) : held_(std::in_place_index<0>, std::move(value)) {}
  Outcome(Notice notice) : held_(std::in_place_index<1>, std::move(notice)) {}

  explicit operator bool() const { return held_.index() == 0; }

  // Returns the value. Throws Error when there is none.
  const Value& operator*() const& { return Checked(); }
  Value operator*() && {
    Checked();
    return std::get<0>(std::move(held_));
  }
  const Value* operator->() const { return &Checked(); }

  // Returns why there is no value. Throws std::bad_variant_access when there is one.
  const Notice& Why() const { return std::get<1>(held_); }

 private:
  const Value& Checked() const {
    if (held_.index() == 1) throw Error(Why());
    return std::get<0>(held_);
  }

  std::variant<Value, Notice> held_;
};

// The outcome of a call that returns no value.
struct Nothing {};
using Done = Outcome<Nothing>;

struct Options {
  std::chrono::milliseconds timeLimit{0};  // of each call; 0: waits as long as the server lives
  bool onlyIfRunning = false;              // throws Error when no server runs, instead of starting one
};

struct Content {
  std::string bytes;
  std::uint16_t version = 1;
};

struct WriteOptions {
  bool keepExisting = false;         // gives a notice when the model exists
  bool checkDemonstrations = false;  // second generation: gives a notice when the name is a deleted one's
};

namespace internal {

// Returns a text that the library sees whole. Throws std::invalid_argument for a NUL inside it.
inline const char* WholeText(const std::string& text) {
  if (text.find('\0') != text.npos) throw std::invalid_argument("a text with a NUL");
  return text.c_str();
}

}  // namespace internal

// Returns the text of a record's field.
template <std::size_t room>
std::string Text(const char (&field)[room]) {
  const std::unique_ptr<char, decltype(&kestor_free)> text(kestor_to_utf8(field, room), kestor_free);
  if (!text) throw std::bad_alloc();
  return text.get();
}

// Sets the text of a record's field. Throws std::invalid_argument when it is too long, contains a NUL, or code page
// 1252 lacks a character; the field is unchanged then.
template <std::size_t room>
void SetText(char (&field)[room], const std::string& text) {
  char made[room];
  if (kestor_from_utf8(internal::WholeText(text), made, room) != 0)
    throw std::invalid_argument("no text for this field: " + text);
  std::copy(made, made + room, field);
}

namespace internal {

// Returns the notice of a positive result, or an empty one for 0. Throws Error for a negative result.
inline Notice Checked(kestor_result result) {
  if (result == 0) return {};
  Notice notice{result, kestor_result_name(result), kestor_result_meaning(result), kestor_last_reason()};
  if (result < 0) throw Error(std::move(notice));
  return notice;
}

inline Done DoneOf(kestor_result result) {
  Notice notice = Checked(result);
  return result == 0 ? Done(Nothing()) : Done(std::move(notice));
}

// Frees what the library hands out.
class Block {
 public:
  explicit Block(void* block) : block_(block, kestor_free) {}

 private:
  std::unique_ptr<void, decltype(&kestor_free)> block_;
};

template <typename Call>
Outcome<std::vector<std::string>> NamesOf(const Call& call) {
  kestor_names names{};
  Notice notice = Checked(call(&names));
  const Block block(names.names);
  if (notice.result != 0) return notice;
  return std::vector<std::string>(names.names, names.names + names.count);
}

template <typename Call>
Outcome<Content> ContentOf(const Call& call) {
  kestor_content content{};
  Notice notice = Checked(call(&content));
  const Block block(content.bytes);
  if (notice.result != 0) return notice;
  return Content{std::string(reinterpret_cast<const char*>(content.bytes), content.size), content.version};
}

template <typename Record, typename Call>
Outcome<std::vector<Record>> RecordsOf(const Call& call) {
  Record* records = nullptr;
  std::size_t count = 0;
  Notice notice = Checked(call(&records, &count));
  const Block block(records);
  if (notice.result != 0) return notice;
  return std::vector<Record>(records, records + count);
}

inline unsigned FlagsOf(const WriteOptions& options) {
  unsigned flags = 0;
  if (options.keepExisting) flags |= KESTOR_KEEP_EXISTING;
  if (options.checkDemonstrations) flags |= KESTOR_CHECK_DEMONSTRATIONS;
  return flags;
}

inline kestor_options OptionsOf(const Options& options) {
  constexpr std::chrono::milliseconds::rep kMost = std::numeric_limits<std::uint32_t>::max();
  const auto limit = options.timeLimit.count() < 0 ? 1 : std::min(options.timeLimit.count(), kMost);  // 0 is none
  return {sizeof(kestor_options), static_cast<std::uint32_t>(limit), options.onlyIfRunning};
}

template <typename Handle, void (*close)(Handle*)>
struct Closer {
  void operator()(Handle* handle) const { close(handle); }
};

// An open store, and how it was opened.
template <typename Handle, kestor_result (*open)(const kestor_options*, const char*, const char*, Handle**),
          void (*close)(Handle*)>
class Store {
 public:
  // Returns how the opening ended, which may be with a notice.
  const Done& Opening() const { return opening_; }

 protected:
  Store(const std::string& module, const std::string& component, const Options& options)
      : opening_(Open(module, component, options)) {}

  Handle* Get() const { return handle_.get(); }

 private:
  Done Open(const std::string& module, const std::string& component, const Options& options) {
    const kestor_options plain = OptionsOf(options);
    Handle* handle = nullptr;
    const kestor_result result = open(&plain, WholeText(module), WholeText(component), &handle);
    handle_.reset(handle);
    return DoneOf(result);
  }

  std::unique_ptr<Handle, Closer<Handle, close>> handle_;
  Done opening_;
};

}  // namespace internal

// Sets the home whose server is asked, instead of $KESTOR_HOME. Call it before anything else and before starting
// threads.
inline void UseHome(const std::string& folder) {
  internal::Checked(kestor_use_home(internal::WholeText(folder)));
}

// The report models of a module and component. Opening migrates those of the first generation.
class Reports : public internal::Store<kestor_reports, kestor_reports_open, kestor_reports_close> {
 public:
  Reports(const std::string& module, const std::string& component, const Options& options = {})
      : Store(module, component, options) {}

  // Returns the names of the models, sorted.
  Outcome<std::vector<std::string>> List() {
    return internal::NamesOf([&](kestor_names* names) { return kestor_reports_list(Get(), names); });
  }

  Outcome<Content> Read(const std::string& name) {
    return internal::ContentOf(
        [&](kestor_content* content) { return kestor_reports_read(Get(), internal::WholeText(name), content); });
  }

  Done Write(const std::string& name, const Content& content, const WriteOptions& options = {}) {
    return internal::DoneOf(kestor_reports_write(Get(), internal::WholeText(name), content.version,
                                                 internal::FlagsOf(options), content.bytes.data(),
                                                 content.bytes.size()));
  }

  Done Delete(const std::string& name) {
    return internal::DoneOf(kestor_reports_delete(Get(), internal::WholeText(name), 0));
  }

  // Deletes a demonstration model and hides its name from then on.
  Done DeleteDemonstration(const std::string& name) {
    return internal::DoneOf(kestor_reports_delete(Get(), internal::WholeText(name), 1));
  }

  // Returns the name of the default report, if there is one.
  std::optional<std::string> Default() {
    char* name = nullptr;
    internal::Checked(kestor_reports_get_default(Get(), &name));
    const internal::Block block(name);
    return name == nullptr ? std::nullopt : std::optional<std::string>(name);
  }

  Done SetDefault(const std::string& name) {
    return internal::DoneOf(kestor_reports_set_default(Get(), internal::WholeText(name)));
  }
  Done ClearDefault() { return internal::DoneOf(kestor_reports_set_default(Get(), nullptr)); }

  // Returns the names of the deleted demonstration models.
  Outcome<std::vector<std::string>> Deleted() {
    return internal::NamesOf([&](kestor_names* names) { return kestor_reports_deleted(Get(), names); });
  }

  // Returns the fields that reports can use.
  Outcome<std::vector<kestor_field>> Fields() {
    return internal::RecordsOf<kestor_field>(
        [&](kestor_field** fields, std::size_t* count) { return kestor_reports_fields(Get(), fields, count); });
  }
};

struct ExportSettings {
  kestor_export settings{};  // item_count is set from the items
  std::vector<kestor_export_item> items;
};

// The first-generation models of a module and component.
class Legacy : public internal::Store<kestor_legacy, kestor_legacy_open, kestor_legacy_close> {
 public:
  Legacy(const std::string& module, const std::string& component, const Options& options = {})
      : Store(module, component, options) {}

  // Returns the names of the models, sorted; a notice when there is none.
  Outcome<std::vector<std::string>> List() {
    return internal::NamesOf([&](kestor_names* names) { return kestor_legacy_list(Get(), names); });
  }

  Outcome<Content> Read(const std::string& name) {
    return internal::ContentOf(
        [&](kestor_content* content) { return kestor_legacy_read(Get(), internal::WholeText(name), content); });
  }

  Done Write(const std::string& name, std::string_view bytes, const WriteOptions& options = {}) {
    return internal::DoneOf(
        kestor_legacy_write(Get(), internal::WholeText(name), internal::FlagsOf(options), bytes.data(), bytes.size()));
  }

  // Does the same through the method that older clients call.
  Done WriteQuietly(const std::string& name, std::string_view bytes, const WriteOptions& options = {}) {
    return internal::DoneOf(kestor_legacy_write_quietly(Get(), internal::WholeText(name), internal::FlagsOf(options),
                                                        bytes.data(), bytes.size()));
  }

  // Deletes a model and its export settings. Succeeds even when there is none.
  Done Delete(const std::string& name) {
    return internal::DoneOf(kestor_legacy_delete(Get(), internal::WholeText(name)));
  }

  // Sets margins, and the order and widths of the columns.
  Done Update(const std::string& name, std::uint16_t left, std::uint16_t top, std::span<const kestor_column> columns) {
    return internal::DoneOf(
        kestor_legacy_update(Get(), internal::WholeText(name), left, top, columns.data(), columns.size()));
  }

  Outcome<ExportSettings> Export(const std::string& name) {
    ExportSettings found;
    kestor_export_item* items = nullptr;
    Notice notice =
        internal::Checked(kestor_legacy_get_export(Get(), internal::WholeText(name), &found.settings, &items));
    const internal::Block block(items);
    if (notice.result != 0) return notice;
    found.items.assign(items, items + found.settings.item_count);
    return found;
  }

  // Throws std::length_error for more items than the settings can count.
  Done SetExport(const std::string& name, const ExportSettings& settings) {
    if (settings.items.size() > std::numeric_limits<std::uint16_t>::max()) throw std::length_error("too many items");
    kestor_export counted = settings.settings;
    counted.item_count = static_cast<std::uint16_t>(settings.items.size());
    return internal::DoneOf(
        kestor_legacy_put_export(Get(), internal::WholeText(name), &counted, settings.items.data()));
  }

  Outcome<std::vector<kestor_filter_entry>> Filter(const std::string& name) {
    return internal::RecordsOf<kestor_filter_entry>([&](kestor_filter_entry** entries, std::size_t* count) {
      return kestor_legacy_get_filter(Get(), internal::WholeText(name), entries, count);
    });
  }

  Done SetFilter(const std::string& name, std::span<const kestor_filter_entry> entries) {
    return internal::DoneOf(kestor_legacy_put_filter(Get(), internal::WholeText(name), entries.data(), entries.size()));
  }

  // Returns the fields that models can use.
  Outcome<std::vector<kestor_legacy_field>> Fields() {
    return internal::RecordsOf<kestor_legacy_field>(
        [&](kestor_legacy_field** fields, std::size_t* count) { return kestor_legacy_fields(Get(), fields, count); });
  }
};

// Renumbers field codes in all report models of a module and component.
inline Done Renumber(const std::string& module, const std::string& component,
                     std::span<const kestor_code_change> changes, const Options& options = {}) {
  const kestor_options plain = internal::OptionsOf(options);
  return internal::DoneOf(kestor_renumber(&plain, internal::WholeText(module), internal::WholeText(component),
                                          changes.data(), changes.size()));
}

}  // namespace kestor
