// What the server's interfaces do with files, one operation after the other, for attacks on each of them.
#pragma once

#include "../migration/conversion_fixture.h"
#include "history/history.h"

// Everything that a client can find in the reports folder: for each visible file (its name in upper case) what is read
// from it through a store, and what the stores list. A key that is missing counts as empty.
using State = std::map<std::string, std::string>;

struct Operation;

// A reports folder with models of both generations, and the objects that work on it.
class Station : public ConversionTest {
 public:
  Station();

  // The folder and the objects as they are before an operation. The folder is a new one: nothing is known of it.
  void Renew(const Operation& operation);
  // New objects, as a client has them after its server was killed.
  void Reconnect();

  // From now on the objects keep what they change in a history, which Renew empties.
  void KeepHistory();
  bool KeepsHistory() const { return bool{counter_.guard}; }

  // The models' files that are not what they were before the operation, and of which the history has no version that
  // is.
  std::vector<std::string> LostVersions() const;

  // Read through objects that are made for it. Nothing that is missing is made by looking at it.
  State Seen();

  std::vector<std::string> HiddenFiles() const;

  static const std::vector<Operation>& Operations();

 private:
  void Put(const std::string& file, const std::string& bytes) const { support::WriteFile(Reports() / file, bytes); }
  static std::string Content(const std::string& file, IZNPL_Relatorio2& store, IZNPL_Rel& rel);

  std::filesystem::path History() const { return Reports().string() + ".history"; }

  State files_;
  State before_;  // the bytes of all files, as they are before the operation
  history::Keeper keeper_;
  ComPtr<IZNPL_Relatorio2> store_;      // leaves the first generation alone
  ComPtr<IZNPL_Relatorio2> migrating_;  // not initialised
  ComPtr<IZNPL_RelConverte> converter_;
  Rel rel_;
};

struct Operation {
  using Beginnings = std::vector<std::string>;

  const char* name;
  std::function<std::string(Station&)> call;   // what it answers, beginning with the result's code
  Beginnings failures;                         // of what it may answer when it is disturbed
  std::function<void(Station&)> prepare = {};  // changes the folder before
  Beginnings untold = {};                      // of keys that its success may leave or its failure change
  Beginnings otherwise = {};                   // of keys that may come to be neither as before nor as undisturbed
  const char* unnoticed = "";                  // a system call whose failure it takes for nothing found
};
