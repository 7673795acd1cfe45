#include <unistd.h>

#include <string>

#include "platform/host/system.h"
#include "platform/host/whole_file.h"
#include "platform/kernel/kernel.h"
#include "platform/text/text.h"

namespace {

constexpr std::size_t kMostBytes = std::size_t{16} << 20;  // more than the system allows for a command line

// Each followed by a NUL, as the system stores them.
std::string& GivenArguments() {
  static std::string arguments;
  return arguments;
}

std::string ReadProcessArguments() {
  std::string raw;
  host::Descriptor file;
  if (host::Open(AT_FDCWD, "/proc/self/cmdline", O_RDONLY, &file) == 0) host::ReadAll(file.Number(), kMostBytes, &raw);
  return raw.empty() ? GivenArguments() : raw;
}

std::string JoinCommandLine() {
  const std::string raw = ReadProcessArguments();
  std::string line;
  for (std::size_t start = 0; start < raw.size();) {
    std::size_t end = raw.find('\0', start);
    if (end == std::string::npos) end = raw.size();
    const std::string argument = raw.substr(start, end - start);
    if (!line.empty()) line += ' ';
    const bool quoted = argument.empty() || argument.find(' ') != std::string::npos;
    line += quoted ? '"' + argument + '"' : argument;
    start = end + 1;
  }
  return text::FromUtf8(line);
}

}  // namespace

void platform::SetArguments(int count, const char* const* arguments) {
  for (int i = 0; i < count; ++i)
    GivenArguments().append(arguments[i]).push_back('\0');
}

const char* GetCommandLineA() {
  static const std::string line = JoinCommandLine();
  return line.c_str();
}

std::string platform::ExecutablePath() {
  std::string path(4096, '\0');
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return path;
}
