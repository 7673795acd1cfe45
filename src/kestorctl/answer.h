// What a command has found out, for people and for programs, and how it is told.
#pragma once

#include <csignal>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/com/com.h"

namespace kestorctl {

enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kWrongUsage = 2,
  kNotice = 3,
  kUnread = 128 + SIGPIPE,  // as a shell tells of other programs whose reader goes away
};

// A command fills in one answer; Deliver tells it. All texts are UTF-8, those for standard output any bytes.
struct Answer {
  bool json = false;  // one document for programs takes the place of `output`, and holds `note`

  HRESULT result = S_OK;
  std::string detail;  // more about `result` than its meaning says
  std::string error;   // tells a failure on this side of the server; `result` then only classes it
  bool wrongUsage = false;
  bool unread = false;  // nobody reads standard output any more

  std::size_t migrated = 0;  // first-generation models that were converted on the way
  bool incomplete = false;   // all is done but for something that stays as it was

  std::string output;  // for standard output
  std::string note;    // a line for standard error besides the one about the result
  nlohmann::ordered_json data = nlohmann::ordered_json::object();  // the members of the document besides the result

  int Status() const;
  void AddNote(const std::string& sentence);  // empty: none
};

// Names of models: one a line, and "names".
void TellNames(const std::vector<std::string>& names, Answer& answer);

// Writes what `output` holds by now, for a command that goes on for long. Deliver tells it when that fails.
void TellSoFar(Answer& answer);

// Writes standard output, then the lines for standard error. The process's exit status: that of the answer, or kUnread
// or kFailed when standard output does not take it whole.
int Deliver(const Answer& answer);

}  // namespace kestorctl
