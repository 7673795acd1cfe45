#include "leftovers.h"

#include <ctime>

#include "reservation.h"

namespace files {
namespace {

constexpr time_t kSafeAge = 60;

void RemoveIfLeftBehind(const host::Descriptor& folder, const std::string& name) {
  struct stat status = {};
  if (host::StatLinkWithTimes(folder.Number(), name, &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (time(nullptr) - status.st_mtim.tv_sec < kSafeAge) return;
  RemoveIfAbandoned(folder, name);
}

}  // namespace

void RemoveLeftovers(const host::Descriptor& folder, const std::vector<std::string>& hiddenNames) {
  for (const std::string& name : hiddenNames) {
    if (IsReservationName(name)) RemoveIfLeftBehind(folder, name);
  }
}

}  // namespace files
