// Notes from a server to the client whose call it serves, rehearsals of calls, and time limits.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "platform/channel/channel.h"
#include "platform/com/com.h"

namespace com {

// ---- In the server -------------------------------------------------------------------------------------------------

// Returns the client whose call the calling thread serves; null when it serves no call of another process.
channel::Caller* ServedClient();

// Rehearses a call of a class: sends ServedClient notes of what the call would do, without doing it.
using Rehearsal = HRESULT (*)(channel::Decoder& arguments);

// Registers the rehearsal of a class. Replaces an earlier one of the same class.
void RegisterRehearsal(REFCLSID clsid, Rehearsal rehearsal);

// ---- In the client -------------------------------------------------------------------------------------------------

// While it lives, `receiver` gets the notes of its thread's calls on objects of other processes. An inner one overrides
// the outer one.
class Following {
 public:
  explicit Following(channel::NoteReceiver* receiver);
  ~Following();
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

 private:
  channel::NoteReceiver* const outer_;
};

// Returns the receiver that follows the calls of the calling thread; null when there is none.
channel::NoteReceiver* Follower();

// While it lives, limits each call of its thread on an object of another process, and the creation of one. A call that
// takes longer fails with 0x800705B4. The object is unusable then, and the call may still take effect. 0: no limit. An
// inner one overrides the outer one.
class WithinTime {
 public:
  explicit WithinTime(std::chrono::milliseconds limit);
  ~WithinTime();
  WithinTime(const WithinTime&) = delete;
  WithinTime& operator=(const WithinTime&) = delete;

 private:
  const std::chrono::milliseconds outer_;
};

// Returns the limit of the calling thread; 0 when there is none.
std::chrono::milliseconds TimeLimit();

// Like CoCreateInstance for an object of the home's server, but returns 0x800706BA when no server runs.
HRESULT CreateWhereServed(REFCLSID clsid, REFIID iid, void** object);

// Asks the home's server, starting it if there is none, what a call would do; `receiver` gets the notes. Returns the
// rehearsal's result, E_NOTIMPL when the class has none, or an error as CoCreateInstance. rpc::kVersionMismatch also
// means a server that does not know rehearsals.
HRESULT Rehearse(REFCLSID clsid, const void* arguments, std::size_t bytes, channel::NoteReceiver* receiver);

}  // namespace com
