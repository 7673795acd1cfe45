#include "contract/interfaces.h"
#include "marshalers.h"
#include "proxy.h"
#include "stub.h"

namespace marshal {

namespace {

// Fewer than one pair is a renumbering of nothing, which still checks every model.
using Pairs = served::InArray<LONG, REL_CODIGO_CAMPOS_ALTERADOS, served::NegativeCount::isNothing>;

constexpr Slot<IZNPL_RelConverte> kSlots[] = {
    Serve<&IZNPL_RelConverte::AlteraCodigoCampos, served::InText, served::InText, Pairs>,
};

class RelConverteProxy final : public Proxy<IZNPL_RelConverte, IID_IZNPL_RelConverte> {
 public:
  using Proxy::Proxy;

  HRESULT AlteraCodigoCampos(BSTR modulo, BSTR componente, LONG nQtdeCampos,
                             REL_CODIGO_CAMPOS_ALTERADOS* aCodigoAlterados) override {
    return Call(3, sent::InText(modulo), sent::InText(componente), sent::InArray(nQtdeCampos, aCodigoAlterados));
  }
};

}  // namespace

com::Marshaler RelConverteMarshaler() {
  return {IID_IZNPL_RelConverte, NewStub<IZNPL_RelConverte, IID_IZNPL_RelConverte, kSlots>,
          NewProxy<IZNPL_RelConverte, RelConverteProxy>};
}

}  // namespace marshal
