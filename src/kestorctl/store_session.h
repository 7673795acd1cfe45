// A client's sessions with the stores.
#pragma once

#include <functional>
#include <string>

#include "call_notes.h"
#include "contract/interfaces.h"

namespace kestorctl {

// A text of the command line as a string of the component boundary.
OwnedBstr ToBstr(const std::string& utf8);

// Why this thread's last call on an object of the server ended as it did; UTF-8, empty when the server does not say.
std::string ReasonOfLastCall();

// Whether the server that runs is one that tells nothing of the models of a call, and rehearses none.
bool ServerIsOlder();
inline constexpr const char* kOlderServer =
    "the server that runs is older than this program and does not say what becomes of each model";

// What sessions with the stores of both generations have in common. The server is started when none runs, and has a
// live object as long as the session lives.
class StoreSession {
 public:
  StoreSession(const StoreSession&) = delete;
  StoreSession& operator=(const StoreSession&) = delete;

  // Of making and initialising the store; its methods may be called only when this is no failure.
  HRESULT Result() const { return result_; }

  // More about the result than its meaning says; may be empty. UTF-8.
  const std::string& Detail() const { return detail_; }

 protected:
  StoreSession() = default;
  ~StoreSession() = default;

  // Throws LocalFailure when there is no home.
  void Open(REFCLSID clsid, REFIID iid, void** store, const std::function<HRESULT()>& initialise);

 private:
  class Apartment {
   public:
    Apartment() { CoInitialize(nullptr); }
    ~Apartment() { CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
  };

  const Apartment apartment_;
  HRESULT result_ = S_OK;
  std::string detail_;
};

// A store of second-generation models for one module and component. When it is opened, first-generation models of these
// are converted.
class ReportStore : public StoreSession {
 public:
  ReportStore(const std::string& module, const std::string& component);

  IZNPL_Relatorio2* operator->() const { return store_.Get(); }

  // What became of the first-generation models.
  const CallNotes& Migration() const { return migration_; }

 private:
  CallNotes migration_{"migrating"};
  ComPtr<IZNPL_Relatorio2> store_;
};

// A store of first-generation models for one module and component.
class LegacyStore : public StoreSession {
 public:
  LegacyStore(const std::string& module, const std::string& component);

  IZNPL_Rel* operator->() const { return store_.Get(); }

 private:
  ComPtr<IZNPL_Rel> store_;
};

// What renumbers field codes in the models of a module and component that each call names.
class FieldConverter : public StoreSession {
 public:
  FieldConverter();

  IZNPL_RelConverte* operator->() const { return converter_.Get(); }

 private:
  ComPtr<IZNPL_RelConverte> converter_;
};

}  // namespace kestorctl
