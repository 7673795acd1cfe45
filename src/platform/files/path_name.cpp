#include "path_name.h"

#include <algorithm>
#include <array>
#include <optional>

#include "files.h"
#include "platform/home/home.h"
#include "platform/text/text.h"

namespace files {
namespace {

constexpr std::string_view kSeparators = "\\/";
constexpr std::size_t kLongestName = 255;

bool IsSeparator(char c) {
  return kSeparators.find(c) != std::string_view::npos;
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool HasDrive(std::string_view text) {
  if (text.size() < 2 || text[1] != ':') return false;
  const char letter = text::UpperChar(text[0]);
  return letter >= 'A' && letter <= 'Z';
}

struct Share {
  std::string_view host;
  std::string_view name;
};

// Removes \\HOST\SHARE and the separator after it from the start of a path. Nothing if the path does not start so.
std::optional<Share> TakeShare(std::string_view* text) {
  if (text->size() < 2 || !IsSeparator((*text)[0]) || !IsSeparator((*text)[1])) return std::nullopt;
  text->remove_prefix(2);
  Share share;
  for (std::string_view* part : {&share.host, &share.name}) {
    const std::size_t end = std::min(text->find_first_of(kSeparators), text->size());
    *part = text->substr(0, end);
    text->remove_prefix(std::min(end + 1, text->size()));
  }
  return share;
}

// A host of one letter would be mapped to the folder of a drive.
bool IsMappable(const Share& share) {
  return share.host.size() > 1 && IsPlatformName(share.host) && IsPlatformName(share.name);
}

std::string Lowered(std::string_view name) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(), text::LowerChar);
  return text::ToUtf8(lower);
}

std::string FolderOf(const Share& share) {
  return platform::Home::Current().Mapped(Lowered(share.host) + "/" + Lowered(share.name));
}

std::string_view WithoutTrailingBlanksAndDots(std::string_view component) {
  return component.substr(0, component.find_last_not_of(" .") + 1);
}

bool HasRefusedCharacter(std::string_view name, std::string_view refused) {
  return std::any_of(name.begin(), name.end(), [&](char c) {
    return static_cast<unsigned char>(c) < 0x20 || refused.find(c) != std::string_view::npos;
  });
}

// CON.TXT is the console as well.
bool IsDeviceName(std::string_view name) {
  static constexpr std::array<std::string_view, 4> kDevices = {"CON", "PRN", "AUX", "NUL"};
  std::string_view stem = name.substr(0, name.find('.'));
  stem = stem.substr(0, stem.find_last_not_of(' ') + 1);
  if (stem.size() == 3) {
    return std::any_of(kDevices.begin(), kDevices.end(), [&](auto device) { return text::EqualNoCase(stem, device); });
  }
  if (stem.size() != 4 || stem[3] < '1' || stem[3] > '9') return false;
  return text::EqualNoCase(stem.substr(0, 3), "COM") || text::EqualNoCase(stem.substr(0, 3), "LPT");
}

DWORD CheckName(std::string_view name) {
  if (name.empty() || HasRefusedCharacter(name, "<>:\"|?*") || IsDeviceName(name) || IsHidden(name)) {
    return ERROR_INVALID_NAME;
  }
  return name.size() > kLongestName ? ERROR_FILENAME_EXCED_RANGE : ERROR_SUCCESS;
}

DWORD StepUp(PathName* path) {
  if (path->path.size() == path->base) return ERROR_PATH_NOT_FOUND;
  const std::size_t separator = path->path.rfind('/');
  path->path.resize(separator == std::string::npos ? 0 : separator);
  return ERROR_SUCCESS;
}

DWORD StepInto(std::string_view component, PathName* path) {
  if (component.empty() || component == ".") return ERROR_SUCCESS;
  if (component == "..") return StepUp(path);
  const std::string_view name = WithoutTrailingBlanksAndDots(component);
  if (const DWORD error = CheckName(name); error != ERROR_SUCCESS) return error;
  if (!path->path.empty()) path->path += '/';
  if (IsAscii(name)) {
    path->path += name;
  } else {
    path->path += text::ToUtf8(name);
  }
  return ERROR_SUCCESS;
}

DWORD Translate(std::string_view text, PathName* path, std::string_view* refused = nullptr) {
  path->meansFolder = !text.empty() && IsSeparator(text.back());
  if (HasDrive(text)) {
    path->path = platform::Home::Current().Drive(text[0]);
    path->base = path->path.size();
    text.remove_prefix(2);
  } else if (const std::optional<Share> share = TakeShare(&text)) {
    if (!IsMappable(*share)) return ERROR_PATH_NOT_FOUND;
    path->path = FolderOf(*share);
    path->base = path->path.size();
  } else if (!text.empty() && IsSeparator(text.front())) {
    return ERROR_PATH_NOT_FOUND;
  }
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(kSeparators), text.size());
    if (const DWORD error = StepInto(text.substr(0, end), path); error != ERROR_SUCCESS) {
      if (refused != nullptr) *refused = text.substr(0, end);
      return error;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (path->path.size() == path->base) {
    if (path->base == 0) path->path.assign(1, '.');
    path->name = path->path.size();
  } else {
    path->name = path->path.rfind('/') + 1;
  }
  return ERROR_SUCCESS;
}

}  // namespace

std::string PathName::Folder() const {
  if (!HasName()) return path;
  return name == 0 ? "." : path.substr(0, name - 1);
}

DWORD TranslatePath(std::string_view text, PathName* path, std::string_view* refused) {
  if (text.empty()) return ERROR_PATH_NOT_FOUND;
  *path = {};
  return Translate(text, path, refused);
}

DWORD TranslatePattern(std::string_view text, PathName* folder, std::string* pattern) {
  std::size_t split = text.find_last_of(kSeparators) + 1;
  if (split == 0 && HasDrive(text)) split = 2;
  const std::string_view names = WithoutTrailingBlanksAndDots(text.substr(split));
  if (names.empty() || HasRefusedCharacter(names, "<>:\"|")) return ERROR_INVALID_NAME;
  *pattern = names;
  *folder = {};
  return Translate(text.substr(0, split), folder);
}

bool IsPlatformName(std::string_view name) {
  const bool isOneName = name.find('\\') == std::string_view::npos;
  return isOneName && CheckName(name) == ERROR_SUCCESS && name.back() != '.' && name.back() != ' ';
}

bool MappingOf(std::string_view path, std::string* name, std::string* folder) {
  if (HasDrive(path)) {
    *name = {text::UpperChar(path[0]), ':'};
    *folder = platform::Home::Current().Drive(path[0]);
    return true;
  }
  const std::optional<Share> share = TakeShare(&path);
  if (!share || !IsMappable(*share)) return false;
  *name = "\\\\" + std::string(share->host) + "\\" + std::string(share->name);
  *folder = FolderOf(*share);
  return true;
}

bool IsHidden(std::string_view name) {
  return name.starts_with(kHiddenPrefix.front()) &&
         text::EqualNoCase(name.substr(0, kHiddenPrefix.size()), kHiddenPrefix);
}

bool FoldName(std::string_view name, std::string* folded) {
  if (IsAscii(name)) {
    folded->resize(name.size());
    std::transform(name.begin(), name.end(), folded->begin(), text::UpperChar);
    return true;
  }
  std::string ansi;
  if (!text::FromUtf8Exactly(name, &ansi)) return false;
  *folded = text::Upper(ansi);
  return true;
}

}  // namespace files
