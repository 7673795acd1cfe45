#include "contract/interfaces.h"
#include "marshalers.h"
#include "proxy.h"
#include "stub.h"

namespace marshal {

namespace {

// A store that is not initialised says so whatever the content is, so the store itself checks the content's size.
using Content = served::InUncheckedArray<LONG, unsigned char>;

constexpr Slot<IZNPL_Relatorio2> kSlots[] = {
    Serve<&IZNPL_Relatorio2::Inicializa, served::InText, served::InText>,
    Serve<&IZNPL_Relatorio2::GetCamposDisponiveis, served::OutRecord<REG_CAMPOS_DISPONIVEIS2>>,
    Serve<&IZNPL_Relatorio2::Le, served::InText, served::OutRecord<REG_RELATORIO2>>,
    Serve<&IZNPL_Relatorio2::Grava, served::InText, served::InValue<USHORT>, served::InValue<unsigned char>, Content>,
    Serve<&IZNPL_Relatorio2::GetNomeRelatorios, served::OutRecord<REG_ARRAY_RELATORIO2>>,
    Serve<&IZNPL_Relatorio2::ExcluiRelatorio, served::InText, served::InValue<char>, served::OutValue<char>>,
    Serve<&IZNPL_Relatorio2::GetRelatorioPadrao, served::OutText>,
    Serve<&IZNPL_Relatorio2::SetRelatorioPadrao, served::InText>,
    Serve<&IZNPL_Relatorio2::GetNomeRelatoriosDemonstracaoExcluidos, served::OutFilledRecord<REG_ARRAY_RELATORIO2>>,
};

class Relatorio2Proxy final : public Proxy<IZNPL_Relatorio2, IID_IZNPL_Relatorio2> {
 public:
  using Proxy::Proxy;

  HRESULT Inicializa(BSTR bsModulo, BSTR bsComponente) override {
    return Call(3, sent::InText(bsModulo), sent::InText(bsComponente));
  }
  HRESULT GetCamposDisponiveis(REG_CAMPOS_DISPONIVEIS2** ppregCamposDisponiveis) override {
    return Call(4, sent::OutRecord(ppregCamposDisponiveis));
  }
  HRESULT Le(BSTR bsRelatorio, REG_RELATORIO2** ppregRelatorio) override {
    return Call(5, sent::InText(bsRelatorio), sent::OutRecord(ppregRelatorio));
  }
  HRESULT Grava(BSTR bsRelatorio, USHORT nVersao, unsigned char flagGravacao, LONG nTamanho,
                unsigned char* lpRelatorio) override {
    return Call(6, sent::InText(bsRelatorio), sent::InValue(nVersao), sent::InValue(flagGravacao),
                sent::InArray(nTamanho, lpRelatorio));
  }
  HRESULT GetNomeRelatorios(REG_ARRAY_RELATORIO2** ppregRelatorios) override {
    return Call(7, sent::OutRecord(ppregRelatorios));
  }
  HRESULT ExcluiRelatorio(BSTR nome, char bModeloDemo, char* result) override {
    return Call(8, sent::InText(nome), sent::InValue(bModeloDemo), sent::OutValue(result));
  }
  HRESULT GetRelatorioPadrao(BSTR* bsRelatorio) override { return Call(9, sent::OutText(bsRelatorio)); }
  HRESULT SetRelatorioPadrao(BSTR bsRelatorio) override { return Call(10, sent::InText(bsRelatorio)); }
  HRESULT GetNomeRelatoriosDemonstracaoExcluidos(REG_ARRAY_RELATORIO2* pregRelatorios) override {
    return Call(11, sent::OutFilledRecord(pregRelatorios));
  }
};

}  // namespace

com::Marshaler Relatorio2Marshaler() {
  return {IID_IZNPL_Relatorio2, NewStub<IZNPL_Relatorio2, IID_IZNPL_Relatorio2, kSlots>,
          NewProxy<IZNPL_Relatorio2, Relatorio2Proxy>};
}

}  // namespace marshal
