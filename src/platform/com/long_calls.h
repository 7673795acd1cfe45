// What a server tells the client of a call while it serves it, and calls that only tell.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "platform/channel/channel.h"
#include "platform/com/com.h"

namespace com {

// ---- In the server -------------------------------------------------------------------------------------------------

// The client whose call the calling thread serves; null when it serves none of another process.
channel::Caller* ServedClient();

// What a class answers to Rehearse: tells ServedClient, note by note, what a call would do, and does nothing of it.
using Rehearsal = HRESULT (*)(channel::Decoder& arguments);

// Makes the rehearsal of a class known; once more for the same class replaces it.
void RegisterRehearsal(REFCLSID clsid, Rehearsal rehearsal);

// ---- In the client -------------------------------------------------------------------------------------------------

// While one lives, the calls of its thread on objects of other processes are followed: `receiver` gets their notes. One
// within another takes the place of that.
class Following {
 public:
  explicit Following(channel::NoteReceiver* receiver);
  ~Following();
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

 private:
  channel::NoteReceiver* const outer_;
};

// Who follows the calls of the calling thread; null when nobody does.
channel::NoteReceiver* Follower();

// While one lives, a call of its thread on an object of another process, and the making of one, takes no longer than
// this and then ends with 0x800705B4; the object is of no more use then, and what it was asked for may be done all the
// same. 0: no limit. One within another takes the place of that.
class WithinTime {
 public:
  explicit WithinTime(std::chrono::milliseconds limit);
  ~WithinTime();
  WithinTime(const WithinTime&) = delete;
  WithinTime& operator=(const WithinTime&) = delete;

 private:
  const std::chrono::milliseconds outer_;
};

// The limit of the calling thread; 0 when there is none.
std::chrono::milliseconds TimeLimit();

// As CoCreateInstance for an object of the home's server, but 0x800706BA where none runs.
HRESULT CreateWhereServed(REFCLSID clsid, REFIID iid, void** object);

// Has the home's server, which is started when there is none, tell what a call would do; `receiver` gets the notes.
// Results as CoCreateInstance, or the rehearsal's: E_NOTIMPL when the class has none. rpc::kVersionMismatch also for a
// server that does not know of rehearsals.
HRESULT Rehearse(REFCLSID clsid, const void* arguments, std::size_t bytes, channel::NoteReceiver* receiver);

}  // namespace com
