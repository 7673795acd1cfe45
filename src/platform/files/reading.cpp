#include "reading.h"

#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "files.h"

namespace files {
namespace {

std::atomic<std::uint64_t> ownChanges{0};

struct Reading {
  struct stat folder;
  std::uint64_t ownChangesBefore;
  std::chrono::steady_clock::time_point begun;
  std::string names;  // for each name, its type, the name and a NUL
};

thread_local bool readsOnce = false;
thread_local std::optional<Reading> kept;  // of the folder that was read last

bool IsUpToDate(const Reading& reading, const struct stat& folder) {
  return host::SameFile(reading.folder, folder) && host::SameTimes(reading.folder, folder) &&
         reading.ownChangesBefore == ownChanges;
}

int ReadKept(const host::Descriptor& folder, const VisitName& visit, std::chrono::steady_clock::time_point* begun) {
  struct stat status = {};
  if (const int error = host::StatNow(folder, &status); error != 0) return error;
  if (!kept || !IsUpToDate(*kept, status)) {
    kept.reset();
    Reading reading{status, ownChanges, *begun, {}};
    const int error = host::ReadNames(folder, [&](const char* name, unsigned char type) {
      reading.names.push_back(static_cast<char>(type));
      reading.names.append(name, strlen(name) + 1);
      visit(name, type);
    });
    if (error == 0) kept = std::move(reading);
    return error;
  }
  *begun = kept->begun;
  const char* const end = kept->names.data() + kept->names.size();
  for (const char* at = kept->names.data(); at != end; at += strlen(at) + 1) {
    const auto type = static_cast<unsigned char>(*at++);
    visit(at, type);
  }
  return 0;
}

}  // namespace

int ReadNamesOnce(const host::Descriptor& folder, const VisitName& visit) {
  auto begun = std::chrono::steady_clock::now();
  return readsOnce ? ReadKept(folder, visit, &begun) : host::ReadNames(folder, visit);
}

int ReadNames(const host::Descriptor& folder, const VisitName& visit, std::chrono::steady_clock::time_point* begun) {
  *begun = std::chrono::steady_clock::now();
  return readsOnce && !host::IsLocal(folder) ? ReadKept(folder, visit, begun) : host::ReadNames(folder, visit);
}

void NoteOwnChange() {
  ++ownChanges;
  kept.reset();  // stale, and some megabytes for a large folder
}

std::uint64_t OwnChanges() {
  return ownChanges;
}

OneReading::OneReading() : m_outermost(!readsOnce) {
  readsOnce = true;
}

OneReading::~OneReading() {
  if (!m_outermost) return;
  readsOnce = false;
  kept.reset();
}

}  // namespace files
