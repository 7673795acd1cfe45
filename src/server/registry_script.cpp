#include "registry_script.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"

namespace kestor {

namespace {

struct Token {
  enum class Kind { end, word, quoted, mark };
  Kind kind = Kind::end;
  std::string value;  // of a quoted text: replaced
};

LONG SetText(HKEY key, const std::string& name, const std::string& text) {
  return RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>(text.size() + 1));
}

LONG DeleteIfThere(HKEY parent, const std::string& name) {
  const LONG result = RegDeleteTreeA(parent, name.c_str());
  return result == ERROR_FILE_NOT_FOUND ? static_cast<LONG>(ERROR_SUCCESS) : result;
}

HRESULT ToResult(LONG error) {
  return HRESULT_FROM_WIN32(static_cast<DWORD>(error));
}

}  // namespace

class RegistryScriptParser {
 public:
  RegistryScriptParser(std::string_view text, const RegistryScript::Replacements& replacements)
      : rest_(text), replacements_(replacements) {}

  bool Parse(RegistryScript* script) {
    if (!Advance() || token_.kind != Token::Kind::word) return false;
    std::string path;
    script->root_ = registry::SplitRoot(token_.value, &path);
    if (script->root_ == nullptr || !path.empty() || !Advance() || !IsMark('{')) return false;
    RegistryScript::Key top;
    if (!ParseBlock(0, &top) || !top.values.empty() || token_.kind != Token::Kind::end) return false;
    script->keys_ = std::move(top.keys);
    return true;
  }

 private:
  // Far deeper than any script, and far from the end of the stack.
  static constexpr int kMaxDepth = 32;

  bool IsMark(char mark) const { return token_.kind == Token::Kind::mark && token_.value[0] == mark; }
  bool IsWord(std::string_view word) const {
    return token_.kind == Token::Kind::word && text::EqualNoCase(token_.value, word);
  }

  // "{" (value | key)… "}"
  bool ParseBlock(int depth, RegistryScript::Key* key) {
    if (depth > kMaxDepth || !Advance()) return false;
    while (!IsMark('}')) {
      if (!(IsWord("val") ? ParseValue(key) : ParseKey(depth, key))) return false;
    }
    return Advance();
  }

  // "val" NAME "=" "s" TEXT
  bool ParseValue(RegistryScript::Key* key) {
    std::string name;
    std::string text;
    if (!Advance() || !TakeName(&name) || !ParseText(&text)) return false;
    key->values.emplace_back(std::move(name), std::move(text));
    return true;
  }

  // ["NoRemove" | "ForceRemove"] NAME ["=" "s" TEXT] ["{" … "}"]
  bool ParseKey(int depth, RegistryScript::Key* parent) {
    RegistryScript::Key key;
    key.noRemove = IsWord("NoRemove");
    key.forceRemove = IsWord("ForceRemove");
    if ((key.noRemove || key.forceRemove) && !Advance()) return false;
    if (!TakeName(&key.name)) return false;
    if (IsMark('=') && !ParseText(&key.defaultValue.emplace())) return false;
    if (IsMark('{') && !ParseBlock(depth + 1, &key)) return false;
    parent->keys.push_back(std::move(key));
    return true;
  }

  // An empty name would stand for the key above.
  bool TakeName(std::string* name) {
    if (token_.kind != Token::Kind::word && token_.kind != Token::Kind::quoted) return false;
    *name = token_.value;
    return !name->empty() && Advance();
  }

  // "=" "s" TEXT
  bool ParseText(std::string* text) {
    if (!IsMark('=') || !Advance() || !IsWord("s") || !Advance() || token_.kind != Token::Kind::quoted) return false;
    *text = token_.value;
    return Advance();
  }

  bool Advance() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
    token_ = Token{};
    if (rest_.empty()) return true;
    if (rest_.front() == '\'') return TakeQuoted();
    const std::size_t length = std::min(rest_.find_first_of(" \t\r\n'{}="), rest_.size());
    token_.kind = length == 0 ? Token::Kind::mark : Token::Kind::word;
    token_.value = rest_.substr(0, std::max<std::size_t>(length, 1));
    rest_.remove_prefix(token_.value.size());
    return true;
  }

  bool TakeQuoted() {
    token_.kind = Token::Kind::quoted;
    for (;;) {
      const std::size_t end = rest_.find('\'', 1);
      if (end == std::string_view::npos || !AppendReplaced(rest_.substr(1, end - 1))) return false;
      rest_.remove_prefix(end + 1);
      if (!rest_.starts_with('\'')) return true;
      token_.value += '\'';
    }
  }

  bool AppendReplaced(std::string_view text) {
    while (!text.empty()) {
      const std::size_t start = std::min(text.find('%'), text.size());
      token_.value += text.substr(0, start);
      text.remove_prefix(start);
      if (text.empty()) break;
      const std::size_t end = text.find('%', 1);
      if (end == std::string_view::npos || !AppendReplacement(text.substr(1, end - 1))) return false;
      text.remove_prefix(end + 1);
    }
    return true;
  }

  bool AppendReplacement(std::string_view name) {
    if (name.empty()) {
      token_.value += '%';
      return true;
    }
    const auto found = replacements_.find(name);
    if (found == replacements_.end()) return false;
    token_.value += found->second;
    return true;
  }

  std::string_view rest_;
  const RegistryScript::Replacements& replacements_;
  Token token_;
};

HRESULT RegistryScript::Parse(std::string_view text, const Replacements& replacements, RegistryScript* script) {
  return RegistryScriptParser(text, replacements).Parse(script) ? S_OK : E_INVALIDARG;
}

HRESULT RegistryScript::Add() const {
  for (const Key& key : keys_) {
    const LONG result = AddKey(root_, key);
    if (result != ERROR_SUCCESS) return ToResult(result);
  }
  return S_OK;
}

LONG RegistryScript::AddKey(HKEY parent, const Key& key) {
  if (key.forceRemove) {
    const LONG result = DeleteIfThere(parent, key.name);
    if (result != ERROR_SUCCESS) return result;
  }
  registry::OwnedKey opened;
  const LONG result = RegCreateKeyA(parent, key.name.c_str(), opened.Out());
  if (result != ERROR_SUCCESS) return result;
  return AddContent(opened.Get(), key);
}

LONG RegistryScript::AddContent(HKEY opened, const Key& key) {
  LONG result = ERROR_SUCCESS;
  if (key.defaultValue) result = SetText(opened, {}, *key.defaultValue);
  for (const auto& [name, text] : key.values) {
    if (result == ERROR_SUCCESS) result = SetText(opened, name, text);
  }
  for (const Key& below : key.keys) {
    if (result == ERROR_SUCCESS) result = AddKey(opened, below);
  }
  return result;
}

HRESULT RegistryScript::Remove() const {
  for (const Key& key : keys_) {
    const LONG result = RemoveKey(root_, key);
    if (result != ERROR_SUCCESS) return ToResult(result);
  }
  return S_OK;
}

LONG RegistryScript::RemoveKey(HKEY parent, const Key& key) {
  if (!key.noRemove) return DeleteIfThere(parent, key.name);
  registry::OwnedKey opened;
  LONG result = RegOpenKeyA(parent, key.name.c_str(), opened.Out());
  if (result == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (result != ERROR_SUCCESS) return result;
  for (const Key& below : key.keys) {
    if (result == ERROR_SUCCESS) result = RemoveKey(opened.Get(), below);
  }
  return result;
}

}  // namespace kestor
