#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>

#include "platform/host/descriptor.h"
#include "platform/kernel/kernel.h"

namespace {

// The posted messages of one thread. The descriptor is readable while the queue may have messages.
class Queue {
 public:
  Queue() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  int WakeDescriptor() const { return wake_.Number(); }

  void Post(const MSG& message) {
    // The descriptor also changes under the lock: it must not stay readable for a queue that was emptied meanwhile.
    const std::lock_guard hold(mutex_);
    messages_.push_back(message);
    waiting_.store(true, std::memory_order_release);
    eventfd_write(wake_.Number(), 1);
  }

  bool Take(MSG* message) {
    if (!waiting_.load(std::memory_order_acquire)) return false;
    const std::lock_guard hold(mutex_);
    if (messages_.empty()) return false;
    *message = messages_.front();
    messages_.pop_front();
    if (messages_.empty()) {
      waiting_.store(false, std::memory_order_release);
      eventfd_t ignored = 0;
      eventfd_read(wake_.Number(), &ignored);
    }
    return true;
  }

 private:
  const platform::Descriptor wake_;
  std::atomic<bool> waiting_{false};  // spares every call the lock
  std::mutex mutex_;
  std::deque<MSG> messages_;
};

std::mutex queuesMutex;
std::map<DWORD, Queue*>& Queues() {
  static auto* queues = new std::map<DWORD, Queue*>;  // threads may end after the process's destructors
  return *queues;
}

// The queue of the calling thread, created at its first use and destroyed with the thread.
class ThreadQueue {
 public:
  ThreadQueue() : id_(GetCurrentThreadId()) {
    const std::lock_guard hold(queuesMutex);
    Queues()[id_] = &queue_;
  }
  ~ThreadQueue() {
    const std::lock_guard hold(queuesMutex);
    Queues().erase(id_);
  }
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;

  static ThreadQueue& Own() {
    thread_local ThreadQueue own;
    return own;
  }

  Queue& Messages() { return queue_; }
  platform::MessageSource* source = nullptr;

 private:
  const DWORD id_;
  Queue queue_;
};

}  // namespace

BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam) {
  const std::lock_guard hold(queuesMutex);
  const auto found = Queues().find(threadId);
  if (found == Queues().end()) return FALSE;
  found->second->Post({nullptr, message, wParam, lParam});
  return TRUE;
}

void platform::AttachMessageSource(platform::MessageSource* source) {
  ThreadQueue::Own().source = source;
}

BOOL GetMessageA(MSG* message, void* /*window*/, UINT /*filterMin*/, UINT /*filterMax*/) {
  ThreadQueue& own = ThreadQueue::Own();
  for (;;) {
    if (own.Messages().Take(message)) return message->message == WM_QUIT ? FALSE : TRUE;
    if (own.source != nullptr) {
      if (own.source->Wait(own.Messages().WakeDescriptor(), message)) return TRUE;
    } else {
      pollfd wake{own.Messages().WakeDescriptor(), POLLIN, 0};
      poll(&wake, 1, -1);
    }
  }
}

LONG DispatchMessageA(const MSG* message) {
  platform::MessageSource* source = ThreadQueue::Own().source;
  if (source != nullptr && message->message >= WM_USER) source->Dispatch(*message);
  return 0;
}
