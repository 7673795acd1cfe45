#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "files.h"
#include "leftovers.h"
#include "lookup.h"
#include "platform/text/text.h"
#include "reading.h"
#include "replacement_group.h"

namespace files {
namespace {

// A pattern of names. Pattern and names are in upper case.
class Pattern {
 public:
  explicit Pattern(std::string_view pattern) : pattern_(text::Upper(pattern)) {
    const auto isLiteral = [](char c) { return c != '*' && c != '?' && static_cast<unsigned char>(c) < 0x80; };
    // The ASCII characters that every matching name begins with are the same in any encoding of the name. A dot before
    // a `*` is optional.
    start_ = std::find_if_not(pattern_.begin(), pattern_.end(), isLiteral) - pattern_.begin();
    if (start_ > 0 && pattern_[Start() - 1] == '.') --start_;
    for (std::size_t c = 0; c < upper_.size(); ++c)
      upper_[c] = c < 0x80 ? text::UpperChar(static_cast<char>(c)) : '\0';
  }

  // Returns how many characters all matching names have in common at the beginning.
  std::size_t Start() const { return static_cast<std::size_t>(start_); }

  // A quick check of a name in UTF-8: false for most names that do not match.
  bool CanMatch(const char* name) const {
    for (std::size_t i = 0; i < Start(); ++i) {
      if (upper_[static_cast<unsigned char>(name[i])] != pattern_[i]) return false;
    }
    return true;
  }

  bool Matches(std::string_view name) const {
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t star = std::string::npos;
    std::size_t starName = 0;
    while (n < name.size()) {
      if (p < pattern_.size() && pattern_[p] == '*') {
        star = p++;
        starName = n;
      } else if (p < pattern_.size() && (pattern_[p] == '?' || pattern_[p] == name[n])) {
        ++p;
        ++n;
      } else if (star != std::string::npos) {
        p = star + 1;
        n = ++starName;
      } else {
        return false;
      }
    }
    return MatchesNothing(std::string_view(pattern_).substr(p));
  }

 private:
  // `.*` stands for any extension and for none.
  static bool MatchesNothing(std::string_view rest) {
    if (rest.substr(0, 2) == ".*") rest.remove_prefix(1);
    return rest.find_first_not_of('*') == std::string_view::npos;
  }

  std::string pattern_;
  std::ptrdiff_t start_ = 0;
  std::array<char, 256> upper_ = {};
};

class Search {
 public:
  explicit Search(std::string_view pattern) : pattern_(pattern) {}

  // Collects the names and sorts them. False when the folder cannot be read.
  bool Run(const host::Descriptor& folder) {
    std::vector<std::string> hidden;
    const auto consider = [&](const char* name, unsigned char type) {
      if (IsHidden(name)) {
        hidden.emplace_back(name);
      } else if (pattern_.CanMatch(name)) {
        Consider(folder, name, type);
      }
    };
    const int error = ReadNamesOnce(folder, consider);
    std::sort(matches_.begin(), matches_.end(), [this](std::size_t a, std::size_t b) {
      const Match first = At(a);
      const Match second = At(b);
      return std::tie(first.sortText, first.name) < std::tie(second.sortText, second.name);
    });
    RemoveLeftovers(folder, hidden);
    return error == 0;
  }

  bool Deliver(_finddata_t* found) {
    if (next_ == matches_.size()) return false;
    const Match match = At(matches_[next_++]);
    found->attrib = match.isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0;
    found->name[match.name.copy(found->name, sizeof found->name - 1)] = '\0';
    return true;
  }

 private:
  struct Match {
    std::string_view sortText;
    std::string_view name;
    bool isFolder;
  };

  Match At(std::size_t place) const {
    const std::string_view sortText = texts_.data() + place + 1;
    return {sortText, sortText.data() + sortText.size() + 1, texts_[place] != 'f'};
  }

  void Consider(const host::Descriptor& folder, const char* name, unsigned char type) {
    if (!FoldName(name, &folded_) || !pattern_.Matches(folded_)) return;
    name_.assign(name);
    if (name_.size() != folded_.size()) text::FromUtf8Exactly(name, &name_);
    bool isFolder = type == DT_DIR;
    if (!IsPlatformName(name_) || !(isFolder || IsFile(folder, name, type, &isFolder))) return;

    // The desktop sorts by code points, and UTF-8 keeps their order.
    if (name_.size() != strlen(name)) folded_ = text::ToUtf8(folded_);
    matches_.push_back(texts_.size());
    texts_ += isFolder ? 'd' : 'f';
    texts_.append(folded_).append(1, '\0').append(name_).append(1, '\0');
  }

  // True for files and, with `*isFolder` set, for folders. Pipes, devices and the like cannot be opened.
  static bool IsFile(const host::Descriptor& folder, const char* name, unsigned char type, bool* isFolder) {
    if (type == DT_REG) return true;
    if (type != DT_UNKNOWN && type != DT_LNK) return false;
    struct stat status = {};
    if (host::Stat(folder.Number(), name, &status) != 0) return false;
    *isFolder = S_ISDIR(status.st_mode);
    return *isFolder || S_ISREG(status.st_mode);
  }

  Pattern pattern_;
  std::string texts_;                 // for each match: a letter for the kind, the sorting text, a NUL, the name, a NUL
  std::vector<std::size_t> matches_;  // where each match begins in texts_
  std::size_t next_ = 0;
  std::string name_;    // of the current entry, in code page 1252
  std::string folded_;  // the same in upper case, then its sorting text
};

Search* OfHandle(std::intptr_t handle) {
  if (handle == -1) return nullptr;
  // The handle is the address of the search, because the platform's type for it is a number.
  return reinterpret_cast<Search*>(handle);  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace
}  // namespace files

std::intptr_t _findfirst(const char* pattern, _finddata_t* found) {
  files::PathName path;
  std::string names;
  if (files::TranslatePattern(files::TextOf(pattern), &path, &names) != ERROR_SUCCESS) return -1;
  files::FinishGroup();
  files::FolderHandle folder;
  if (files::OpenWholeFolder(path, &folder) != ERROR_SUCCESS) return -1;
  auto search = std::make_unique<files::Search>(names);
  if (!search->Run(folder) || !search->Deliver(found)) return -1;
  return reinterpret_cast<std::intptr_t>(search.release());
}

int _findnext(std::intptr_t handle, _finddata_t* found) {
  files::Search* const search = files::OfHandle(handle);
  return search != nullptr && search->Deliver(found) ? 0 : -1;
}

int _findclose(std::intptr_t handle) {
  const std::unique_ptr<files::Search> search(files::OfHandle(handle));
  return search != nullptr ? 0 : -1;
}
