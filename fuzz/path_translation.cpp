// Whatever the text, its path stays below the folder of the drive or share, or below the current directory, and
// consists of permitted names.
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/files/files.h"
#include "platform/home/home.h"

namespace {

// A home in which nothing exists, so that paths depend only on their text.
const std::string& Drives() {
  static const std::string drives = [] {
    const std::filesystem::path home = std::filesystem::temp_directory_path() / "kestor-fuzz-no-such-home";
    platform::Home::Use(home);
    std::string folder = platform::Home::Current().Drive('d');
    folder.pop_back();
    return folder;
  }();
  return drives;
}

void Require(bool condition) {
  if (!condition) abort();
}

void CheckComponent(std::string_view component) {
  Require(!component.empty() && component != ".." && component != ".");
  Require(component.front() != '.' || component.substr(0, 8) != ".kestor-");
  Require(component.back() != '.' && component.back() != ' ');
  for (const char c : component) {
    Require(static_cast<unsigned char>(c) >= 0x20 && std::string_view("<>:\"|?*\\/").find(c) == std::string_view::npos);
  }
}

// Takes the first name of a path and the separator after it.
std::string_view TakeComponent(std::string_view* path) {
  const std::size_t end = std::min(path->find('/'), path->size());
  const std::string_view component = path->substr(0, end);
  CheckComponent(component);
  path->remove_prefix(std::min(end + 1, path->size()));
  return component;
}

void CheckPath(std::string_view path) {
  if (path == ".") return;
  Require(!path.empty() && path.back() != '/');
  if (path.front() == '/') {
    Require(path.substr(0, Drives().size()) == Drives());
    path.remove_prefix(Drives().size());
    const std::string_view drive = TakeComponent(&path);
    if (drive.size() == 1) {
      Require(drive[0] >= 'a' && drive[0] <= 'z');
    } else {
      TakeComponent(&path);
    }
  }
  while (!path.empty())
    TakeComponent(&path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Drives();
  const std::string text(data, data + size);
  std::string path;
  if (files::HostPath(text.c_str(), &path) == 0) CheckPath(path);
  return 0;
}
