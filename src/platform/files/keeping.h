// What is kept of files before a change takes their content away.
#pragma once

#include <string>

#include "platform/host/descriptor.h"

namespace files {

// A file that is about to be replaced, removed or rewritten. It stays as it is while it is kept.
struct LeavingFile {
  enum class Way {
    replaced,  // another file takes its name
    removed,
    rewritten  // the file stays, and its content is overwritten: only a copy keeps it
  };

  Way way = Way::replaced;
  std::string name;                                 // UTF-8, without folder
  const platform::Descriptor& file;                 // open for reading
  const platform::Descriptor* folder = nullptr;     // where `entry` is its name on the disk; null when it is rewritten
  std::string entry = {};                           // differs from `name` where that is a symbolic link
  const platform::Descriptor* successor = nullptr;  // the file that replaces it, complete; otherwise null
};

class Keeper {
 public:
  // Called before the change. Whether it succeeds makes no difference to the change.
  virtual void Keep(const LeavingFile& leaving) noexcept = 0;
  // The change that Keep was last called for was not made.
  virtual void Drop() noexcept = 0;
  // A file has been made where none was; it is complete, or still to be written to.
  virtual void SeeNew(const std::string& name, const platform::Descriptor& file, bool isComplete) noexcept = 0;
  // Why files were not kept since this was asked last, for people; empty when all were.
  virtual std::string TakeTrouble() { return {}; }

 protected:
  ~Keeper() = default;
};

// While one lives, a keeper is called for the files that its thread changes. One within another does nothing; neither
// does one without a keeper.
class Keeping {
 public:
  explicit Keeping(Keeper* keeper);
  ~Keeping();
  Keeping(const Keeping&) = delete;
  Keeping& operator=(const Keeping&) = delete;

  bool IsOutermost() const { return outermost_; }

  // The thread's keeper; null when there is none.
  static Keeper* Current();

 private:
  const bool outermost_;
};

}  // namespace files
