// Reads lines from a file of comma-separated values.
#include <csv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "lines.h"
#include "platform/text/text.h"
#include "value.h"

namespace preview {

namespace {

using kestor::CDocRelatorio;

constexpr std::size_t kMostInValue = 1 << 20;  // a longer value means a missing closing quotation mark
constexpr std::size_t kMostKept = std::size_t{1} << 30;
constexpr std::size_t kMostNames = 10'000;
constexpr std::size_t kBlock = 1 << 16;

std::string Utf8(std::string_view value) {
  return text::IsValidUtf8(value) ? std::string(value) : text::ToUtf8(value);
}

// Letter case makes no difference in names.
std::string Folded(const std::string& name) {
  return text::Upper(text::FromUtf8(name));
}

// Returns the code of the option with this text, or the text itself.
std::string CodeOfOption(const Field& field, std::string text) {
  const std::string folded = Folded(text);
  ForEachOption(field.options, [&](std::string_view code, std::string_view meaning) {
    if (Folded(std::string(meaning)) != folded) return true;
    text = code;
    return false;
  });
  return text;
}

bool IsOption(const Field& field, const std::string& value) {
  bool isOne = false;
  ForEachOption(field.options, [&](std::string_view code, std::string_view) { return !(isOne = code == value); });
  return isOne;
}

// Returns whether the value fits the field's type or is empty.
bool HasForm(const Field& field, const std::string& value) {
  switch (field.type) {
    case KESTOR_Numerico:
    case KESTOR_Valor:
    case KESTOR_Data:
    case KESTOR_MesAno:
      return KeyOf(field.type, value).kind != Key::Kind::text;
    case KESTOR_Opcoes:
      return value.empty() || field.options.empty() || IsOption(field, value);
    default:
      return true;
  }
}

const char* FormOf(char type) {
  return IsNumber(type) ? "numbers" : type == KESTOR_Opcoes ? "options" : "dates";
}

// Decides which lines pass the document's filter. "And" binds more tightly than "or".
class Filter {
 public:
  Filter(const CDocRelatorio& document, const Fields& fields, const Lines& lines, std::vector<std::string>* notes) {
    for (const kestor::CondicaoFiltro& condition : Meant(document.filtro.condicoes)) {
      const Field& field = FieldOf(fields, condition.codigo);
      std::string value = text::ToUtf8(condition.valorComparar);
      if (field.type == KESTOR_Opcoes) value = CodeOfOption(field, std::move(value));
      if (!HasForm(field, value))
        notes->push_back("a condition of the field " + NameOf(field) + " compares with what are no " +
                         FormOf(field.type) + ": " + text::Presentable(value));
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
  Reading(const std::string& file, const CDocRelatorio& document, const Fields& fields, std::size_t count,
          std::vector<std::string>* notes)
      : file_(file), count_(count), notes_(*notes) {
    lines_.codes = UsedCodes(document);
    if (lines_.codes.empty()) lines_.codes.push_back(0);
    filter_ = std::make_unique<Filter>(document, fields, lines_, notes);
    for (const std::uint16_t code : lines_.codes)
      columns_.emplace_back(FieldOf(fields, code));
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
      Parse(isFirst ? Begin(bytes) : bytes);
      if (progress) progress(done += size);
    }
    if (std::ferror(input.get()) != 0) throw Failure(file_ + ": " + std::strerror(errno));
    if (isEnough_) return;
    const int ended = csv_fini(&parser_, OnValue, OnEnd, this);
    if (isOutOfMemory_ || csv_error(&parser_) == CSV_ENOMEM) throw std::bad_alloc();
    if (!failure_.empty()) throw Failure(failure_);
    if (ended != 0) throw Failure(Where() + "the file ends within quotation marks");
    if (names_.empty()) throw Failure(file_ + " is empty: its first line must name the fields");
  }

  // Returns the lines. Adds notes on what a reader of the report should know.
  Lines Take() {
    for (std::size_t place = 0; place < columns_.size(); ++place) {
      const Column& column = columns_[place];
      const std::string name = "the field " + NameOf(column.field);
      if (lines_.codes[place] != 0 && std::find(places_.begin(), places_.end(), place) == places_.end())
        notes_.push_back("the file has no column for " + name);
      if (column.unfit != 0)
        notes_.push_back("values of " + name + " that are no " + FormOf(column.field.type) + ": " +
                         std::to_string(column.unfit) + ", the first one " + column.firstUnfit);
      if (column.hasDecimalDots && column.hasSingleDots)
        notes_.push_back("in some values of " + name + " a dot is taken to separate thousands, in others decimals");
    }
    if (uneven_ != 0)
      notes_.push_back("records with more or fewer values than the first one: " + std::to_string(uneven_) +
                       ", the first one is record " + std::to_string(firstUneven_));
    if (isEnough_)
      notes_.push_back("lines beyond the first " + std::to_string(count_) + " are left out, of totals as well");
    if (lines_.Count() == 0 && record_ > 2) notes_.push_back("no line of the file passes the conditions");
    return std::move(lines_);
  }

 private:
  // What is known about the values at one place of the lines.
  struct Column {
    explicit Column(const Field& itsField) : field(itsField) {}

    const Field& field;
    std::size_t unfit = 0;  // values that do not fit the field's type
    std::string firstUnfit = {};
    bool hasSingleDots = false;   // as in 1.234, read as thousands
    bool hasDecimalDots = false;  // as in 1234.5
  };

  // Records are counted from 1, including the one that names the fields; a record may span several lines.
  std::string Where() const { return file_ + ", record " + std::to_string(record_) + ": "; }

  // Finds the separator. Returns the first block without the marks that some programs put at the start.
  std::string_view Begin(std::string_view bytes) {
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
      throw Failure(file_ + " is UTF-16: it must be saved as UTF-8 or in code page 1252");
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    constexpr std::string_view kMark = "sep=";
    const std::size_t end = std::min(bytes.find_first_of("\r\n"), bytes.size());
    if (bytes.starts_with(kMark) && end == kMark.size() + 1) {
      separator_ = bytes[kMark.size()];
      bytes.remove_prefix(end);
    } else {
      separator_ = SeparatorOf(bytes);
    }
    csv_set_delim(&parser_, static_cast<unsigned char>(separator_));
    return bytes;
  }

  // Returns the separator that is most frequent in the first non-empty line.
  static char SeparatorOf(std::string_view bytes) {
    bytes.remove_prefix(std::min(bytes.find_first_not_of("\r\n"), bytes.size()));
    const std::string_view head = bytes.substr(0, bytes.find_first_of("\r\n"));
    char separator = ';';
    for (const char other : {',', '\t'}) {
      if (std::count(head.begin(), head.end(), other) > std::count(head.begin(), head.end(), separator))
        separator = other;
    }
    return separator;
  }

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

  // Called by C code, so no exception may escape.
  static void OnValue(void* value, std::size_t size, void* self) {
    static_cast<Reading*>(self)->Guard([&](Reading& reading) {
      reading.Value({static_cast<const char*>(value), size});
    });
  }
  static void OnEnd(int, void* self) {
    static_cast<Reading*>(self)->Guard([](Reading& reading) { reading.EndOfRecord(); });
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
    if (record_ == 1) {
      if (names_.size() == kMostNames) failure_ = Where() + "it names more than ten thousand columns";
      names_.push_back(Utf8(value));
    } else if (column_ < places_.size()) {
      if (places_[column_] != kNowhere) current_[places_[column_]] = Utf8(value);
    } else if (!value.empty()) {
      isTooLong_ = true;
    }
    ++column_;
  }

  void EndOfRecord() {
    if (record_ == 1) {
      FindPlaces();
    } else {
      Keep();
    }
    ++record_;
    column_ = 0;
    isTooLong_ = false;
    current_.assign(columns_.size(), {});
  }

  // A name is a code or an alias; a description counts only if no code or alias matches.
  void FindPlaces() {
    std::unordered_map<std::string, std::size_t> known;
    for (std::size_t place = 0; place < columns_.size(); ++place) {
      known.emplace(std::to_string(lines_.codes[place]), place);
      if (!columns_[place].field.alias.empty()) known.emplace(Folded(columns_[place].field.alias), place);
    }
    for (std::size_t place = 0; place < columns_.size(); ++place) {
      if (!columns_[place].field.description.empty()) known.emplace(Folded(columns_[place].field.description), place);
    }
    std::vector<bool> taken(columns_.size());
    for (const std::string& name : names_) {
      const auto found = known.find(Folded(name));
      const bool isNew = found != known.end() && !taken[found->second];
      places_.push_back(isNew ? found->second : kNowhere);
      if (isNew) taken[found->second] = true;
    }
    const bool takesAny = lines_.codes.size() == 1 && lines_.codes.front() == 0;  // a report of fixed columns
    if (!takesAny && std::find(taken.begin(), taken.end(), true) == taken.end()) FailWithoutFields();
  }

  void FailWithoutFields() {
    constexpr std::size_t kSome = 10;
    std::string wanted;
    for (std::size_t place = 0; place < std::min(columns_.size(), kSome); ++place)
      wanted += (place == 0 ? "" : ", ") + NameOf(columns_[place].field);
    failure_ = file_ + ": no column is named like a field of the report, by its alias, its code or its description (" +
               wanted + (columns_.size() > kSome ? ", …)" : ")");
  }

  void Keep() {
    if (isTooLong_ && separator_ == ',') {
      failure_ = Where() +
                 "it has more values than the first one; where commas separate values, a number with a "
                 "comma stands in quotation marks";
      return;
    }
    if (isTooLong_ || column_ < places_.size()) {
      if (uneven_++ == 0) firstUneven_ = record_;
    }
    for (std::size_t place = 0; place < current_.size(); ++place)
      Look(columns_[place], current_[place]);
    if (!filter_->Passes(current_.data())) return;
    if (lines_.Count() == count_) {
      isEnough_ = true;
      return;
    }
    for (std::string& value : current_) {
      kept_ += value.capacity() + sizeof(std::string);
      lines_.values.push_back(std::move(value));
    }
    if (kept_ > kMostKept) failure_ = Where() + "more than 1 GiB of values passes the filter; --rows takes fewer lines";
  }

  void Look(Column& column, std::string& value) const {
    if (column.field.type == KESTOR_Opcoes && !IsOption(column.field, value))
      value = CodeOfOption(column.field, std::move(value));
    if (!HasForm(column.field, value)) {
      if (column.unfit++ == 0)
        column.firstUnfit = text::Presentable(value.substr(0, 40)) + " in record " + std::to_string(record_);
    } else if (IsNumber(column.field.type) && value.find('.') != std::string::npos &&
               value.find(',') == std::string::npos) {
      const bool isSingle = value.find('.') == value.rfind('.');
      const Key key = KeyOf(column.field.type, value);
      const bool isDecimal = key != KeyOf(column.field.type, std::string(value).erase(value.find('.'), 1));
      column.hasDecimalDots = column.hasDecimalDots || isDecimal;
      column.hasSingleDots = column.hasSingleDots || (isSingle && !isDecimal);
    }
  }

  const std::string& file_;
  const std::size_t count_;
  std::vector<std::string>& notes_;
  Lines lines_;
  std::vector<Column> columns_;
  std::unique_ptr<Filter> filter_;
  csv_parser parser_{};
  char separator_ = ';';
  std::vector<std::string> names_;    // of the columns of the file
  std::vector<std::size_t> places_;   // the place in a line of each of these columns
  std::vector<std::string> current_;  // values of the current record
  std::size_t record_ = 1;
  std::size_t column_ = 0;
  bool isTooLong_ = false;  // the current record has values without a name
  std::size_t uneven_ = 0;
  std::size_t firstUneven_ = 0;
  std::size_t kept_ = 0;
  bool isEnough_ = false;
  bool isOutOfMemory_ = false;
  std::string failure_;
};

}  // namespace

Lines ReadCsv(const std::string& file, const CDocRelatorio& document, const Fields& fields, std::size_t count,
              std::vector<std::string>* notes, const std::function<void(std::uint64_t)>& progress) {
  Reading reading(file, document, fields, count, notes);
  reading.Read(progress);
  return reading.Take();
}

}  // namespace preview
