// The reservation of a file name that is free, or whose file is to be replaced as a whole.
#pragma once

#include <string>
#include <string_view>

#include "machines.h"
#include "platform/host/system.h"
#include "platform/kernel/kernel.h"
#include "share_lock.h"

namespace files {

// A hidden file in the folder of the name, locked by this opening. One opening at a time has the reservation of a name,
// in whatever letter case; its file takes the name or goes with the object. What a killed process left under the hidden
// name belongs to the next reserver. That may be the file of the name itself: where the file system cannot rename
// without replacing, a new file has both names for a moment.
class Reservation {
 public:
  Reservation() = default;
  ~Reservation() { Cancel(); }
  Reservation(const Reservation&) = delete;
  Reservation& operator=(const Reservation&) = delete;

  // Reserves `name` (UTF-8) in `folder`, which must outlive the reservation, with an empty file that has the locks of
  // `mode`. The reserver also has the file's creation lock: others that reserve the same name wait until Settle and
  // look then. `held` is a file that the caller holds exclusively and that has the name or is to get it, or none; when
  // it has the hidden name as well, it loses that. 0; 32 when a reservation of the name conflicts with `mode`; or
  // another platform error number.
  DWORD Take(const host::Descriptor& folder, std::string_view name, const host::Descriptor& held, ShareMode mode);

  const host::Descriptor& File() const { return file_; }

  // Lets go of the creation lock: it is certain now that the name is this opening's to give.
  DWORD Settle() { return ReleaseCreationLock(file_); }

  // Gives the file the name, which is free (80 otherwise) or that of the file which it replaces.
  DWORD TakeFreeName(const std::string& name);
  DWORD ReplaceName(const std::string& name);

  // The file, after it has its name: the reservation is over.
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

// The hidden name under which a name whose folded form this is gets reserved.
std::string ReservationName(std::string_view folded);
bool IsReservationName(std::string_view hiddenName);

// True for a hidden file that nobody has written to for so long that its writer is not likely to be at work.
bool IsOld(const host::Descriptor& folder, const std::string& hiddenName);

// True when the name leads to the open file; a symbolic link does not.
bool LeadsTo(const host::Descriptor& folder, const std::string& name, const host::Descriptor& file);

// Removes a hidden file that no process has reserved, whichever user owns it. `held` is a file that the caller holds
// exclusively, or none; it counts as not reserved. 0; 32 when another process has reserved the file; kStartAnew when
// that is about to be decided; or another platform error number.
DWORD RemoveIfAbandoned(const host::Descriptor& folder, const std::string& hiddenName,
                        const host::Descriptor& held = {});

// Repeats an opening until it is not overtaken by others; 32 when that happens all the time.
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
