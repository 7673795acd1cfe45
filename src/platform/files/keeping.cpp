#include "keeping.h"

namespace files {
namespace {

thread_local Keeper* current = nullptr;

}  // namespace

Keeping::Keeping(Keeper* keeper) : outermost_(keeper != nullptr && current == nullptr) {
  if (outermost_) current = keeper;
}

Keeping::~Keeping() {
  if (outermost_) current = nullptr;
}

Keeper* Keeping::Current() {
  return current;
}

}  // namespace files
