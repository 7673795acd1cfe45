// What the server's interfaces do with files, one operation after the other, for attacks on each of them.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "../migration/conversion_fixture.h"

// Everything that a client can find in the reports folder: for each visible file (its name in upper case) what is read
// from it through a store, and what the stores list. A key that is missing counts as empty.
using State = std::map<std::string, std::string>;

inline std::string At(const State& state, const std::string& key) {
  const auto found = state.find(key);
  return found == state.end() ? std::string() : found->second;
}

struct Operation;

// Thousands of homes are made: they lie in memory where that can be.
struct HomesInMemory {
  HomesInMemory() {
    if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 0);
  }
};

// A reports folder with models of both generations, and the objects that work on it.
class Station : private HomesInMemory, public ConversionTest {
 public:
  Station();

  // The folder and the objects as they are before an operation. The folder is a new one: nothing is known of it.
  void Renew(const Operation& operation);
  // New objects, as a client has them after its server was killed.
  void Reconnect();

  // Read through objects that are made for it. Nothing that is missing is made by looking at it.
  State Seen();

  std::vector<std::string> HiddenFiles() const;
  void AgeHiddenFiles() const;  // beyond the time for which they might still be somebody's

  static const std::vector<Operation>& Operations();

 private:
  void Put(const std::string& file, const std::string& bytes) const { support::WriteFile(Reports() / file, bytes); }
  void Remove(const std::string& file) const { std::filesystem::remove(Reports() / file); }
  std::string Content(const std::string& file, IZNPL_Relatorio2& store, IZNPL_Rel& rel) const;

  std::map<std::string, std::string> files_;
  ComPtr<IZNPL_Relatorio2> store_;      // leaves the first generation alone
  ComPtr<IZNPL_Relatorio2> migrating_;  // not initialised
  ComPtr<IZNPL_RelConverte> converter_;
  ComPtr<IZNPL_Rel> rel_;
};

struct Operation {
  const char* name;
  std::function<void(Station&)> prepare;      // changes the folder before
  std::function<std::string(Station&)> call;  // what it answers, beginning with the result's code
  std::vector<std::string> failures;          // beginnings of what it may answer when it is disturbed
  // Beginnings of the keys that its success may leave as they were, or its failure change: what is not told.
  std::vector<std::string> untold = {};
  // Beginnings of the keys that it may leave otherwise than they were and than it leaves them undisturbed.
  std::vector<std::string> otherwise = {};
  bool migrates = false;       // a model goes only when its document is there
  std::string unnoticed = {};  // a system call whose failure it takes for nothing found
};
