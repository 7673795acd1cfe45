#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "files.h"
#include "journal.h"
#include "line.h"

namespace journal {
namespace {

constexpr std::size_t kBlock = std::size_t{256} << 10;

// A fragment and a whole line may share one line.
std::string_view LastStart(std::string_view line) {
  const std::size_t start = line.rfind(kLineStart);
  return start == std::string_view::npos ? std::string_view() : line.substr(start);
}

unsigned Highest(const Descriptor& folder) {
  std::vector<unsigned> older;
  return FindOlder(folder, &older) == 0 && !older.empty() ? older.back() : 0;
}

}  // namespace

Reader::Reader(const platform::Home& home) : home_(home) {}

void Reader::ReadNew(const std::function<void(std::string_view line)>& visit) {
  FindFiles();
  block_.resize(kBlock);
  std::vector<File> left;
  for (File& file : files_) {
    struct stat status = {};
    const bool isKnown = host::Stat(file.file, &status) == 0;
    if (isKnown && status.st_size < file.position) file.position = 0;  // it was emptied by hand
    // Nothing is appended to a file that is deleted.
    const bool isDeleted = isKnown && status.st_nlink == 0;
    ReadFrom(file, visit);
    if (!isDeleted) left.push_back(std::move(file));
  }
  files_ = std::move(left);
}

// Goes from the youngest file to the oldest, because a rotation moves files in this direction: it may meet a file
// twice, but never misses one.
void Reader::FindFiles() {
  const platform::ActingAsOwner owner(home_.Folder());
  struct stat status = {};
  const bool isUnchanged = !files_.empty() && host::StatLink(AT_FDCWD, home_.Folder() / FileName(0), &status) == 0 &&
                           host::SameFile(status, files_.back().identity);
  if (isUnchanged) return;
  Descriptor folder;
  if (const int error = host::OpenFolder(AT_FDCWD, home_.Folder(), &folder); error != 0) {
    if (error != ENOENT) Note(home_.Folder(), error);
    return;
  }
  std::vector<File> found;
  for (unsigned number = 0; number == 0 || number <= Highest(folder); ++number) {
    Descriptor file;
    const std::string name = FileName(number);
    const int error = OpenFile(folder.Number(), name, Access::reading, &file, &status);
    if (error != 0) {
      if (error != ENOENT) Note(name, error);
      continue;
    }
    const bool isKnown = IsKnown(status) || std::any_of(found.begin(), found.end(), [&status](const File& other) {
                           return host::SameFile(other.identity, status);
                         });
    if (!isKnown) found.push_back({std::move(file), status, name, 0});
  }
  std::move(found.rbegin(), found.rend(), std::back_inserter(files_));
}

bool Reader::IsKnown(const struct stat& file) const {
  return std::any_of(files_.begin(), files_.end(),
                     [&file](const File& known) { return host::SameFile(known.identity, file); });
}

void Reader::ReadFrom(File& file, const std::function<void(std::string_view)>& visit) {
  for (;;) {
    std::size_t read = 0;
    const int error = host::ReadAt(file.file, block_.data(), kBlock, file.position, &read);
    if (error != 0) return Note(file.name, error);
    std::string_view block(block_.data(), read);
    const std::size_t end = block.rfind('\n');
    if (end == std::string_view::npos) {
      // The end of the last line is not written yet. A full block without a newline is no line.
      if (read < kBlock) return;
      file.position += static_cast<off_t>(kBlock - kLongestLine);
      continue;
    }
    file.position += static_cast<off_t>(end + 1);
    for (block = block.substr(0, end + 1); !block.empty(); block.remove_prefix(block.find('\n') + 1)) {
      const std::string_view line = LastStart(block.substr(0, block.find('\n')));
      if (!line.empty() && line.size() < kLongestLine) visit(line);
    }
  }
}

void Reader::Note(const std::string& name, int error) {
  const std::string trouble = name + ": " + Reason(error);
  if (std::find(troubles_.begin(), troubles_.end(), trouble) == troubles_.end()) troubles_.push_back(trouble);
}

}  // namespace journal
