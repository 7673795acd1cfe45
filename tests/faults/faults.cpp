#include "faults.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include "support/system_calls.h"

namespace faults {
namespace {

thread_local bool attacked = false;
Attack attack;
Strike strike;
std::size_t calls = 0;
std::size_t allocations = 0;

std::mutex books;  // guards the notes on the calls of all threads

std::atomic<int> leftToOthers = 0;
thread_local bool isAttacker = false;

bool AllocationFails() {
  if (!isAttacker && leftToOthers > 0 && --leftToOthers == 0) return true;
  if (!attacked || ++allocations != attack.allocation) return false;
  strike.reached = strike.struck = true;
  strike.call = "allocation";
  return true;
}

bool ChangesNames(std::string_view call) {
  return call.starts_with("rename") || call.ends_with("linkat");
}

host::Fate FateAtPlace(const host::SystemCall& call) {
  strike.reached = true;
  strike.call = call.name;
  if (attack.kills) kill(getpid(), SIGKILL);
  strike.struck = attack.error != 0 || call.bytes > attack.most;
  if (attack.error != 0) return {.error = attack.error};
  return attack.most == 0 ? host::Fate{} : host::Fate{.most = attack.most};
}

host::Fate Decide(const host::SystemCall& call) {
  if (attack.refusesRenaming && !ChangesNames(call.name)) return {};
  if (++calls == attack.call) return FateAtPlace(call);
  if (attack.refusesRenaming && std::string_view(call.name) == "renameat2") return {.error = EINVAL};
  if (strike.struck && attack.lasts) return {.error = attack.error};
  return {.error = strike.struck && call.bytes != 0 ? std::exchange(attack.errorBehind, 0) : 0};
}

// Runs before each call.
void NoteWhatIsTooEarly(const host::SystemCall& call) {
  const std::string_view name = call.name;
  struct stat status {};
  const std::string_view file = call.path;
  if (name == "unlinkat" && (file.ends_with(".REL") || file.ends_with(".REE"))) {
    const std::string document = std::string(file.substr(0, file.find('.'))) + ".RXL";
    if (fstat(call.descriptor, &status) == 0 && strike.gained.contains({status.st_ino, document}))
      strike.tooEarly.insert(call.path);
  } else if (name.starts_with("rename") && *call.newPath != '.') {
    if (fstatat(call.descriptor, call.path, &status, 0) == 0 && strike.unflushed.contains(status.st_ino))
      strike.tooEarly.insert(call.newPath);
  }
}

// These tests kill processes, not the machine, so notes tell whether everything is flushed.
void Note(const host::SystemCall& call) {
  const std::string_view name = call.name;
  struct stat status {};
  if (name.ends_with("sync")) {
    if (fstat(call.descriptor, &status) == 0) {
      strike.unflushed.erase(status.st_ino);
      std::erase_if(strike.gained, [&](const auto& gained) { return gained.first == status.st_ino; });
    }
  } else if (name == "pwrite") {
    if (fstat(call.descriptor, &status) == 0) strike.unflushed.insert(status.st_ino);
  } else if (ChangesNames(name)) {
    // Hidden names need not survive a power failure.
    if (*call.path != '.' && fstat(call.descriptor, &status) == 0) strike.unflushed.insert(status.st_ino);
    if (call.newFolder >= 0 && *call.newPath != '.' && fstat(call.newFolder, &status) == 0) {
      strike.unflushed.insert(status.st_ino);
      strike.gained.emplace(status.st_ino, call.newPath);
    }
  }
}

// Attacks no allocation while taking notes. The thread that flushes a batch makes calls as well.
host::Fate Judge(const host::SystemCall& call) {
  const bool wasAttacked = std::exchange(attacked, false);
  const std::lock_guard guard(books);
  const host::Fate fate = Decide(call);
  if (fate.error == 0) NoteWhatIsTooEarly(call);
  if (fate.error == 0) Note(call);
  attacked = wasAttacked;
  return fate;
}

}  // namespace

const Strike& Book() {
  return strike;
}

Strike Run(const Attack& how, const std::function<void()>& operation) {
  attack = how;
  strike = {};
  calls = allocations = 0;
  const support::SystemCalls system(Judge);
  attacked = true;
  operation();
  attacked = false;
  return strike;
}

void StrikeOtherThreads(int place) {
  isAttacker = true;
  leftToOthers = place;
}

bool LeaveOtherThreads() {
  return leftToOthers.exchange(0) == 0;
}

}  // namespace faults

// ---- Allocation ----------------------------------------------------------------------------------------------------

// clang-format off
extern "C" {
void* __real_malloc(std::size_t n);
void* __real_calloc(std::size_t count, std::size_t n);
void* __real_realloc(void* p, std::size_t n);
void* __wrap_malloc(std::size_t n) { return faults::AllocationFails() ? nullptr : __real_malloc(n); }
void* __wrap_calloc(std::size_t count, std::size_t n) { return faults::AllocationFails() ? nullptr : __real_calloc(count, n); }
void* __wrap_realloc(void* p, std::size_t n) { return faults::AllocationFails() ? nullptr : __real_realloc(p, n); }
}

void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return __wrap_malloc(std::max<std::size_t>(n, 1)); }
void* operator new(std::size_t n) {
  if (void* const block = operator new(n, std::nothrow)) return block;
  throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
// clang-format on
