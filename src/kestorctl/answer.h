// The answer of a command, for people and for programs, and how it is written.
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
  kUnread = 128 + SIGPIPE,  // as a shell reports a program that SIGPIPE has ended
};

// A command fills in one answer, and Deliver writes it. Texts are UTF-8, except that `output` may hold any bytes.
struct Answer {
  bool json = false;  // standard output gets one JSON document, with `note` in it, in place of `output`

  HRESULT result = S_OK;
  std::string detail;  // more about `result` than its meaning says
  std::string error;   // a failure on the client's side; `result` then only classifies it
  bool wrongUsage = false;
  bool unread = false;  // the reader of standard output has gone away

  std::size_t migrated = 0;  // first-generation models that were converted on the way
  bool incomplete = false;   // something was left or found: the exit status is kNotice even if `result` is S_OK

  std::string output;  // for standard output
  std::string note;    // a line for standard error besides the one about the result
  nlohmann::ordered_json data = nlohmann::ordered_json::object();  // the document's other members, such as "names"

  int Status() const;
  void AddNote(const std::string& sentence);  // an empty one adds nothing
};

// Puts names of models into the answer: one a line, and as "names".
void TellNames(const std::vector<std::string>& names, Answer& answer);

// Writes and clears `output`, so that a long command shows its results early. What it cannot write, it leaves to
// Deliver, which reports the failure. With `json` it does nothing.
void TellSoFar(Answer& answer);

// Writes standard output, then the lines for standard error. Returns the exit status of the process: kUnread when the
// reader of standard output has gone away, kFailed when standard output cannot be written, otherwise the answer's.
int Deliver(const Answer& answer);

}  // namespace kestorctl
