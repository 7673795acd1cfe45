// Reserves a file name that is free, or whose file will be replaced as a whole.
#pragma once

#include <string>
#include <string_view>

#include "machines.h"
#include "platform/host/system.h"
#include "platform/kernel/kernel.h"
#include "share_lock.h"

namespace files {

// A hidden file in the folder of the name, locked by this opener. Only one opener at a time can reserve a name, in any
// letter case. The hidden file takes the name or is removed with the object. The next opener that reserves the name
// takes over a hidden file that a killed process left. That may be the file of the name itself: where the file system
// cannot rename without replacing, a new file has both names for a moment.
class Reservation {
 public:
  Reservation() = default;
  ~Reservation() { Cancel(); }
  Reservation(const Reservation&) = delete;
  Reservation& operator=(const Reservation&) = delete;

  // Reserves `name` (UTF-8) in `folder`, which must outlive the reservation, with an empty file that has the locks of
  // `mode`. Also takes the file's creation lock: others that reserve the same name wait until Settle and check again
  // then. `held` is a file that the caller has locked exclusively and that has the name or will get it, or none; if it
  // has the hidden name as well, it loses that. Returns 0; 32 when a reservation of the name conflicts with `mode`; or
  // another platform error number.
  DWORD Take(const host::Descriptor& folder, std::string_view name, const host::Descriptor& held, ShareMode mode);

  const host::Descriptor& File() const { return file_; }

  // Releases the creation lock, once it is certain that this opener may give the name.
  DWORD Settle() { return ReleaseCreationLock(file_); }

  // Give the file the name: one that is free (80 otherwise), or that of the file that it replaces.
  DWORD TakeFreeName(const std::string& name);
  DWORD ReplaceName(const std::string& name);

  // Hands over the file after it has its name, which ends the reservation.
  host::Descriptor Release() { return std::move(file_); }

  void Cancel() noexcept;

 private:
  DWORD TryTake(const std::string& hiddenName, const host::Descriptor& held, ShareMode mode, bool* isNew);
  DWORD CheckHiddenName() const;
  DWORD OpenHidden(const std::string& hiddenName, const host::Descriptor& held, bool* isNew);

  const host::Descriptor* folder_ = nullptr;
  host::Descriptor file_;
  std::string hiddenName_;  // empty once the file has another name
};

// Returns the hidden name that reserves the names whose folded form is `folded`.
std::string ReservationName(std::string_view folded);
bool IsReservationName(std::string_view hiddenName);

// True for a hidden file that has not been written to for so long that its writer has probably ended.
bool IsOld(const host::Descriptor& folder, const std::string& hiddenName);

// True when the name leads to the open file; a symbolic link does not.
bool LeadsTo(const host::Descriptor& folder, const std::string& name, const host::Descriptor& file);

// Removes a hidden file that no process has reserved, whichever user owns it. `held` is a file that the caller has
// locked exclusively, or none; it does not count as reserved. Returns 0; 32 when another process has reserved the file;
// kStartAnew when that is being decided or the file is gone; or another platform error number.
DWORD RemoveIfAbandoned(const host::Descriptor& folder, const std::string& hiddenName,
                        const host::Descriptor& held = {});

// Repeats an opening while it returns kStartAnew; 32 when it still does after kRounds attempts.
template <typename Opening>
DWORD UntilNotOvertaken(const Opening& opening) {
  constexpr int kRounds = 200;
  constexpr int kRoundsInHaste = 5;
  for (int round = 0; round < kRounds; ++round) {
    if (round >= kRoundsInHaste) host::PauseAtRandom();
    const DWORD error = opening();
    if (error != kStartAnew) return error;
  }
  return ERROR_SHARING_VIOLATION;
}

}  // namespace files
