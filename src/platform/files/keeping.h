// Lets a keeper save the content of files before a change destroys it.
#pragma once

#include <string>

#include "platform/host/descriptor.h"

namespace files {

// A file that is about to be replaced, removed or rewritten. It does not change while Keep runs.
struct LeavingFile {
  enum class Way {
    replaced,  // another file takes its name
    removed,
    rewritten  // the file stays, and its content is overwritten: only a copy preserves it
  };

  Way way = Way::replaced;
  std::string name;                                 // UTF-8, without folder
  const platform::Descriptor& file;                 // open for reading
  const platform::Descriptor* folder = nullptr;     // the folder that holds `entry`; null when it is rewritten
  std::string entry = {};                           // its name on disk; differs from `name` if that is a symbolic link
  const platform::Descriptor* successor = nullptr;  // the complete file that replaces it; otherwise null
};

class Keeper {
 public:
  // Called before the change, which is made whether Keep succeeds or not.
  virtual void Keep(const LeavingFile& leaving) noexcept = 0;
  // Called when the change that Keep was last called for was not made.
  virtual void Drop() noexcept = 0;
  // Called when a file was created where none was. The file is complete, or still to be written.
  virtual void SeeNew(const std::string& name, const platform::Descriptor& file, bool isComplete) noexcept = 0;
  // Returns, for people, why files were not kept since the last call; empty when all were.
  virtual std::string TakeTrouble() { return {}; }

 protected:
  ~Keeper() = default;
};

// While an object lives, its keeper is called for the files that its thread changes. A nested object does nothing, nor
// does one without a keeper.
class Keeping {
 public:
  explicit Keeping(Keeper* keeper);
  ~Keeping();
  Keeping(const Keeping&) = delete;
  Keeping& operator=(const Keeping&) = delete;

  bool IsOutermost() const { return outermost_; }

  // Returns the thread's keeper, or null.
  static Keeper* Current();

 private:
  const bool outermost_;
};

}  // namespace files
