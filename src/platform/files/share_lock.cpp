#include "share_lock.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "machines.h"
#include "platform/host/whole_file.h"

namespace files {
namespace {

using host::Descriptor;
using host::LockRange;

// The locked bytes lie far beyond any content. Openers with a writable descriptor hold:
//
//   reading, denying none       exclusive lock on one byte of kReaders
//   reading, denying writing    shared lock on kWriters
//   writing, denying none       exclusive lock on one byte of kWriters
//   writing, denying writing    exclusive lock on kWriters
//   denying both                exclusive lock on kReaders and kWriters
//
// and openers with a read-only descriptor:
//
//   reading, denying none       shared lock on one byte of kReaders
//   reading, denying writing    shared lock on kWriters
//   denying both                shared lock on kReaders, kWriters and kReadOnlyExclusive: keeps exclusive locks away;
//                               an opener with shared locks leaves again when it finds the last one held
constexpr off_t kOrigin = off_t{1} << 62;
constexpr LockRange kReaders = {kOrigin, off_t{1} << 32};
constexpr LockRange kWriters = {kReaders.start + kReaders.length, off_t{1} << 32};
constexpr LockRange kReadersAndWriters = {kReaders.start, kReaders.length + kWriters.length};
constexpr LockRange kCreation = {kOrigin - 1, 1};
constexpr LockRange kReadOnlyExclusive = {kOrigin - 2, 1};
constexpr LockRange kAllOfOpener = {kReadOnlyExclusive.start,
                                    kWriters.start + kWriters.length - kReadOnlyExclusive.start};
constexpr LockRange kGate = {kOrigin - (off_t{1} << 40), (off_t{1} << 40) - 2};

using Clock = std::chrono::steady_clock;

// The work inside the gate takes microseconds, and any process that may read the file can block the gate.
constexpr auto kGatePatience = std::chrono::milliseconds(200);
// A renaming holds the creation lock until it has flushed the folder.
constexpr auto kCreationPatience = std::chrono::seconds(2);

// Share modes need a file system that keeps locks.
DWORD LockError(int hostError) {
  switch (hostError) {
    case EOPNOTSUPP:
    case ENOSYS:
    case EINVAL:
      return ERROR_SHARING_BUFFER_EXCEEDED;
    default:
      return OpeningError(hostError);
  }
}

DWORD Lock(const Descriptor& file, short type, LockRange range) {
  return LockError(host::SetLock(file, type, range));
}

DWORD Unlock(const Descriptor& file, LockRange range) {
  return platform::OsError(host::SetLock(file, F_UNLCK, range));
}

LockRange OneByteOf(LockRange range) {
  const auto offset = static_cast<off_t>(host::Random() % static_cast<std::uint64_t>(range.length));
  return {range.start + offset, 1};
}

// True when another opener holds a lock in the range, or when that cannot be found out. `*start` is where the lock
// begins.
bool HeldByOther(const Descriptor& file, LockRange range, off_t* start = nullptr) {
  off_t found = -1;
  const int error = host::FindForeignLock(file, range, &found);
  if (start != nullptr) *start = found;
  return error != 0 || found >= 0;
}

// Repeats an attempt that another process may refuse for a short time.
template <typename Attempt>
DWORD Insist(Clock::time_point deadline, const Attempt& attempt) {
  for (;;) {
    const DWORD error = attempt();
    if (error != ERROR_SHARING_VIOLATION || Clock::now() > deadline) return error;
    host::PauseAtRandom();
  }
}

// The gate lets one opener at a time come to a final answer where shared locks alone would let two openers refuse each
// other. An opener with a writable descriptor locks the gate exclusively. One with a read-only descriptor takes a
// shared lock on a random byte of it, and is inside once no other lock is there: of several such openers, the one with
// the lowest byte stays, and the others back off and retry.
class Gate {
 public:
  Gate(const Descriptor& file, bool writable) : file_(file) {
    const auto deadline = Clock::now() + kGatePatience;
    error_ = Insist(deadline, [&] { return writable ? Lock(file_, F_WRLCK, kGate) : EnterAsReader(deadline); });
  }
  ~Gate() { Unlock(file_, kGate); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  DWORD Error() const { return error_; }

 private:
  DWORD EnterAsReader(Clock::time_point deadline) {
    const LockRange mine = OneByteOf(kGate);
    if (const DWORD error = Lock(file_, F_RDLCK, mine); error != ERROR_SUCCESS) return error;
    const LockRange upToMine = {kGate.start, mine.start + 1 - kGate.start};
    while (HeldByOther(file_, kGate)) {
      if (HeldByOther(file_, upToMine) || Clock::now() > deadline) {
        Unlock(file_, mine);
        return ERROR_SHARING_VIOLATION;
      }
      host::PauseAtRandom();
    }
    return ERROR_SUCCESS;
  }

  const Descriptor& file_;
  DWORD error_ = ERROR_SUCCESS;
};

DWORD LockShared(const Descriptor& file, bool writable, LockRange range) {
  if (const DWORD error = Lock(file, F_RDLCK, range); error != ERROR_SUCCESS) return error;
  if (!HeldByOther(file, kReadOnlyExclusive)) return ERROR_SUCCESS;

  // Another opener denies both by shared locks, or is about to: only inside the gate is the answer final.
  Unlock(file, range);
  const Gate gate(file, writable);
  if (gate.Error() != ERROR_SUCCESS) return gate.Error();
  if (const DWORD error = Lock(file, F_RDLCK, range); error != ERROR_SUCCESS) return error;
  if (!HeldByOther(file, kReadOnlyExclusive)) return ERROR_SUCCESS;
  Unlock(file, range);
  return ERROR_SHARING_VIOLATION;
}

DWORD LockReadOnlyExclusively(const Descriptor& file) {
  const Gate gate(file, false);
  if (gate.Error() != ERROR_SUCCESS) return gate.Error();
  // Checks for established openers before taking the locks, which would block others for a moment.
  if (HeldByOther(file, kReadersAndWriters)) return ERROR_SHARING_VIOLATION;
  DWORD error = Lock(file, F_RDLCK, kReadOnlyExclusive);
  if (error == ERROR_SUCCESS) error = Lock(file, F_RDLCK, kReadersAndWriters);
  if (error == ERROR_SUCCESS && HeldByOther(file, kReadersAndWriters)) error = ERROR_SHARING_VIOLATION;
  if (error != ERROR_SUCCESS) Unlock(file, kAllOfOpener);
  return error;
}

// For writable descriptors. A current opener refuses an exclusive lock at once. But the refusal may also come from an
// opener that denies both by shared locks and does not know yet whether it may stay. The second attempt is made inside
// the gate, where no such opener is under way.
template <typename Attempt>
DWORD LockExclusively(const Descriptor& file, const Attempt& attempt) {
  if (const DWORD error = attempt(); error != ERROR_SHARING_VIOLATION) return error;
  const Gate gate(file, true);
  return gate.Error() != ERROR_SUCCESS ? gate.Error() : attempt();
}

DWORD LockWhole(const Descriptor& file, LockRange range) {
  return LockExclusively(file, [&] { return Lock(file, F_WRLCK, range); });
}

// Locks one of many bytes. Another opener may have drawn the same one, so the lock is tried twice; an opener that
// excludes this one holds all the bytes.
DWORD LockOneByte(const Descriptor& file, LockRange range) {
  return LockExclusively(file, [&] {
    const DWORD error = Lock(file, F_WRLCK, OneByteOf(range));
    return error == ERROR_SHARING_VIOLATION ? Lock(file, F_WRLCK, OneByteOf(range)) : error;
  });
}

// True when one of an open file's locks covers every byte that openers lock, by the kernel's report on the file.
bool KeepsAllOthersAway(const std::string& report) {
  constexpr std::size_t kLongest = std::size_t{64} << 10;
  Descriptor file;
  std::string text;
  if (host::Open(AT_FDCWD, report, O_RDONLY, &file) != 0 || host::ReadAll(file.Number(), kLongest, &text) != 0) {
    return false;
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    // lock: 1: OFDLCK ADVISORY WRITE -1 fe:00:123 4611686018427387904 4611686027017322495
    std::istringstream words(line);
    std::string head, kind, end;
    off_t start = 0;
    words >> head >> head >> kind >> head >> head >> head >> head >> start >> end;
    const bool counts = line.starts_with("lock:") && (kind == "OFDLCK" || kind == "POSIX");
    if (!counts || !words || start > kReaders.start) continue;
    if (end == "EOF" || std::strtoll(end.c_str(), nullptr, 10) >= kReaders.start + kReadersAndWriters.length - 1) {
      return true;
    }
  }
  return false;
}

}  // namespace

DWORD TakeShareLock(const Descriptor& file, bool writable, ShareMode mode) {
  if (mode.denies == Denial::both) {
    return writable ? LockWhole(file, kReadersAndWriters) : LockReadOnlyExclusively(file);
  }
  if (mode.writes) return mode.denies == Denial::write ? LockWhole(file, kWriters) : LockOneByte(file, kWriters);
  if (mode.denies == Denial::write) return LockShared(file, writable, kWriters);
  return writable ? LockOneByte(file, kReaders) : LockShared(file, false, OneByteOf(kReaders));
}

DWORD ReleaseShareLock(const Descriptor& file) {
  return Unlock(file, kAllOfOpener);
}

bool IsHeldByOther(const Descriptor& file) {
  return HeldByOther(file, kReadersAndWriters);
}

std::string HolderOf(const std::string& path) {
  Descriptor processes;
  std::string holder;
  if (host::OpenFolder(AT_FDCWD, "/proc", &processes) != 0) return holder;
  host::ReadNames(processes, [&](const char* process, unsigned char) {
    const std::string folder = std::string("/proc/") + process;
    Descriptor open;
    if (!holder.empty() || *process < '0' || *process > '9') return;
    if (host::OpenFolder(AT_FDCWD, folder + "/fd", &open) != 0) return;
    host::ReadNames(open, [&](const char* number, unsigned char) {
      std::string target;
      if (host::ReadLink(folder + "/fd/" + number, &target) != 0 || target != path) return;
      if (KeepsAllOthersAway(folder + "/fdinfo/" + number)) holder = process;
    });
  });
  return holder;
}

DWORD TakeCreationLock(const Descriptor& file) {
  return Insist(Clock::now() + kCreationPatience, [&] { return TryCreationLock(file, true); });
}

DWORD TryCreationLock(const Descriptor& file, bool writable) {
  if (writable) return Lock(file, F_WRLCK, kCreation);
  // A shared lock keeps openers with writable descriptors away. A read-only opener has the right when it is alone.
  if (const DWORD error = Lock(file, F_RDLCK, kCreation); error != ERROR_SUCCESS) return error;
  if (!HeldByOther(file, kCreation)) return ERROR_SUCCESS;
  Unlock(file, kCreation);
  return ERROR_SHARING_VIOLATION;
}

DWORD ReleaseCreationLock(const Descriptor& file) {
  return Unlock(file, kCreation);
}

}  // namespace files
