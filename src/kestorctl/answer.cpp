#include "answer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "contract/results.h"
#include "platform/host/whole_file.h"

namespace kestorctl {

namespace {

using Json = nlohmann::ordered_json;

std::string ResultSentence(const Answer& answer) {
  const kestor::ResultText described = kestor::Describe(answer.result);
  std::string sentence = kestor::ResultCode(answer.result) + " " + described.name + ": " + described.meaning;
  if (!answer.detail.empty()) sentence += " (" + answer.detail + ")";
  return sentence;
}

std::string MigratedSentence(std::size_t count) {
  return (count == 1 ? "1 first-generation model became a report document"
                     : std::to_string(count) + " first-generation models became report documents") +
         "; see kestorctl log";
}

std::string Document(const Answer& answer) {
  Json document = {{"result", kestor::ResultCode(answer.result)}};
  if (!answer.error.empty()) {
    document["error"] = answer.error;
  } else if (answer.result != S_OK) {
    const kestor::ResultText described = kestor::Describe(answer.result);
    document["name"] = described.name;
    document["meaning"] = described.meaning;
    if (!answer.detail.empty()) document["detail"] = answer.detail;
  }
  if (!answer.note.empty()) document["note"] = answer.note;
  if (answer.migrated != 0) document["migrated"] = answer.migrated;
  document.update(answer.data);
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

// A file name with a line end in it must not look like a second line.
std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return text;
}

void Tell(const std::string& line) {
  // When standard error cannot be written, there is no other place for the message.
  host::WriteAll(STDERR_FILENO, OneLine(line) + "\n");
}

// Returns 0 or the error number.
int WriteStandardOutput(const std::string& bytes) {
  if (bytes.empty()) return 0;
  if (const int error = host::WriteAll(STDOUT_FILENO, bytes); error != 0) return error;
  // Some file systems report a full disk only on close.
  return close(STDOUT_FILENO) == 0 ? 0 : errno;
}

}  // namespace

int Answer::Status() const {
  if (wrongUsage) return kWrongUsage;
  if (!error.empty() || FAILED(result)) return kFailed;
  return result == S_OK && !incomplete ? kDone : kNotice;
}

void Answer::AddNote(const std::string& sentence) {
  if (!note.empty() && !sentence.empty()) note += "; ";
  note += sentence;
}

void TellNames(const std::vector<std::string>& names, Answer& answer) {
  answer.data["names"] = names;
  for (const std::string& name : names)
    answer.output += name + '\n';
}

void TellSoFar(Answer& answer) {
  if (!answer.json && host::WriteAll(STDOUT_FILENO, answer.output) == 0) answer.output.clear();
}

int Deliver(const Answer& answer) {
  const int unwritten = WriteStandardOutput(answer.json ? Document(answer) : answer.output);
  if (unwritten == 0 && !answer.json && !answer.note.empty()) Tell(answer.note);
  if (unwritten == 0 && !answer.json && answer.migrated != 0) Tell(MigratedSentence(answer.migrated));
  if (!answer.error.empty()) {
    Tell("kestorctl: " + answer.error);
  } else if (answer.result != S_OK) {
    Tell("kestorctl: " + ResultSentence(answer));
  }
  if (unwritten == 0) return answer.unread ? kUnread : answer.Status();
  if (unwritten == EPIPE) return kUnread;  // a reader that has seen enough needs no message
  Tell(std::string("kestorctl: cannot write standard output: ") + std::strerror(unwritten));
  return kFailed;
}

}  // namespace kestorctl
