// What ends a command before the server has answered.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/com/com.h"

namespace kestorctl {

// Something on this side of the server is not as it must be. `what()` is the line for people, UTF-8.
class LocalFailure : public std::runtime_error {
 public:
  explicit LocalFailure(const std::string& text, HRESULT result = E_FAIL) : std::runtime_error(text), result_(result) {}

  HRESULT Result() const { return result_; }

 private:
  HRESULT result_;
};

// The command line does not say something that could be done.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kestorctl
