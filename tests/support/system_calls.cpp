#include "support/system_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace support {

SystemCalls* SystemCalls::current = nullptr;

SystemCalls::SystemCalls(std::string failing, int error) : failing_(std::move(failing)), error_(error) {
  current = this;
}

bool SystemCalls::Fails(const std::string& step) {
  if (current == nullptr) return false;
  if (step != "lock") current->seen_.push_back(step);
  if (step != current->failing_) return false;
  errno = current->error_;
  return true;
}

}  // namespace support

namespace {

using support::SystemCalls;

std::string Shown(std::string_view name) {
  return std::string(name.starts_with('.') ? "hidden" : name);
}

bool NamingFails(const char* call, const char* from, const char* to) {
  return SystemCalls::Fails(std::string(call) + ' ' + Shown(from) + ' ' + Shown(to));
}

bool FlushingFails(const char* call, int descriptor) {
  struct stat status {};
  fstat(descriptor, &status);
  return SystemCalls::Fails(std::string(call) + (S_ISDIR(status.st_mode) ? " folder" : " file"));
}

}  // namespace

extern "C" {

int __real_fsync(int file);
int __real_fdatasync(int file);
int __real_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName);
int __real_renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags);
int __real_unlinkat(int folder, const char* name, int flags);
int __real_fcntl64(int file, int command, void* argument);

int __wrap_fsync(int file) {
  return FlushingFails("fsync", file) ? -1 : __real_fsync(file);
}

int __wrap_fdatasync(int file) {
  return FlushingFails("fdatasync", file) ? -1 : __real_fdatasync(file);
}

int __wrap_renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
  if (NamingFails("rename", oldName, newName)) return -1;
  return __real_renameat(oldFolder, oldName, newFolder, newName);
}

int __wrap_renameat2(int oldFolder, const char* oldName, int newFolder, const char* newName, unsigned flags) {
  if (NamingFails("rename2", oldName, newName)) return -1;
  return __real_renameat2(oldFolder, oldName, newFolder, newName, flags);
}

int __wrap_unlinkat(int folder, const char* name, int flags) {
  return SystemCalls::Fails("unlink " + Shown(name)) ? -1 : __real_unlinkat(folder, name, flags);
}

int __wrap_fcntl64(int file, int command, void* argument) {
  return command == F_OFD_SETLK && SystemCalls::Fails("lock") ? -1 : __real_fcntl64(file, command, argument);
}

}  // extern "C"
