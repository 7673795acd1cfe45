#include <algorithm>
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "class_table.h"
#include "platform/com/error_info.h"
#include "platform/com/long_calls.h"
#include "platform/home/home.h"
#include "platform/host/system.h"

namespace {

// The client whose call the calling thread serves.
thread_local channel::Caller* servedClient = nullptr;

// Marks the calling thread as serving one call, and clears its error information.
class Serving {
 public:
  explicit Serving(channel::Caller& caller) {
    servedClient = &caller;
    SetErrorInfo(0, nullptr);
  }
  ~Serving() { servedClient = nullptr; }
  Serving(const Serving&) = delete;
  Serving& operator=(const Serving&) = delete;
};

// The object of a connection. Its stub holds the reference and releases it when the connection ends.
class StubSession final : public channel::Session {
 public:
  explicit StubSession(std::unique_ptr<com::CallStub> stub) : stub_(std::move(stub)) {}

  HRESULT Call(channel::Caller& caller, std::uint16_t slot, channel::Decoder& arguments,
               channel::Encoder& out) override {
    const Serving serving(caller);
    const HRESULT result = stub_->Invoke(slot, arguments, out);
    reason_ = com::TakeOwnErrorInfo();
    return result;
  }

  // Composes the sentence only now, for the client that asks.
  std::string Reason() override { return reason_ ? com::DescriptionOf(*reason_) : std::string(); }

 private:
  std::unique_ptr<com::CallStub> stub_;
  ComPtr<IErrorInfo> reason_;  // of the last call
};

// One published class object; other processes reach it through the class's socket.
class ClassEntry final : public channel::Service {
 public:
  ClassEntry(DWORD ownCookie, REFCLSID clsid, ComPtr<IClassFactory> factory)
      : cookie(ownCookie), id(clsid), factory_(std::move(factory)) {}
  virtual ~ClassEntry() = default;

  HRESULT Create(const std::byte* interfaceId, std::unique_ptr<channel::Session>* session) override {
    IID iid{};
    std::memcpy(&iid, interfaceId, sizeof iid);
    com::Marshaler marshaler{};
    if (!com::FindMarshaler(iid, &marshaler)) return E_NOINTERFACE;
    ComPtr<IUnknown> object;
    const HRESULT result = factory_->CreateInstance(nullptr, iid, object.OutVoid());
    if (FAILED(result)) return result;
    std::unique_ptr<com::CallStub> stub = marshaler.newStub(object.Get());
    if (!stub) return E_NOINTERFACE;
    *session = std::make_unique<StubSession>(std::move(stub));
    return result;
  }

  HRESULT Rehearse(channel::Caller& caller, channel::Decoder& arguments) override;

  bool RestoreFolder(std::string* socketPath) override;

  ComPtr<IClassFactory> Factory() const {
    ComPtr<IClassFactory> factory;
    factory_->QueryInterface(IID_IClassFactory, factory.OutVoid());
    return factory;
  }

  const DWORD cookie;
  const CLSID id;
  std::string socketPath;  // empty: for this process only

 private:
  ComPtr<IClassFactory> factory_;
};

// Marks this process as the one that serves the home. Taken with the first class that is published to other processes,
// and released with the last one that is withdrawn.
class ServingLock {
 public:
  // Takes the lock again after the socket folder was cleared, because its file may have been there.
  bool Renew() { return platform::Home::Current().TakeServing(&file_) == 0; }

  HRESULT Take() {
    if (file_) return S_OK;
    // A server that is about to end releases the lock within moments.
    constexpr int kAttempts = 500;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      const int error = platform::Home::Current().TakeServing(&file_);
      if (error == 0) return S_OK;
      if (error != EAGAIN) return error == EACCES ? E_ACCESSDENIED : E_FAIL;
      Sleep(10);
    }
    return CO_E_OBJISREG;
  }

  // Empties the file, so that no client looks where the sockets were.
  void Release() {
    if (file_) host::Truncate(file_, 0);
    file_.Close();
  }

 private:
  platform::Descriptor file_;
};

struct Runtime {
  std::mutex mutex;
  std::vector<std::unique_ptr<ClassEntry>> classes;
  std::vector<com::Marshaler> marshalers;
  std::vector<std::pair<CLSID, com::Rehearsal>> rehearsals;
  DWORD lastCookie = 0;
  ServingLock serving;
};

Runtime& ProcessRuntime() {
  static Runtime runtime;
  return runtime;
}

HRESULT ClassEntry::Rehearse(channel::Caller& caller, channel::Decoder& arguments) {
  com::Rehearsal rehearsal = nullptr;
  {
    Runtime& runtime = ProcessRuntime();
    const std::lock_guard hold(runtime.mutex);
    for (const auto& [clsid, known] : runtime.rehearsals) {
      if (clsid == id) rehearsal = known;
    }
  }
  if (rehearsal == nullptr) return E_NOTIMPL;
  const Serving serving(caller);
  return rehearsal(arguments);
}

// The system may have removed the user's folder for sockets with the user's last login.
bool ClassEntry::RestoreFolder(std::string* path) {
  std::string reason;
  Runtime& runtime = ProcessRuntime();
  if (!platform::Home::Current().PrepareSocketFolder(&reason) || !runtime.serving.Renew()) return false;
  *path = socketPath = com::OwnSocketPath(id);
  return true;
}

// The calling thread's apartment: the sockets that its message loop serves. `entries` counts how often it was entered.
thread_local std::unique_ptr<channel::Server> apartment;
thread_local unsigned entries = 0;

HRESULT Publish(Runtime& runtime, ClassEntry& entry) {
  if (!apartment) return CO_E_NOTINITIALIZED;
  std::string reason;
  if (!platform::Home::Current().PrepareSocketFolder(&reason)) return E_ACCESSDENIED;
  const HRESULT serving = runtime.serving.Take();
  if (FAILED(serving)) return serving;
  std::string path = com::OwnSocketPath(entry.id);
  if (!apartment->Listen(path, &entry)) return E_FAIL;
  entry.socketPath = std::move(path);
  return S_OK;
}

bool ServesOthers(const Runtime& runtime) {
  return std::any_of(runtime.classes.begin(), runtime.classes.end(),
                     [](const auto& entry) { return !entry->socketPath.empty(); });
}

}  // namespace

namespace com {

ComPtr<IClassFactory> FindClassObject(REFCLSID clsid) {
  Runtime& runtime = ProcessRuntime();
  const std::lock_guard hold(runtime.mutex);
  for (const auto& entry : runtime.classes) {
    if (entry->id == clsid) return entry->Factory();
  }
  return {};
}

void RegisterMarshaler(const Marshaler& marshaler) {
  Runtime& runtime = ProcessRuntime();
  const std::lock_guard hold(runtime.mutex);
  for (Marshaler& known : runtime.marshalers) {
    if (known.iid == marshaler.iid) {
      known = marshaler;
      return;
    }
  }
  runtime.marshalers.push_back(marshaler);
}

channel::Caller* ServedClient() {
  return servedClient;
}

void RegisterRehearsal(REFCLSID clsid, Rehearsal rehearsal) {
  Runtime& runtime = ProcessRuntime();
  const std::lock_guard hold(runtime.mutex);
  std::erase_if(runtime.rehearsals, [&](const auto& known) { return known.first == clsid; });
  runtime.rehearsals.emplace_back(clsid, rehearsal);
}

bool FindMarshaler(REFIID iid, Marshaler* marshaler) {
  Runtime& runtime = ProcessRuntime();
  const std::lock_guard hold(runtime.mutex);
  for (const Marshaler& known : runtime.marshalers) {
    if (known.iid == iid) {
      *marshaler = known;
      return true;
    }
  }
  return false;
}

std::string OwnSocketPath(REFCLSID clsid) {
  return platform::Home::Current().SocketFolder() + "/" + GuidText(clsid);
}

std::string ServingSocketPath(REFCLSID clsid) {
  return platform::Home::Current().ServingFolder() + "/" + GuidText(clsid);
}

}  // namespace com

HRESULT CoInitialize(void* /*reserved*/) {
  if (apartment) {
    ++entries;
    return S_FALSE;
  }
  try {
    auto server = std::make_unique<channel::Server>();
    platform::AttachMessageSource(server.get());
    apartment = std::move(server);
    entries = 1;
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::system_error&) {
    return E_FAIL;
  }
}

void CoUninitialize() {
  if (!apartment || --entries != 0) return;
  platform::AttachMessageSource(nullptr);
  apartment.reset();
}

HRESULT CoInitializeSecurity(void*, LONG, void*, void*, DWORD, DWORD, void*, DWORD, void*) {
  return S_OK;
}

HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* classObject, DWORD context, DWORD /*flags*/, DWORD* cookie) {
  if (classObject == nullptr || cookie == nullptr) return E_INVALIDARG;
  *cookie = 0;
  ComPtr<IClassFactory> factory;
  const HRESULT asked = classObject->QueryInterface(IID_IClassFactory, factory.OutVoid());
  if (FAILED(asked)) return asked;

  const bool forOthers = (context & CLSCTX_LOCAL_SERVER) != 0;
  Runtime& runtime = ProcessRuntime();
  const std::lock_guard hold(runtime.mutex);
  HRESULT result = S_OK;
  try {
    runtime.classes.reserve(runtime.classes.size() + 1);  // nothing may fail once the socket exists
    auto entry = std::make_unique<ClassEntry>(runtime.lastCookie + 1, clsid, std::move(factory));
    if (forOthers) result = Publish(runtime, *entry);
    if (SUCCEEDED(result)) {
      *cookie = ++runtime.lastCookie;
      runtime.classes.push_back(std::move(entry));
      return result;
    }
  } catch (const std::bad_alloc&) {
    result = E_OUTOFMEMORY;
  }
  if (forOthers && !ServesOthers(runtime)) {
    // No client can ever reach this process, so it must not stay.
    runtime.serving.Release();
    PostThreadMessageA(GetCurrentThreadId(), WM_QUIT, 0, 0);
  }
  return result;
}

HRESULT CoRevokeClassObject(DWORD cookie) {
  Runtime& runtime = ProcessRuntime();
  std::unique_ptr<ClassEntry> withdrawn;  // destroyed after the lock is released: a class object may run any code
  const std::lock_guard hold(runtime.mutex);
  for (auto it = runtime.classes.begin(); it != runtime.classes.end(); ++it) {
    if ((*it)->cookie != cookie) continue;
    withdrawn = std::move(*it);
    runtime.classes.erase(it);
    break;
  }
  if (!withdrawn) return CO_E_OBJNOTREG;
  if (!withdrawn->socketPath.empty() && apartment) apartment->Withdraw(withdrawn->socketPath);

  if (!ServesOthers(runtime)) runtime.serving.Release();
  return S_OK;
}
