#include "reg_format.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "platform/text/text.h"
#include "utf16_bytes.h"

namespace registry {
namespace {

constexpr std::string_view kAnsiHeader = "REGEDIT4";
constexpr std::string_view kUnicodeHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

bool IsText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char letter = text::LowerChar(c);
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

std::string DwordBytes(std::uint32_t number) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8)
    bytes += static_cast<char>(number >> shift & 0xFF);
  return bytes;
}

// ---- From the bytes of a file to UTF-8 ---------------------------------------------------------------------------

std::size_t LineOf(std::string_view text, std::size_t position) {
  return 1 +
         static_cast<std::size_t>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(position), '\n'));
}

std::string DecodeUtf16(std::string_view bytes, const std::string& file) {
  const std::u16string units = Utf16Units(bytes);
  std::string utf8 = text::Utf16ToUtf8(units);
  if (bytes.size() % 2 != 0) throw FormatError(file, LineOf(utf8, utf8.size()), "half a UTF-16 character at the end");
  const std::u16string again = text::Utf8ToUtf16(utf8);
  if (again == units) return utf8;
  const auto end = std::mismatch(units.begin(), units.end(), again.begin()).first;
  throw FormatError(file, 1 + static_cast<std::size_t>(std::count(units.begin(), end, u'\n')), "malformed UTF-16");
}

void CheckUtf8(std::string_view utf8, const std::string& file) {
  if (text::IsValidUtf8(utf8)) return;
  std::size_t line = 1;
  while (text::IsValidUtf8(utf8.substr(0, utf8.find('\n')))) {
    utf8.remove_prefix(utf8.find('\n') + 1);
    ++line;
  }
  throw FormatError(file, line, "malformed UTF-8");
}

struct Decoded {
  std::string utf8;  // from the header on
  bool isAnsi = false;
};

std::string_view FirstLine(std::string_view text) {
  std::string_view line = text.substr(0, text.find('\n'));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  while (!line.empty() && IsBlank(line.back()))
    line.remove_suffix(1);
  return line;
}

Decoded Decode(std::string_view bytes, const std::string& file) {
  Decoded decoded;
  if (bytes.starts_with(kUtf16Mark)) {
    decoded.utf8 = DecodeUtf16(bytes.substr(kUtf16Mark.size()), file);
  } else if (bytes.starts_with(kBigEndianMark)) {
    throw FormatError(file, 1, "UTF-16 with the high byte first is not read");
  } else if (FirstLine(bytes) == kAnsiHeader) {
    decoded = {text::ToUtf8(bytes), true};
  } else {
    if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
    CheckUtf8(bytes, file);
    decoded.utf8 = bytes;
  }
  const std::size_t nul = decoded.utf8.find('\0');
  if (nul != std::string::npos) throw FormatError(file, LineOf(decoded.utf8, nul), "a NUL character");
  if (!decoded.isAnsi && FirstLine(decoded.utf8) != kUnicodeHeader) {
    throw FormatError(
        file, 1,
        "the file must begin with \"" + std::string(kUnicodeHeader) + "\" or \"" + std::string(kAnsiHeader) + "\"");
  }
  return decoded;
}

// ---- From UTF-8 to the tree --------------------------------------------------------------------------------------

// Returns whether a path starts with a root of the desktop that this registry does not have.
bool IsForeignRoot(std::string_view path) {
  constexpr std::array<std::string_view, 8> kForeign = {
      "HKEY_CURRENT_USER",     "HKCU",         "HKEY_USERS", "HKU", "HKEY_CURRENT_CONFIG", "HKCC",
      "HKEY_PERFORMANCE_DATA", "HKEY_DYN_DATA"};
  const std::string_view root = path.substr(0, path.find('\\'));
  return std::any_of(kForeign.begin(), kForeign.end(),
                     [root](std::string_view foreign) { return text::EqualNoCase(root, foreign); });
}

class Parser {
 public:
  Parser(const Decoded& decoded, const std::string& file, Purpose purpose, Tree* tree, const Redirection* redirection)
      : rest_(decoded.utf8), isAnsi_(decoded.isAnsi), file_(file), purpose_(purpose), tree_(*tree) {
    if (redirection == nullptr) return;
    AppendNames(redirection->from, &from_);
    AppendNames(redirection->to, &to_);
  }

  // Parses the whole file. Returns how many sections were redirected.
  std::size_t Run() {
    NextLine();  // the header
    while (!rest_.empty())
      ParseLine();
    return redirected_;
  }

 private:
  enum class Section {
    none,     // before the first key
    key,      // values go to key_
    foreign,  // values are read and dropped
    deleted,  // values are errors
  };

  [[noreturn]] void Fail(std::size_t line, const std::string& reason) const { throw FormatError(file_, line, reason); }
  [[noreturn]] void Fail(const std::string& reason) const { Fail(line_, reason); }

  bool At(char c) const { return !rest_.empty() && rest_.front() == c; }
  bool AtLineEnd() const { return rest_.empty() || At('\n') || rest_.starts_with("\r\n"); }

  void SkipBlanks() {
    while (!rest_.empty() && IsBlank(rest_.front()))
      rest_.remove_prefix(1);
  }

  bool Take(char c) {
    if (!At(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool TakeWord(std::string_view word) {
    if (!text::EqualNoCase(rest_.substr(0, word.size()), word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }

  std::string_view RestOfLine() const {
    std::string_view line = rest_.substr(0, rest_.find('\n'));
    if (line.size() < rest_.size() && line.ends_with('\r')) line.remove_suffix(1);
    return line;
  }

  void NextLine() {
    const std::size_t end = rest_.find('\n');
    rest_ = end == std::string_view::npos ? std::string_view() : rest_.substr(end + 1);
    if (end != std::string_view::npos) ++line_;
  }

  // Ends the line. Only blanks and a comment may be left on it.
  void EndLine() {
    SkipBlanks();
    if (!AtLineEnd() && !At(';')) Fail("unexpected text");
    NextLine();
  }

  void ParseLine() {
    SkipBlanks();
    if (At('[')) {
      ParseSection();
    } else if (At('"') || At('@')) {
      ParseValue();
    }
    EndLine();
  }

  void ParseSection() {
    const std::string_view line = RestOfLine();
    const std::size_t close = FindClosingBracket(line);
    if (close == std::string_view::npos) Fail("a key without a closing bracket at its end");
    std::string_view name = line.substr(1, close - 1);
    const bool deletion = name.starts_with('-');
    if (deletion) name.remove_prefix(1);
    EnterSection(name, deletion);
    rest_.remove_prefix(close + 1);
  }

  void EnterSection(std::string_view name, bool deletion) {
    KeyPath path;
    std::string_view below = name;
    if (!TakeRoot(&below, &path.root)) {
      if (purpose_ != Purpose::import || !IsForeignRoot(name))
        Fail("no key below HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT");
      section_ = Section::foreign;
      return;
    }
    if (!AppendNames(below, &path.names)) Fail("a malformed key name");
    if (path.root == Root::machine) Redirect(&path.names);
    if (!deletion) {
      key_ = &tree_.FindOrMake(path, &keysMade_);
      section_ = Section::key;
      if (keysMade_ > kMaxKeys) Fail("too many keys");
      return;
    }
    CheckDeletion();
    if (path.names.empty()) Fail("a root cannot be deleted");
    tree_.Remove(path);
    section_ = Section::deleted;
  }

  void Redirect(std::vector<std::string>* names) {
    if (from_.empty() || names->size() < from_.size()) return;
    const auto rest = names->begin() + static_cast<std::ptrdiff_t>(from_.size());
    const bool isBelow = std::equal(names->begin(), rest, from_.begin(),
                                    [](const auto& name, const auto& from) { return Folded(name) == Folded(from); });
    if (!isBelow) return;
    names->insert(names->erase(names->begin(), rest), to_.begin(), to_.end());
    ++redirected_;
  }

  void CheckDeletion() const {
    if (purpose_ != Purpose::import) Fail("a deletion has its place only in a file to import");
  }

  void ParseValue() {
    if (section_ == Section::none) Fail("a value before the first key");
    if (section_ == Section::deleted) Fail("a value below a key that is deleted");
    const std::size_t firstLine = line_;
    const std::string name = Take('@') ? std::string() : TakeQuoted();
    if (!IsValueName(name)) Fail(firstLine, "a malformed value name");
    SkipBlanks();
    if (!Take('=')) Fail("a value name without '='");
    SkipBlanks();
    if (Take('-')) {
      CheckDeletion();
      if (section_ == Section::key) key_->values.Remove(name);
      return;
    }
    Value data = TakeData();
    if (section_ != Section::key) return;
    const std::size_t before = key_->values.InOrder().size();
    Value& value = key_->values.FindOrMake(name);
    value.type = data.type;
    value.data = std::move(data.data);
    valuesMade_ += key_->values.InOrder().size() - before;
    if (valuesMade_ > kMaxValues) Fail(firstLine, "too many values");
  }

  // Takes a text in double quotes, including any line ends in it.
  std::string TakeQuoted() {
    const std::size_t firstLine = line_;
    std::string quoted;
    Take('"');
    while (!Take('"')) {
      if (rest_.empty()) Fail(firstLine, "a text without its closing quote");
      if (Take('\\') && !At('\\') && !At('"')) Fail("a backslash in a text must be doubled or stand before a quote");
      if (At('\n')) ++line_;
      quoted += rest_.front();
      rest_.remove_prefix(1);
    }
    return quoted;
  }

  // Takes type and data of a value. The name stays empty.
  Value TakeData() {
    if (At('"')) return {{}, REG_SZ, Utf16Bytes(text::Utf8ToUtf16(TakeQuoted()) + u'\0')};
    if (TakeWord("dword:")) return {{}, REG_DWORD, DwordBytes(TakeHexNumber(8))};
    if (!TakeWord("hex")) Fail("data of no known form");
    DWORD type = REG_BINARY;
    if (Take('(')) {
      type = TakeHexNumber(8);
      if (!Take(')')) Fail("a type without its closing parenthesis");
    }
    if (!Take(':')) Fail("'hex' without ':'");
    std::string bytes = TakeHexBytes();
    if (isAnsi_ && IsText(type)) bytes = Utf16Bytes(text::ToUtf16(bytes));
    return {{}, type, std::move(bytes)};
  }

  std::uint32_t TakeHexNumber(std::size_t maxDigits) {
    std::uint32_t number = 0;
    std::size_t digits = 0;
    for (; !rest_.empty() && HexDigit(rest_.front()) >= 0; ++digits) {
      number = number << 4 | static_cast<std::uint32_t>(HexDigit(rest_.front()));
      rest_.remove_prefix(1);
    }
    if (digits == 0 || digits > maxDigits)
      Fail("1 to " + std::to_string(maxDigits) + " hexadecimal digits must stand here");
    return number;
  }

  // Takes bytes separated by commas. After a comma, a backslash may continue the data on the next line.
  std::string TakeHexBytes() {
    std::string bytes;
    bool mustGoOn = false;
    while (true) {
      SkipBlanks();
      if (Take('\\')) {
        EndLine();
        mustGoOn = true;
        continue;
      }
      if (AtLineEnd() || At(';')) {
        if (mustGoOn) Fail("the data breaks off");
        return bytes;
      }
      bytes += static_cast<char>(TakeHexNumber(2));
      SkipBlanks();
      if (!Take(',')) return bytes;
      mustGoOn = true;
    }
  }

  std::string_view rest_;
  const bool isAnsi_;
  const std::string& file_;
  const Purpose purpose_;
  Tree& tree_;

  std::size_t line_ = 1;
  Section section_ = Section::none;
  Key* key_ = nullptr;
  std::size_t keysMade_ = 0;
  std::size_t valuesMade_ = 0;
  std::vector<std::string> from_;  // empty: nothing is redirected
  std::vector<std::string> to_;
  std::size_t redirected_ = 0;
};

// ---- From the tree to UTF-8 --------------------------------------------------------------------------------------

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void AppendHex(std::uint32_t number, unsigned digits, std::string* out) {
  while (digits > 0)
    *out += "0123456789abcdef"[number >> 4 * --digits & 0xF];
}

// Returns false when the data can only be written as bytes because it is not exactly one terminated text of one line.
bool AsPlainText(std::string_view data, std::string* text) {
  const std::u16string units = Utf16Units(data);
  if (units.empty() || units.size() * 2 != data.size()) return false;
  if (units.find_first_of(std::u16string_view(u"\0\r\n", 3)) != units.size() - 1 || units.back() != u'\0') return false;
  *text = text::Utf16ToUtf8({units.data(), units.size() - 1});
  return text::Utf8ToUtf16(*text) + u'\0' == units;  // false with half a surrogate pair
}

void AppendHexBytes(const Value& value, std::string* out) {
  constexpr std::size_t kLineWidth = 77;
  std::size_t width = out->size() - (out->rfind('\n') + 1);
  for (std::size_t i = 0; i < value.data.size(); ++i) {
    if (i > 0) *out += ',';
    if (i > 0 && (width += 3) > kLineWidth) {
      *out += "\\\n  ";
      width = 2;
    }
    AppendHex(static_cast<unsigned char>(value.data[i]), 2, out);
  }
}

void AppendValue(const Value& value, std::string* out) {
  *out += value.name.empty() ? "@" : Quoted(value.name);
  *out += '=';
  std::string text;
  if (value.type == REG_SZ && AsPlainText(value.data, &text)) {
    *out += Quoted(text);
  } else if (value.type == REG_DWORD && value.data.size() == 4) {
    *out += "dword:";
    for (std::size_t i = 4; i > 0; --i)
      AppendHex(static_cast<unsigned char>(value.data[i - 1]), 2, out);
  } else {
    *out += "hex";
    if (value.type != REG_BINARY) {
      unsigned digits = 1;
      while (digits < 8 && value.type >> 4 * digits != 0)
        ++digits;
      *out += '(';
      AppendHex(value.type, digits, out);
      *out += ')';
    }
    *out += ':';
    AppendHexBytes(value, out);
  }
  *out += '\n';
}

// Writes no section for a key without values if the keys below it imply it.
void AppendKey(const std::string& path, const Key& key, std::string* out) {
  if (!key.values.Empty() || key.subkeys.Empty()) {
    *out += "\n[" + path + "]\n";
    for (const auto& value : key.values.InOrder())
      AppendValue(*value, out);
  }
  for (const auto& subkey : key.subkeys.InOrder())
    AppendKey(path + '\\' + subkey->name, *subkey, out);
}

}  // namespace

FormatError::FormatError(const std::string& file, std::size_t line, const std::string& reason)
    : std::runtime_error(file + ':' + std::to_string(line) + ": " + reason) {}

std::size_t ParseInto(std::string_view bytes, const std::string& file, Purpose purpose, Tree* tree,
                      const Redirection* redirection) {
  const Decoded decoded = Decode(bytes, file);
  return Parser(decoded, file, purpose, tree, redirection).Run();
}

std::string Format(const Tree& tree) {
  std::string text = std::string(kUnicodeHeader) + '\n';
  for (const Root root : {Root::machine, Root::classes}) {
    const Key& key = *tree.Find({root, {}});
    if (!key.values.Empty() || !key.subkeys.Empty()) AppendKey(key.name, key, &text);
  }
  return text;
}

std::string Format(const Tree& tree, const KeyPath& path) {
  std::string text = std::string(kUnicodeHeader) + '\n';
  KeyPath above{path.root, {}};
  std::string fullName = tree.Find(above)->name;
  for (const std::string& name : path.names) {
    above.names.push_back(name);
    fullName += '\\' + tree.Find(above)->name;
  }
  AppendKey(fullName, *tree.Find(path), &text);
  return text;
}

std::string ToDesktopEncoding(std::string_view text) {
  std::u16string units = u"\uFEFF";
  for (const char16_t unit : text::Utf8ToUtf16(text)) {
    if (unit == u'\n') units += u'\r';
    units += unit;
  }
  return Utf16Bytes(units);
}

}  // namespace registry
