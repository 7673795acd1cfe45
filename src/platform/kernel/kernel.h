// The desktop platform's kernel services that the server uses: elementary types, the process's command line, threads
// and events, atomic counters, time, and the message queue of a thread.
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

// The platform's error numbers that occur in this system. They are never errno values.
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

// Returns the process's whole command line, the program path first, as code page 1252 text. Arguments are separated by
// one blank; an argument that is empty or contains a blank is in double quotes. The text lives as long as the process.
const char* GetCommandLineA();

namespace platform {

// Sets the arguments of main, for a system that reports no command line. Must be called before GetCommandLineA.
void SetArguments(int count, const char* const* arguments);

}  // namespace platform

// ---- Threads, events, time -----------------------------------------------------------------------------------------

// A kernel object behind a HANDLE. The handle owns it until CloseHandle. A null handle is no object.
class KernelObject;
using HANDLE = KernelObject*;

using LPTHREAD_START_ROUTINE = DWORD (*)(void* parameter);

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// Returns the identity of the calling thread, never 0 and never that of another living thread of the process.
DWORD GetCurrentThreadId();

// Creates an unnamed event, or returns null when memory runs out. An event that is not `manualReset` is reset as soon
// as it releases one waiter. The first and last arguments (security, name) exist for the platform's form of the call
// and must be null.
HANDLE CreateEventA(void* security, BOOL manualReset, BOOL initialState, const char* name);
BOOL SetEvent(HANDLE event);

// Starts a thread that runs `start(parameter)`. Returns null when the system refuses. After the handle is closed the
// thread runs on. `*id` (unless `id` is null) receives the new thread's identity before the thread runs.
HANDLE CreateThread(void* security, std::size_t stackSize, LPTHREAD_START_ROUTINE start, void* parameter, DWORD flags,
                    DWORD* id);

// Waits until the event is signalled or the thread has ended. Returns WAIT_OBJECT_0, WAIT_TIMEOUT after `milliseconds`
// (INFINITE: no limit), or WAIT_FAILED for a null handle.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);

BOOL CloseHandle(HANDLE object);

void Sleep(DWORD milliseconds);

// Returns the milliseconds since some moment in the past; wraps around after 49.7 days.
DWORD GetTickCount();

// Atomic; return the new value.
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

// Posts a message to the queue of a thread. May be called from any thread. Returns FALSE when no such thread has a
// queue: a thread gets its queue with its first GetMessageA or platform::AttachMessageSource.
BOOL PostThreadMessageA(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam);

namespace platform {

// A source, besides the thread's queue, from which a thread's message loop takes messages (the channel delivers the
// calls of other processes this way). Used only by the thread that attached it.
class MessageSource {
 public:
  // Waits until something arrives for this source or until `wakeDescriptor` becomes readable. Returns true with a
  // message in `*message`, or false when there is none (the queue is then checked and Wait is called again).
  // `wakeDescriptor` is level-triggered and stays the same for the life of the attachment; the source must not read it.
  virtual bool Wait(int wakeDescriptor, MSG* message) = 0;

  // Runs a message that Wait delivered.
  virtual void Dispatch(const MSG& message) = 0;

 protected:
  ~MessageSource() = default;
};

// Makes `source` (null: none) the calling thread's message source. The source is not owned.
void AttachMessageSource(MessageSource* source);

}  // namespace platform

// Waits for the calling thread's next message and takes it. Posted messages come before those of the source. Returns 0
// on WM_QUIT, otherwise 1. `window` must be null, the filter 0.
BOOL GetMessageA(MSG* message, void* window, UINT filterMin, UINT filterMax);

// Passes a message with a number from WM_USER up to the thread's source, if it has one; drops any other. Always returns
// 0.
LONG DispatchMessageA(const MSG* message);

// ---- What the desktop platform does not have -----------------------------------------------------------------------

namespace platform {

// Returns the full path of the running executable as the host system's own (UTF-8) path, such as
// /usr/lib/kestor/kestor. Empty when the system does not report it.
std::string ExecutablePath();

}  // namespace platform
