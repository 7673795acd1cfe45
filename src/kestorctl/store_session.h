// A client's session with a report store.
#pragma once

#include <string>

#include "contract/interfaces.h"

namespace kestorctl {

// A text of the command line as a string of the component boundary.
class Bstr {
 public:
  explicit Bstr(const std::string& utf8);
  ~Bstr() { SysFreeString(text_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;

  BSTR Get() const { return text_; }

 private:
  const BSTR text_;
};

// A store of second-generation models for one module and component. The server has a live object as long as this one
// lives.
class ReportStore {
 public:
  // Starts the server when none runs. Throws LocalFailure when there is no home.
  ReportStore(const std::string& module, const std::string& component);

  // Of making and initialising the store; other methods may be called only when this is no failure.
  HRESULT Result() const { return result_; }

  // More about a failure than its meaning says; may be empty. UTF-8.
  const std::string& Detail() const { return detail_; }

  IZNPL_Relatorio2* operator->() const { return store_.Get(); }

 private:
  class Apartment {
   public:
    Apartment() { CoInitialize(nullptr); }
    ~Apartment() { CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
  };

  const Apartment apartment_;
  ComPtr<IZNPL_Relatorio2> store_;
  HRESULT result_ = S_OK;
  std::string detail_;
};

}  // namespace kestorctl
