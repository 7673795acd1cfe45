// Lines of a file of comma-separated values.
#include <csv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "lines.h"
#include "platform/text/text.h"
#include "value.h"

namespace preview {

namespace {

using kestor::CDocRelatorio;

constexpr std::size_t kMostInValue = 1 << 20;  // more is a quotation mark that nobody closed
constexpr std::size_t kMostKept = std::size_t{1} << 30;
constexpr std::size_t kBlock = 1 << 16;

std::string Utf8(std::string_view value) {
  return text::IsValidUtf8(value) ? std::string(value) : text::ToUtf8(value);
}

bool SameName(const std::string& name, const std::string& other) {
  return !other.empty() && text::EqualNoCase(text::FromUtf8(name), text::FromUtf8(other));
}

// Whether the lines that it is asked about pass the document's filter. "And" binds closer than "or".
class Filter {
 public:
  Filter(const CDocRelatorio& document, const Fields& fields, const Lines& lines) {
    for (const kestor::CondicaoFiltro& condition : Meant(document.filtro.condicoes)) {
      const Field& field = FieldOf(fields, condition.codigo);
      std::string value = text::ToUtf8(condition.valorComparar);
      ForEachOption(field.type == KESTOR_Opcoes ? field.options : "",
                    [&](std::string_view code, std::string_view text) {
                      if (!SameName(value, std::string(text))) return true;
                      value = code;
                      return false;
                    });
      conditions_.push_back({PlaceOf(lines, condition.codigo), field.type, KeyOf(field.type, value), condition.operador,
                             condition.comparador == kestor::comparadorOu});
    }
  }

  bool Passes(const std::string* values) const {
    if (conditions_.empty()) return true;
    bool all = true;  // of the conditions since the last "or"
    for (const Condition& condition : conditions_) {
      if (condition.beginsAlternative && &condition != &conditions_.front()) {
        if (all) return true;
        all = true;
      }
      all = all && Holds(condition, values[condition.place]);
    }
    return all;
  }

 private:
  struct Condition {
    std::size_t place;
    char type;
    Key value;
    std::int32_t op;
    bool beginsAlternative;
  };

  static bool Holds(const Condition& condition, const std::string& value) {
    const Key key = KeyOf(condition.type, value);
    switch (condition.op) {
      case kestor::operadorDiferente:
        return key != condition.value;
      case kestor::operadorMaior:
        return key > condition.value;
      case kestor::operadorMaiorIgual:
        return key >= condition.value;
      case kestor::operadorMenor:
        return key < condition.value;
      case kestor::operadorMenorIgual:
        return key <= condition.value;
      default:
        return key == condition.value;
    }
  }

  std::vector<Condition> conditions_;
};

class Reading {
 public:
  Reading(const std::string& file, const CDocRelatorio& document, const Fields& fields, std::size_t count)
      : file_(file), fields_(fields), count_(count) {
    lines_.codes = UsedCodes(document);
    if (lines_.codes.empty()) lines_.codes.push_back(0);
    filter_ = std::make_unique<Filter>(document, fields, lines_);
    for (const std::uint16_t code : lines_.codes)
      types_.push_back(FieldOf(fields, code).type);
    unfit_.resize(lines_.codes.size());
    if (csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~Reading() { csv_free(&parser_); }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  void Read(const std::function<void(std::uint64_t)>& progress) {
    const std::unique_ptr<FILE, int (*)(FILE*)> input(std::fopen(file_.c_str(), "rb"), std::fclose);
    if (!input) throw Failure(file_ + ": " + std::strerror(errno));
    std::array<char, kBlock> block{};
    std::uint64_t done = 0;
    for (bool isFirst = true; !isEnough_; isFirst = false) {
      const std::size_t size = std::fread(block.data(), 1, block.size(), input.get());
      if (size == 0) break;
      std::string_view bytes(block.data(), size);
      if (isFirst) {
        if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
        csv_set_delim(&parser_, static_cast<unsigned char>(SeparatorOf(bytes.substr(0, bytes.find_first_of("\r\n")))));
      }
      Parse(bytes);
      if (progress) progress(done += size);
    }
    if (std::ferror(input.get()) != 0) throw Failure(file_ + ": " + std::strerror(errno));
    if (isEnough_) return;
    if (csv_fini(&parser_, OnValue, OnEnd, this) != 0) throw Failure(Where() + "the file ends within quotation marks");
    if (places_.empty()) throw Failure(file_ + " is empty: its first line must name the fields");
  }

  Lines TakeLines(std::vector<std::string>* notes) {
    for (std::size_t place = 0; place < lines_.codes.size(); ++place) {
      const std::uint16_t code = lines_.codes[place];
      const Field& field = FieldOf(fields_, code);
      const std::string name = std::to_string(code) + (field.alias.empty() ? "" : " (" + field.alias + ")");
      if (code != 0 && std::find(places_.begin(), places_.end(), place) == places_.end())
        notes->push_back("the file has no column for the field " + name);
      if (unfit_[place] != 0) {
        notes->push_back("values of the field " + name +
                         (IsNumber(field.type) ? " that are no numbers: " : " that are no dates: ") +
                         std::to_string(unfit_[place]));
      }
    }
    return std::move(lines_);
  }

 private:
  static char SeparatorOf(std::string_view head) {
    return std::count(head.begin(), head.end(), ';') >= std::count(head.begin(), head.end(), ',') ? ';' : ',';
  }

  std::string Where() const { return file_ + ", line " + std::to_string(line_) + ": "; }

  void Parse(std::string_view bytes) {
    const std::size_t parsed = csv_parse(&parser_, bytes.data(), bytes.size(), OnValue, OnEnd, this);
    if (!failure_.empty()) throw Failure(failure_);
    if (isOutOfMemory_ || csv_error(&parser_) == CSV_ENOMEM) throw std::bad_alloc();
    if (parsed != bytes.size())
      throw Failure(Where() +
                    "a quotation mark stands where none may be; within a value in quotation marks it is doubled");
    if (parser_.entry_pos > kMostInValue)
      throw Failure(Where() + "a value has more than a million characters; perhaps a quotation mark is not closed");
  }

  // Called by C code, which no exception may cross.
  static void OnValue(void* value, std::size_t size, void* self) {
    static_cast<Reading*>(self)->Guard([&](Reading& reading) {
      reading.Value({static_cast<const char*>(value), size});
    });
  }
  static void OnEnd(int, void* self) {
    static_cast<Reading*>(self)->Guard([](Reading& reading) { reading.EndOfLine(); });
  }
  template <typename Work>
  void Guard(const Work& work) noexcept {
    if (!failure_.empty() || isOutOfMemory_ || isEnough_) return;
    try {
      work(*this);
    } catch (const std::bad_alloc&) {
      isOutOfMemory_ = true;
    }
  }

  void Value(std::string_view value) {
    if (line_ == 1) {
      places_.push_back(PlaceNamed(Utf8(value)));
    } else if (column_ < places_.size() && places_[column_] != kNowhere) {
      current_[places_[column_]] = Utf8(value);
    }
    ++column_;
  }

  std::size_t PlaceNamed(const std::string& name) const {
    for (std::size_t place = 0; place < lines_.codes.size(); ++place) {
      const Field& field = FieldOf(fields_, lines_.codes[place]);
      const bool isNamed = name == std::to_string(lines_.codes[place]) || SameName(name, field.alias) ||
                           SameName(name, field.description);
      if (isNamed && std::find(places_.begin(), places_.end(), place) == places_.end()) return place;
    }
    return kNowhere;
  }

  void EndOfLine() {
    if (line_ == 1) {
      if (std::all_of(places_.begin(), places_.end(), [](std::size_t place) { return place == kNowhere; }))
        failure_ = file_ + ": no column is named like a field of the report, by its alias or its code";
    } else {
      Keep();
    }
    ++line_;
    column_ = 0;
    current_.assign(lines_.codes.size(), {});
  }

  void Keep() {
    for (std::size_t place = 0; place < current_.size(); ++place) {
      const bool hasForm = IsNumber(types_[place]) || types_[place] == KESTOR_Data || types_[place] == KESTOR_MesAno;
      if (hasForm && KeyOf(types_[place], current_[place]).kind == Key::Kind::text) ++unfit_[place];
    }
    if (!filter_->Passes(current_.data())) return;
    for (std::string& value : current_) {
      kept_ += value.capacity() + sizeof(std::string);
      lines_.values.push_back(std::move(value));
    }
    if (kept_ > kMostKept) failure_ = Where() + "more than 1 GiB of values passes the filter; --rows takes fewer lines";
    isEnough_ = lines_.Count() == count_;
  }

  const std::string& file_;
  const Fields& fields_;
  const std::size_t count_;
  Lines lines_;
  std::vector<char> types_;
  std::unique_ptr<Filter> filter_;
  csv_parser parser_{};
  std::vector<std::size_t> places_;   // where the value of each column of the file goes
  std::vector<std::string> current_;  // the values of the line that is being read
  std::vector<std::size_t> unfit_;    // values that are not what the field's type asks for
  std::size_t line_ = 1;
  std::size_t column_ = 0;
  std::size_t kept_ = 0;
  bool isEnough_ = false;
  bool isOutOfMemory_ = false;
  std::string failure_;
};

}  // namespace

Lines ReadCsv(const std::string& file, const CDocRelatorio& document, const Fields& fields, std::size_t count,
              std::vector<std::string>* notes, const std::function<void(std::uint64_t)>& progress) {
  Reading reading(file, document, fields, count);
  reading.Read(progress);
  return reading.TakeLines(notes);
}

}  // namespace preview
