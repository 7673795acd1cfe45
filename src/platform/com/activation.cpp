#include <sys/file.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "class_table.h"
#include "platform/com/long_calls.h"
#include "platform/home/home.h"
#include "platform/host/descriptor.h"
#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "server_process.h"

namespace {

using Clock = std::chrono::steady_clock;
using channel::Connection;

constexpr int kStartSeconds = 30;
constexpr DWORD kPollMilliseconds = 2;
constexpr int kStarts = 3;  // of servers that end before they are seen to listen

// One client at a time starts the home's server; the others wait here and then find it running.
class ActivationLock {
 public:
  explicit ActivationLock(const platform::Home& home) : file_(home.OpenLockFile("activation.lock")) {}

  bool Take(Clock::time_point deadline) {
    while (file_ && flock(file_.Number(), LOCK_EX | LOCK_NB) != 0) {
      if (Clock::now() > deadline) return false;
      Sleep(kPollMilliseconds);
    }
    return static_cast<bool>(file_);
  }

 private:
  const platform::Descriptor file_;
};

// Reads the command line that starts the server of a class from its registration.
HRESULT RegisteredCommand(REFCLSID clsid, std::string* command) {
  registry::OwnedKey key;
  LONG failed = RegOpenKeyA(HKEY_CLASSES_ROOT, ("CLSID\\" + GuidText(clsid) + "\\LocalServer32").c_str(), key.Out());
  DWORD type = REG_NONE;
  DWORD size = 0;
  if (failed == 0) failed = RegQueryValueExA(key.Get(), nullptr, nullptr, &type, nullptr, &size);
  std::string ansi(size, '\0');
  if (failed == 0) {
    failed = RegQueryValueExA(key.Get(), nullptr, nullptr, &type, reinterpret_cast<BYTE*>(ansi.data()), &size);
  }
  if (failed != 0 && failed != static_cast<LONG>(ERROR_FILE_NOT_FOUND)) {
    return HRESULT_FROM_WIN32(static_cast<DWORD>(failed));
  }
  ansi.resize(std::min(ansi.size(), ansi.find('\0')));
  if (failed != 0 || ansi.empty() || (type != REG_SZ && type != REG_EXPAND_SZ)) return REGDB_E_CLASSNOTREG;
  *command = text::ToUtf8(ansi);
  return S_OK;
}

// Connects a client to a class in the home's server process.
class Activation {
 public:
  enum class Server { isStarted, isThere };

  Activation(REFCLSID clsid, const Connection::Opening& opening, Server server = Server::isStarted)
      : clsid_(clsid), opening_(Limited(opening)), server_(server), deadline_(Clock::now() + Time()) {}

  HRESULT Run(std::unique_ptr<Connection>* connection) {
    // A server that goes away before it answers is shutting down: the client retries instead of failing.
    for (HRESULT result = S_OK; Clock::now() < deadline_;) {
      if (Connect(connection, &result)) return result;
      if (server_ == Server::isThere) return rpc::kServerUnavailable;
      result = Start();
      if (FAILED(result)) return result;
      Sleep(kPollMilliseconds);
    }
    return Late();
  }

 private:
  static Connection::Opening Limited(Connection::Opening opening) {
    opening.limit = com::TimeLimit();
    return opening;
  }

  // Returns the time that the whole activation may take.
  static Clock::duration Time() {
    const Clock::duration start = std::chrono::seconds(kStartSeconds);
    return com::TimeLimit().count() == 0 ? start : std::min<Clock::duration>(start, com::TimeLimit());
  }

  static HRESULT Late() {
    return com::TimeLimit().count() == 0 ? CO_E_SERVER_EXEC_FAILURE : HRESULT_FROM_WIN32(ERROR_TIMEOUT);
  }

  // Returns false when no process serves the class.
  bool Connect(std::unique_ptr<Connection>* connection, HRESULT* result) {
    // ServingFolder has checked the folder of a running server.
    std::string reason;
    if (home_.ServingFolder() == home_.SocketFolder() && !home_.PrepareSocketFolder(&reason)) {
      *result = E_ACCESSDENIED;
      return true;
    }
    channel::Decoder answer;
    const auto outcome =
        Connection::Open(com::ServingSocketPath(clsid_), home_.User(), opening_, 0, connection, &answer);
    switch (outcome) {
      case Connection::Outcome::ok:
        *result = static_cast<HRESULT>(answer.U32());
        if (!answer.AtEnd()) *result = rpc::kCallFailed;
        return true;
      case Connection::Outcome::nobody:
        return false;
      case Connection::Outcome::busy:
        *result = Late();
        return true;
      case Connection::Outcome::full:
        *result = rpc::kServerTooBusy;
        return true;
      case Connection::Outcome::denied:
        *result = E_ACCESSDENIED;
        return true;
      case Connection::Outcome::otherVersion:
        *result = rpc::kVersionMismatch;
        return true;
      case Connection::Outcome::lost:
        break;
    }
    *result = rpc::kCallFailed;
    return true;
  }

  // Starts a server if there is none. Returns once one listens for the class or is about to.
  HRESULT Start() {
    std::string command;
    const HRESULT registered = RegisteredCommand(clsid_, &command);
    if (FAILED(registered)) return registered;

    home_.MakeOnFirstUse();
    ActivationLock lock(home_);
    if (!lock.Take(deadline_)) return Late();
    // A server that has lost its sockets recreates them soon.
    if (IsListenedTo() || home_.IsServed()) return S_OK;

    com::ServerProcess process;
    if (!process.Start(command, registry::OwnerOfLastRead())) return CO_E_SERVER_EXEC_FAILURE;
    while (!IsListenedTo()) {
      // It may have served another client meanwhile and ended.
      if (process.HasEnded()) return ++ended_ < kStarts ? S_OK : CO_E_SERVER_EXEC_FAILURE;
      if (Clock::now() > deadline_) {
        process.End();  // no client waits for it any more
        return Late();
      }
      Sleep(kPollMilliseconds);
    }
    return S_OK;
  }

  bool IsListenedTo() const { return channel::SomebodyListens(com::ServingSocketPath(clsid_)); }

  const platform::Home& home_ = platform::Home::Current();
  const CLSID clsid_;
  const Connection::Opening opening_;
  const Server server_;
  const Clock::time_point deadline_;
  int ended_ = 0;  // servers that ended before they were seen to listen
};

// The receiver that follows the calls of the calling thread, and how long they may take.
thread_local channel::NoteReceiver* follower = nullptr;
thread_local std::chrono::milliseconds timeLimit{};

HRESULT CreateOnServer(REFCLSID clsid, REFIID iid, Activation::Server server, void** object) {
  com::Marshaler marshaler{};
  if (!com::FindMarshaler(iid, &marshaler)) return E_NOINTERFACE;
  try {
    std::unique_ptr<Connection> connection;
    const HRESULT result = Activation(clsid, {channel::FrameType::create, &iid, sizeof iid}, server).Run(&connection);
    if (FAILED(result)) return result;
    *object = marshaler.newProxy(std::make_unique<com::RemoteObject>(std::move(connection)));
    return *object == nullptr ? E_OUTOFMEMORY : result;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace

namespace com {

Following::Following(channel::NoteReceiver* receiver) : outer_(std::exchange(follower, receiver)) {}

Following::~Following() {
  follower = outer_;
}

channel::NoteReceiver* Follower() {
  return follower;
}

WithinTime::WithinTime(std::chrono::milliseconds limit) : outer_(std::exchange(timeLimit, limit)) {}

WithinTime::~WithinTime() {
  timeLimit = outer_;
}

std::chrono::milliseconds TimeLimit() {
  return timeLimit;
}

}  // namespace com

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (const ComPtr<IClassFactory> own = com::FindClassObject(clsid)) return own->CreateInstance(outer, iid, object);
  if ((context & CLSCTX_LOCAL_SERVER) == 0) return REGDB_E_CLASSNOTREG;
  com::ForgetCall();
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return CreateOnServer(clsid, iid, Activation::Server::isStarted, object);
}

HRESULT com::CreateWhereServed(REFCLSID clsid, REFIID iid, void** object) {
  *object = nullptr;
  com::ForgetCall();
  return CreateOnServer(clsid, iid, Activation::Server::isThere, object);
}

HRESULT com::Rehearse(REFCLSID clsid, const void* arguments, std::size_t bytes, channel::NoteReceiver* receiver) {
  com::ForgetCall();
  try {
    std::unique_ptr<Connection> connection;
    return Activation(clsid, {channel::FrameType::rehearse, arguments, bytes, receiver}).Run(&connection);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT com::AskServerStatus(REFCLSID clsid, ServerStatus* status) {
  constexpr int kAnswerSeconds = 5;
  *status = {};
  std::unique_ptr<Connection> connection;
  channel::Decoder answer;
  switch (Connection::Open(com::ServingSocketPath(clsid), platform::Home::Current().User(),
                           {channel::FrameType::status, nullptr, 0}, kAnswerSeconds, &connection, &answer)) {
    case Connection::Outcome::ok:
      status->processId = answer.U32();
      status->liveObjects = answer.U32();
      return answer.AtEnd() ? S_OK : rpc::kCallFailed;
    case Connection::Outcome::nobody:
      return S_FALSE;
    case Connection::Outcome::busy:
      return HRESULT_FROM_WIN32(ERROR_TIMEOUT);
    case Connection::Outcome::full:
      return rpc::kServerTooBusy;
    case Connection::Outcome::denied:
      return E_ACCESSDENIED;
    case Connection::Outcome::otherVersion:
      return rpc::kVersionMismatch;
    case Connection::Outcome::lost:
      break;
  }
  return rpc::kCallFailed;
}
