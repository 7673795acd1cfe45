// A client's sessions with the stores.
#pragma once

#include <functional>
#include <string>

#include "call_notes.h"
#include "contract/interfaces.h"

namespace kestorctl {

// Converts UTF-8 to a string that the server's methods take.
OwnedBstr ToBstr(const std::string& utf8);

// Returns the reason that the server gave for the result of this thread's last call; UTF-8, empty when it gave none.
std::string ReasonOfLastCall();

// Returns whether the running server is too old to report on the models of a call and to rehearse one.
bool ServerIsOlder();
inline constexpr const char* kOlderServer =
    "the server that runs is older than this program and does not say what becomes of each model";

// What sessions with the stores of both generations have in common. A session starts the server when none runs, and
// keeps an object in it alive.
class StoreSession {
 public:
  StoreSession(const StoreSession&) = delete;
  StoreSession& operator=(const StoreSession&) = delete;

  // Returns the result of making and initialising the store. Its methods may be called only when this is no failure.
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

// A store of second-generation models for one module and component. Opening it converts their first-generation models.
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

// Renumbers field codes in models. Each call names the module and component.
class FieldConverter : public StoreSession {
 public:
  FieldConverter();

  IZNPL_RelConverte* operator->() const { return converter_.Get(); }

 private:
  ComPtr<IZNPL_RelConverte> converter_;
};

}  // namespace kestorctl
