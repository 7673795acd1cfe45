#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include "platform/kernel/kernel.h"

// An object that threads can wait for.
class KernelObject {
 public:
  KernelObject(bool manualReset, bool signalled) : manualReset_(manualReset), signalled_(signalled) {}

  void Signal() {
    {
      const std::lock_guard hold(mutex_);
      signalled_ = true;
    }
    // An auto-reset event releases one waiter; the others find it reset and wait on.
    changed_.notify_all();
  }

  DWORD Wait(DWORD milliseconds) {
    std::unique_lock hold(mutex_);
    const auto signalled = [this] { return signalled_; };
    if (milliseconds == INFINITE) {
      changed_.wait(hold, signalled);
    } else if (!changed_.wait_for(hold, std::chrono::milliseconds(milliseconds), signalled)) {
      return WAIT_TIMEOUT;
    }
    if (!manualReset_) signalled_ = false;
    return WAIT_OBJECT_0;
  }

  // The handle is one owner; a running thread is the other.
  std::shared_ptr<KernelObject> self;

 private:
  const bool manualReset_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool signalled_;
};

namespace {

HANDLE NewObject(bool manualReset, bool signalled) {
  try {
    auto object = std::make_shared<KernelObject>(manualReset, signalled);
    object->self = object;
    return object.get();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::atomic<DWORD> lastThreadId{0};
thread_local DWORD threadId = 0;

}  // namespace

DWORD GetCurrentThreadId() {
  if (threadId == 0) threadId = ++lastThreadId;
  return threadId;
}

HANDLE CreateEventA(void* security, BOOL manualReset, BOOL initialState, const char* name) {
  if (security != nullptr || name != nullptr) return nullptr;
  return NewObject(manualReset != FALSE, initialState != FALSE);
}

BOOL SetEvent(HANDLE event) {
  if (event == nullptr) return FALSE;
  event->Signal();
  return TRUE;
}

HANDLE CreateThread(void* security, std::size_t /*stackSize*/, LPTHREAD_START_ROUTINE start, void* parameter,
                    DWORD flags, DWORD* id) {
  if (security != nullptr || flags != 0) return nullptr;
  HANDLE handle = NewObject(true, false);
  if (handle == nullptr) return nullptr;
  const DWORD newId = ++lastThreadId;
  if (id != nullptr) *id = newId;
  try {
    std::thread([ended = handle->self, start, parameter, newId] {
      threadId = newId;
      start(parameter);
      ended->Signal();
    }).detach();
  } catch (const std::exception&) {
    CloseHandle(handle);
    return nullptr;
  }
  return handle;
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
  if (object == nullptr) return WAIT_FAILED;
  const std::shared_ptr<KernelObject> hold = object->self;  // keeps the object if another thread closes the handle
  return hold->Wait(milliseconds);
}

BOOL CloseHandle(HANDLE object) {
  if (object == nullptr) return FALSE;
  const std::shared_ptr<KernelObject> last = std::move(object->self);
  return TRUE;
}

void Sleep(DWORD milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

DWORD GetTickCount() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<DWORD>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                            static_cast<std::uint64_t>(now.tv_nsec) / 1000000);
}

LONG InterlockedIncrement(LONG volatile* value) {
  return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
LONG InterlockedDecrement(LONG volatile* value) {
  return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}
