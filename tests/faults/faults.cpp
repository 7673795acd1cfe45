#include "faults.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string_view>
#include <utility>

#include "platform/host/fault_point.h"

namespace faults {
namespace {

bool attacked = false;
Attack current;
int calls = 0;
int allocations = 0;
std::vector<std::size_t> noted;
bool reached = false;
bool struck = false;
const char* struckCall = "";

std::set<ino_t> unflushed;

std::atomic<int> leftToOthers = 0;
thread_local bool isAttacker = false;

host::Fate FateAtPlace(const char* call, std::size_t bytes) {
  reached = true;
  struckCall = call;
  if (current.kills) kill(getpid(), SIGKILL);
  struck = current.error != 0 || bytes > current.most;
  if (current.error != 0) return {.error = current.error};
  return current.most == 0 ? host::Fate{} : host::Fate{.most = current.most};
}

bool ChangesNames(std::string_view call) {
  return call.starts_with("renameat") || call.ends_with("linkat");
}

bool AllocationFails() {
  if (!isAttacker && leftToOthers > 0 && --leftToOthers == 0) return true;
  if (!attacked || ++allocations != current.allocation) return false;
  reached = struck = true;
  struckCall = "allocation";
  return true;
}

// While the books are kept, nothing is attacked.
template <typename Entry>
void Enter(const Entry& entry) {
  if (!attacked) return;
  attacked = false;
  entry();
  attacked = true;
}

void Note(int file) {
  Enter([&] {
    struct stat status {};
    if (fstat(file, &status) == 0) unflushed.insert(status.st_ino);
  });
}

int Flush(int file) {
  Enter([&] {
    struct stat status {};
    if (fstat(file, &status) == 0) unflushed.erase(status.st_ino);
  });
  return 0;
}

// The folders in which names changed; hidden names need not outlive anything.
int NoteNames(int result, std::initializer_list<std::pair<int, const char*>> names) {
  if (result != 0) return result;
  Enter([&] {
    for (const auto& [folder, path] : names) {
      const std::filesystem::path name(path);
      struct stat status {};
      if (name.filename().native().starts_with(".")) continue;
      const std::string parent = name.has_parent_path() ? name.parent_path().native() : ".";
      if (fstatat(folder, parent.c_str(), &status, 0) == 0) unflushed.insert(status.st_ino);
    }
  });
  return result;
}

}  // namespace

Strike Run(const Attack& attack, const std::function<void()>& operation) {
  current = attack;
  calls = allocations = 0;
  reached = struck = false;
  struckCall = "";
  noted.clear();
  unflushed.clear();
  attacked = true;
  operation();
  attacked = false;
  return {reached, struck, struckCall, noted, unflushed};
}

void StrikeOtherThreads(int place) {
  isAttacker = true;
  leftToOthers = place;
}

bool LeaveOtherThreads() {
  return leftToOthers.exchange(0) == 0;
}

}  // namespace faults

host::Fate host::FateOf(const char* call, std::size_t bytes) {
  using namespace faults;
  if (!attacked) return {};
  if (current.watches) noted.push_back(bytes);
  if (current.refusesRenaming && !ChangesNames(call)) return {};
  if (++calls == current.call) return FateAtPlace(call, bytes);
  if (current.refusesRenaming && std::string_view(call) == "renameat2") return {.error = EINVAL};
  if (struck && current.lasts) return {.error = current.error};
  if (!struck || bytes == 0 || current.errorBehind == 0) return {};
  return {.error = std::exchange(current.errorBehind, 0)};
}

// ---- Flushing and allocation ---------------------------------------------------------------------------------------

extern "C" {

// Processes are killed here, not the machine: what is flushed would only take time. That it is done is noted.
int __wrap_fsync(int file) {
  return faults::Flush(file);
}

int __wrap_fdatasync(int file) {
  return faults::Flush(file);
}

ssize_t __real_pwrite64(int file, const void* bytes, std::size_t count, off_t position);
int __real_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName);
int __real_renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags);
int __real_linkat(int oldFolder, const char* oldName, int newFolder, const char* newName, int flags);
int __real_unlinkat(int folder, const char* name, int flags);

ssize_t __wrap_pwrite64(int file, const void* bytes, std::size_t count, off_t position) {
  faults::Note(file);
  return __real_pwrite64(file, bytes, count, position);
}

int __wrap_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  return faults::NoteNames(__real_renameat(oldFolder, oldName, newFolder, newName),
                           {{oldFolder, oldName}, {newFolder, newName}});
}

int __wrap_renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags) {
  return faults::NoteNames(__real_renameat2(oldFolder, oldName, newFolder, newName, flags),
                           {{oldFolder, oldName}, {newFolder, newName}});
}

int __wrap_linkat(int oldFolder, const char* oldName, int newFolder, const char* newName, int flags) {
  return faults::NoteNames(__real_linkat(oldFolder, oldName, newFolder, newName, flags), {{newFolder, newName}});
}

int __wrap_unlinkat(int folder, const char* name, int flags) {
  return faults::NoteNames(__real_unlinkat(folder, name, flags), {{folder, name}});
}

void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);

void* __wrap_malloc(std::size_t bytes) {
  return faults::AllocationFails() ? nullptr : __real_malloc(bytes);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes) {
  return faults::AllocationFails() ? nullptr : __real_calloc(count, bytes);
}

void* __wrap_realloc(void* block, std::size_t bytes) {
  return faults::AllocationFails() ? nullptr : __real_realloc(block, bytes);
}

}  // extern "C"

namespace {

void* Allocate(std::size_t bytes) noexcept {
  return faults::AllocationFails() ? nullptr : __real_malloc(std::max<std::size_t>(bytes, 1));
}

void* Allocate(std::size_t bytes, std::align_val_t alignment) noexcept {
  const auto unit = static_cast<std::size_t>(alignment);
  return faults::AllocationFails() ? nullptr
                                   : std::aligned_alloc(unit, (std::max(bytes, unit) + unit - 1) / unit * unit);
}

void* OrThrow(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

// clang-format off
void* operator new(std::size_t n) { return OrThrow(Allocate(n)); }
void* operator new[](std::size_t n) { return OrThrow(Allocate(n)); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void* operator new(std::size_t n, std::align_val_t a) { return OrThrow(Allocate(n, a)); }
void* operator new[](std::size_t n, std::align_val_t a) { return OrThrow(Allocate(n, a)); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return Allocate(n, a); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return Allocate(n, a); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
// clang-format on
