// The desktop platform's kernel services, as far as the server uses them: elementary types, the process's command
// line, threads and events, atomic counters, time, and the message queue of a thread.
//
// Names, types and results are the platform's own. No call here knows of reports, sockets or files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using USHORT = std::uint16_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using HRESULT = std::int32_t;  // negative: failure
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// The platform's error numbers that this system meets. They are the platform's, never errno values.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_BAD_FORMAT = 11;
inline constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_SEEK = 25;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_LOCK_VIOLATION = 33;
inline constexpr DWORD ERROR_SHARING_BUFFER_EXCEEDED = 36;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_HANDLE_DISK_FULL = 39;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_BADDB = 1009;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_TIMEOUT = 1460;

// ---- Process -------------------------------------------------------------------------------------------------------

// The process's whole command line, the program path first, as code page 1252 text. Arguments stand one blank apart;
// one that is empty or holds a blank stands in double quotes. The text lives as long as the process.
const char* GetCommandLineA();

namespace platform {

// The arguments of main, for a system that does not tell the command line otherwise. Called before GetCommandLineA.
void SetArguments(int count, const char* const* arguments);

}  // namespace platform

// ---- Threads, events, time -----------------------------------------------------------------------------------------

// A kernel object behind a HANDLE. Owned by the handle: CloseHandle ends it. Null is no handle.
class KernelObject;
using HANDLE = KernelObject*;

using LPTHREAD_START_ROUTINE = DWORD (*)(void* parameter);

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// Identity of the calling thread, never 0 and never that of another living thread of the process.
DWORD GetCurrentThreadId();

// An unnamed event. An event that is not `manualReset` goes back to not signalled as soon as it lets one waiter go.
// Null when memory runs out. The first and last arguments (security, name) exist for the platform's form of the call
// and must be null.
HANDLE CreateEventA(void* security, BOOL manualReset, BOOL initialState, const char* name);
BOOL SetEvent(HANDLE event);

// Starts a thread that runs `start(parameter)`. Null when the system refuses. Closing the handle lets the thread run on
// by itself. `*id` (unless `id` is null) receives the new thread's identity before it runs.
HANDLE CreateThread(void* security, std::size_t stackSize, LPTHREAD_START_ROUTINE start, void* parameter, DWORD flags,
                    DWORD* id);

// Waits until the event is signalled or the thread has ended: WAIT_OBJECT_0; WAIT_TIMEOUT after `milliseconds`
// (INFINITE: no limit); WAIT_FAILED for a null handle.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);

BOOL CloseHandle(HANDLE object);

void Sleep(DWORD milliseconds);

// Milliseconds since some moment in the past; wraps around after 49.7 days.
DWORD GetTickCount();

// Atomic; the result is the new value.
LONG InterlockedIncrement(LONG volatile* value);
LONG InterlockedDecrement(LONG volatile* value);

// ---- Message queue -------------------------------------------------------------------------------------------------

struct MSG {
  void* hwnd;    // always null: this system has no windows
  UINT message;  // WM_QUIT, or a number that the source of the message chose
  WPARAM wParam;
  LPARAM lParam;
};

inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_USER = 0x0400;

// Posts a message to the queue of a thread; may be called from any thread. FALSE when no such thread has a queue: a
// thread gets its queue with its first GetMessageA or platform::AttachMessageSource.
BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam);

namespace platform {

// Something besides the thread's queue from which a thread's message loop takes messages (the channel delivers the
// calls of other processes this way). Used only by the thread that attached it.
class MessageSource {
 public:
  // Waits until there is something for this source or until `wakeDescriptor` becomes readable, and puts a message into
  // `*message` if there is one. `wakeDescriptor` is level-triggered and stays the same for the life of the attachment;
  // the source must not read it. False when there is no message (the queue is looked at and Wait is called again).
  virtual bool Wait(int wakeDescriptor, MSG* message) = 0;

  // Runs a message that Wait delivered.
  virtual void Dispatch(const MSG& message) = 0;

 protected:
  ~MessageSource() = default;
};

// Makes `source` (null: none) the calling thread's message source. The source is not owned.
void AttachMessageSource(MessageSource* source);

}  // namespace platform

// Takes the next message of the calling thread, waiting for one. Posted messages come before those of the source. 0 on
// WM_QUIT, otherwise 1. `window` and the filter must be null and 0.
BOOL GetMessageA(MSG* message, void* window, UINT filterMin, UINT filterMax);

// Runs a message: one of the thread's source goes to that source, any other is dropped. Always 0.
LONG DispatchMessageA(const MSG* message);

// ---- What the desktop platform does not have -----------------------------------------------------------------------

namespace platform {

// Full path of the running executable as the host system's own (UTF-8) path, such as /usr/lib/kestor/kestor. Empty when
// the system does not tell.
std::string ExecutablePath();

}  // namespace platform
