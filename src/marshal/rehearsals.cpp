#include <new>

#include "contract/interfaces.h"
#include "marshal/marshal.h"
#include "platform/com/long_calls.h"
#include "proxy.h"
#include "stub.h"

namespace marshal {

namespace {

// The rehearsals of this process, as if they were the methods of an object.
struct Table {
  HRESULT Migration(BSTR module, BSTR component) { return of.migration(module, component); }
  HRESULT Renumbering(BSTR module, BSTR component, LONG count, REL_CODIGO_CAMPOS_ALTERADOS* pairs) {
    return of.renumbering(module, component, count, pairs);
  }

  Rehearsals of{};
} table;

using Pairs = served::InArray<LONG, REL_CODIGO_CAMPOS_ALTERADOS, served::NegativeCount::isNothing>;

// Decodes the arguments like those of the call.
template <auto method, typename... Arguments>
HRESULT Decode(channel::Decoder& in) {
  channel::Encoder nothing;
  nothing.BeginFrame(channel::FrameType::rehearse);
  return Serve<method, Arguments...>(table, in, nothing);
}

template <typename... Arguments>
HRESULT Ask(REFCLSID clsid, channel::NoteReceiver* receiver, const Arguments&... arguments) {
  try {
    channel::Encoder out;
    out.BeginFrame(channel::FrameType::rehearse);
    (arguments.Encode(out), ...);
    return com::Rehearse(clsid, out.Frames().Data() + channel::kHeadBytes, out.PayloadBytes(), receiver);
  } catch (const FrameFull&) {
    return E_INVALIDARG;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace

void RegisterRehearsals(const Rehearsals& rehearsals) {
  table.of = rehearsals;
  com::RegisterRehearsal(CLSID_ZNPL_Relatorio2, Decode<&Table::Migration, served::InText, served::InText>);
  com::RegisterRehearsal(CLSID_ZNPL_RelConverte, Decode<&Table::Renumbering, served::InText, served::InText, Pairs>);
}

HRESULT RehearseMigration(BSTR module, BSTR component, channel::NoteReceiver* receiver) {
  return Ask(CLSID_ZNPL_Relatorio2, receiver, sent::InText(module), sent::InText(component));
}

HRESULT RehearseRenumbering(BSTR module, BSTR component, LONG count, const REL_CODIGO_CAMPOS_ALTERADOS* pairs,
                            channel::NoteReceiver* receiver) {
  return Ask(CLSID_ZNPL_RelConverte, receiver, sent::InText(module), sent::InText(component),
             sent::InArray(count, pairs));
}

}  // namespace marshal
