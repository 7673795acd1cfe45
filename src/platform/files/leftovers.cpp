#include "leftovers.h"

#include "reservation.h"

namespace files {

void RemoveLeftovers(const host::Descriptor& folder, const std::vector<std::string>& hiddenNames) {
  for (const std::string& name : hiddenNames) {
    if (IsReservationName(name) && IsOld(folder, name)) RemoveIfAbandoned(folder, name);
  }
}

}  // namespace files
