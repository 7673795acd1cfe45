// The operations of the server's interfaces on files, for attacks on each of them.
#pragma once

#include "../migration/conversion_fixture.h"
#include "history/history.h"

// Everything that a client can find in the reports folder: for each visible file, by upper-case name, what a store
// reads from it; and what the stores list. A missing key counts as empty.
using State = std::map<std::string, std::string>;

struct Operation;

// A reports folder with models of both generations, and the objects that work on it.
class Station : public ConversionTest {
 public:
  Station();

  // Restores the folder and the objects as they are before an operation. The folder is a new one, so nothing is cached
  // for it.
  void Renew(const Operation& operation);
  // Makes new objects, as a client gets them after its server was killed.
  void Reconnect();

  // From now on the objects keep what they change in a history. Renew empties it.
  void KeepHistory();
  bool KeepsHistory() const { return bool{counter_.guard}; }

  // Returns the model files that the operation has changed and whose former content is not in the history.
  std::vector<std::string> LostVersions() const;

  // Reads the state through objects of its own. Reading creates nothing.
  State Seen();

  std::vector<std::string> HiddenFiles() const;

  static const std::vector<Operation>& Operations();

 private:
  void Put(const std::string& file, const std::string& bytes) const { support::WriteFile(Reports() / file, bytes); }
  static std::string Content(const std::string& file, IZNPL_Relatorio2& store, IZNPL_Rel& rel);

  std::filesystem::path History() const { return Reports().string() + ".history"; }

  State files_;
  State before_;  // the bytes of all files before the operation
  history::Keeper keeper_;
  ComPtr<IZNPL_Relatorio2> store_;      // leaves the first generation alone
  ComPtr<IZNPL_Relatorio2> migrating_;  // not initialised
  ComPtr<IZNPL_RelConverte> converter_;
  Rel rel_;
};

struct Operation {
  using Beginnings = std::vector<std::string>;

  const char* name;
  std::function<std::string(Station&)> call;   // returns the answer, which starts with the result code
  Beginnings failures;                         // of permitted answers if it is disturbed
  std::function<void(Station&)> prepare = {};  // changes the folder beforehand
  Beginnings untold = {};                      // of keys that its success may leave unchanged or its failure may change
  Beginnings otherwise = {};                   // of keys that may end up neither as before nor as undisturbed
  const char* unnoticed = "";                  // a system call whose failure looks like nothing found
};
