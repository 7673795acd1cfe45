// Proxies and stubs that carry the server's three interfaces between processes.
//
// Records travel in their reference layout without the pointer, arrays with exactly the extents that the contract
// names; docs/protocol.md has the bytes of every slot. Both sides check every length before they use or allocate it.
//
// A proxy returns what the client owns by the contract: two task-memory blocks for a record with its array, a BSTR for
// a string. It fills buffers of the caller only when the call succeeds. Out-arguments are null or zero when the
// transport fails.
#pragma once

#include <array>
#include <cstddef>

#include "contract/interfaces.h"
#include "platform/com/marshaler.h"

namespace marshal {

// A call can always carry this many bytes of content. The rest of its frame has room for a name and a few numbers.
inline constexpr std::size_t kContentBytes = channel::kMaxPayloadBytes - 4096;

// Stubs and proxies of IZNPL_Rel, IZNPL_Relatorio2 and IZNPL_RelConverte, in this order.
std::array<com::Marshaler, 3> Marshalers();

// Registers the three interfaces with the runtime of this process. Clients and the server call it once, at the start.
void RegisterInterfaces();

// ---- Rehearsals: what a call would do ------------------------------------------------------------------------------

// The server's half: each tells com::ServedClient what the call with these arguments would do.
struct Rehearsals {
  HRESULT (*migration)(BSTR module, BSTR component);
  HRESULT (*renumbering)(BSTR module, BSTR component, LONG count, REL_CODIGO_CAMPOS_ALTERADOS* pairs);
};

void RegisterRehearsals(const Rehearsals& rehearsals);

// The client's half; `receiver` gets the notes. Results as com::Rehearse; E_INVALIDARG when the arguments do not fit
// into a frame.
HRESULT RehearseMigration(BSTR module, BSTR component, channel::NoteReceiver* receiver);
HRESULT RehearseRenumbering(BSTR module, BSTR component, LONG count, const REL_CODIGO_CAMPOS_ALTERADOS* pairs,
                            channel::NoteReceiver* receiver);

}  // namespace marshal
