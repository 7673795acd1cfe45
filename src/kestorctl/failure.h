// The exceptions with which a command ends early.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/com/com.h"

namespace kestorctl {

// A failure on the client's side. `what()` is the line for people, UTF-8.
class LocalFailure : public std::runtime_error {
 public:
  explicit LocalFailure(const std::string& text, HRESULT result = E_FAIL) : std::runtime_error(text), result_(result) {}

  HRESULT Result() const { return result_; }

 private:
  HRESULT result_;
};

// The command line is wrong. `what()` as above.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kestorctl
