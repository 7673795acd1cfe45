// Memory that a test and its child processes have in common.
#pragma once

#include <sys/mman.h>

#include <new>

template <typename T>
class SharedMemory {
 public:
  SharedMemory() : memory_(mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (memory_ == MAP_FAILED) throw std::bad_alloc();
    new (memory_) T();
  }
  ~SharedMemory() { munmap(memory_, sizeof(T)); }
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  T& operator*() const { return *static_cast<T*>(memory_); }
  T* operator->() const { return static_cast<T*>(memory_); }

 private:
  void* memory_;
};
