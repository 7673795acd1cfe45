#include "type_library_text.h"

#include <charconv>

#include "platform/text/text.h"

namespace com {

namespace {

// One step of a description: a word (name, keyword or number), a text in quotes, or a single punctuation mark.
struct LibraryToken {
  enum class Kind { end, word, text, mark };
  Kind kind = Kind::end;
  std::string value;

  bool IsMark(char mark) const { return kind == Kind::mark && value[0] == mark; }
};

// Takes a description apart. White space, comments and lines that start with '#' lie between the steps.
class LibraryScanner {
 public:
  explicit LibraryScanner(std::string_view text) : rest_(text) {}

  // False at something that no description holds: a text or comment without end, a control character.
  bool Next(LibraryToken* token) {
    if (!SkipBetween()) return false;
    *token = LibraryToken{};
    if (rest_.empty()) return true;
    if (rest_.front() == '"') return TakeText(token);
    const std::size_t length = WordLength();
    if (length == 0 && (rest_.front() < '!' || rest_.front() > '~')) return false;
    token->kind = length == 0 ? LibraryToken::Kind::mark : LibraryToken::Kind::word;
    token->value = Take(length == 0 ? 1 : length);
    return true;
  }

 private:
  static bool IsWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
  }

  std::string_view Take(std::size_t count) {
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(taken.size());
    return taken;
  }

  // An identity is one word, although hyphens part its digits.
  std::size_t WordLength() const {
    std::size_t length = 0;
    while (length < rest_.size() && (IsWordCharacter(rest_[length]) || (length > 0 && rest_[length] == '-')))
      ++length;
    return length;
  }

  bool SkipBetween() {
    while (!rest_.empty()) {
      if (std::string_view(" \t\r\n").find(rest_.front()) != std::string_view::npos) {
        rest_.remove_prefix(1);
      } else if (rest_.starts_with("//") || rest_.starts_with('#')) {
        Take(rest_.find('\n'));
      } else if (rest_.starts_with("/*")) {
        const std::size_t end = rest_.find("*/", 2);
        if (end == std::string_view::npos) return false;
        rest_.remove_prefix(end + 2);
      } else {
        break;
      }
    }
    return true;
  }

  bool TakeText(LibraryToken* token) {
    token->kind = LibraryToken::Kind::text;
    rest_.remove_prefix(1);
    while (!rest_.empty() && rest_.front() != '"') {
      if (rest_.front() == '\\') rest_.remove_prefix(1);
      if (rest_.empty() || static_cast<unsigned char>(rest_.front()) < ' ') return false;
      token->value += Take(1);
    }
    return !Take(1).empty();
  }

  std::string_view rest_;
};

class LibraryReader {
 public:
  explicit LibraryReader(std::string_view text) : scanner_(text) {}

  // Nothing when the text does not describe a library: "[" attributes "]" "library" NAME "{" … "}" [";"].
  std::optional<LibraryHead> Read() {
    LibraryHead head;
    if (!Advance() || !ReadAttributes(&head) || !TakeWord("library")) return std::nullopt;
    if (token_.kind != LibraryToken::Kind::word) return std::nullopt;
    head.name = token_.value;
    if (!Advance() || !SkipBody()) return std::nullopt;
    if (token_.IsMark(';') && !Advance()) return std::nullopt;
    if (token_.kind != LibraryToken::Kind::end || !hasIdentity_ || !hasVersion_) return std::nullopt;
    return head;
  }

 private:
  bool Advance() { return scanner_.Next(&token_); }
  bool TakeMark(char mark) { return token_.IsMark(mark) && Advance(); }
  bool TakeWord(std::string_view word) {
    return token_.kind == LibraryToken::Kind::word && token_.value == word && Advance();
  }

  bool ReadAttributes(LibraryHead* head) {
    if (!TakeMark('[')) return false;
    while (ReadAttribute(head)) {
      if (token_.IsMark(']')) return Advance();
      if (!TakeMark(',')) return false;
    }
    return false;
  }

  // NAME or NAME "(" VALUE ")".
  bool ReadAttribute(LibraryHead* head) {
    if (token_.kind != LibraryToken::Kind::word) return false;
    const std::string name = token_.value;
    LibraryToken value;
    if (!Advance()) return false;
    if (token_.IsMark('(')) {
      if (!Advance()) return false;
      value = token_;
      if (!Advance() || !TakeMark(')')) return false;
    }
    return Enter(name, value, head);
  }

  bool Enter(const std::string& name, const LibraryToken& value, LibraryHead* head) {
    if (name == "uuid") {
      hasIdentity_ = true;
      return GuidFromText("{" + value.value + "}", &head->guid);
    }
    if (name == "version") {
      hasVersion_ = true;
      return EnterVersion(value.value, head);
    }
    if (name == "lcid") return Number(value.value, &head->lcid);
    if (name == "helpstring") {
      head->helpString = value.value;
      return value.kind == LibraryToken::Kind::text;
    }
    return true;
  }

  // MAJOR or MAJOR.MINOR.
  static bool EnterVersion(std::string_view version, LibraryHead* head) {
    const std::size_t point = version.find('.');
    if (!Number(version.substr(0, point), &head->majorVersion)) return false;
    return point == std::string_view::npos || Number(version.substr(point + 1), &head->minorVersion);
  }

  template <typename T>
  static bool Number(std::string_view digits, T* number) {
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), *number);
    return error == std::errc() && end == digits.data() + digits.size();
  }

  // From the body's opening brace to behind its closing one: a description that was cut off is none.
  bool SkipBody() {
    if (!token_.IsMark('{')) return false;
    for (std::size_t depth = 0;;) {
      if (token_.IsMark('{')) ++depth;
      if (token_.IsMark('}') && --depth == 0) return Advance();
      if (token_.kind == LibraryToken::Kind::end || !Advance()) return false;
    }
  }

  LibraryScanner scanner_;
  LibraryToken token_;
  bool hasIdentity_ = false;
  bool hasVersion_ = false;
};

}  // namespace

std::optional<LibraryHead> ReadLibraryHead(std::string_view description) {
  if (!text::IsValidUtf8(description)) return std::nullopt;
  return LibraryReader(description).Read();
}

}  // namespace com
