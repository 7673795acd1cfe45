#include "contract/interfaces.h"
#include "marshalers.h"
#include "proxy.h"
#include "stub.h"

namespace marshal {

namespace {

constexpr Slot<IZNPL_Rel> kSlots[] = {
    Serve<&IZNPL_Rel::Inicializa, served::InText, served::InText, served::InText>,
    Serve<&IZNPL_Rel::BuscaCampos, served::OutBuffer<tagREG_CAMPOS_RELATORIO>>,
    Serve<&IZNPL_Rel::BuscaQdeCamposArquivo, served::OutValue<LONG>>,
    Serve<&IZNPL_Rel::BuscaRelatorio, served::OutBuffer<unsigned char>>,
    Serve<&IZNPL_Rel::BuscaTamanhoRelatorio, served::InText, served::OutValue<LONG>>,
    Serve<&IZNPL_Rel::GravaRelatorio, served::InText, served::InValue<LONG>, served::InArray<LONG, unsigned char>>,
    Serve<&IZNPL_Rel::BuscaNomeRelatoriosExistentes, served::OutText>,
    Serve<&IZNPL_Rel::ExcluiRelatorio, served::InText>,
    Serve<&IZNPL_Rel::AtualizaRelatorio, served::InText, served::InValue<USHORT>, served::InValue<USHORT>,
          served::InArray<USHORT, REG_ATUALIZACAO_RELATORIO>>,
    Serve<&IZNPL_Rel::GravaRelatorioSemCallBack, served::InText, served::InValue<LONG>,
          served::InArray<LONG, unsigned char>>,
    Serve<&IZNPL_Rel::GravaDadosExportacaoDoRelatorio, served::InText, served::InRecord<tagREG_RELEXPORTACAO>>,
    Serve<&IZNPL_Rel::BuscaDadosExportacaoDoRelatorio, served::InText, served::OutRecord<tagREG_RELEXPORTACAO>>,
    Serve<&IZNPL_Rel::LeFiltroRelatorio, served::InText, served::OutRecord<tagFILTRO_RELATORIO>>,
    Serve<&IZNPL_Rel::GravaFiltroRelatorio, served::InText, served::InRecordPointer<tagFILTRO_RELATORIO>>,
};

class RelProxy final : public Proxy<IZNPL_Rel, IID_IZNPL_Rel> {
 public:
  using Proxy::Proxy;

  HRESULT Inicializa(BSTR bNomeEmpresa, BSTR bModulo, BSTR bComponente) override {
    return Call(3, sent::InText(bNomeEmpresa), sent::InText(bModulo), sent::InText(bComponente));
  }
  HRESULT BuscaCampos(LONG lQde, tagREG_CAMPOS_RELATORIO* pDados) override {
    return Call(4, sent::OutBuffer(lQde, pDados));
  }
  HRESULT BuscaQdeCamposArquivo(LONG* lQde) override { return Call(5, sent::OutValue(lQde)); }
  HRESULT BuscaRelatorio(LONG lQde, unsigned char* pDados) override { return Call(6, sent::OutBuffer(lQde, pDados)); }
  HRESULT BuscaTamanhoRelatorio(BSTR bNomeArq, LONG* lQde) override {
    return Call(7, sent::InText(bNomeArq), sent::OutValue(lQde));
  }
  HRESULT GravaRelatorio(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) override {
    return Call(8, sent::InText(bNomeArq), sent::InValue(bSobreescrever), sent::InArray(lQde, pDados));
  }
  HRESULT BuscaNomeRelatoriosExistentes(BSTR* bNomes) override { return Call(9, sent::OutText(bNomes)); }
  HRESULT ExcluiRelatorio(BSTR bNomeArq) override { return Call(10, sent::InText(bNomeArq)); }
  HRESULT AtualizaRelatorio(BSTR bsRelatorio, USHORT iMargemEsquerda, USHORT iMargemSuperior, USHORT iQdeColunas,
                            REG_ATUALIZACAO_RELATORIO* pregAtualizacao) override {
    return Call(11, sent::InText(bsRelatorio), sent::InValue(iMargemEsquerda), sent::InValue(iMargemSuperior),
                sent::InArray(iQdeColunas, pregAtualizacao));
  }
  HRESULT GravaRelatorioSemCallBack(BSTR bNomeArq, LONG bSobreescrever, LONG lQde, unsigned char* pDados) override {
    return Call(12, sent::InText(bNomeArq), sent::InValue(bSobreescrever), sent::InArray(lQde, pDados));
  }
  HRESULT GravaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO regExportacao) override {
    return Call(13, sent::InText(bsRelatorio), sent::InRecord(regExportacao));
  }
  HRESULT BuscaDadosExportacaoDoRelatorio(BSTR bsRelatorio, tagREG_RELEXPORTACAO** pregExportacao) override {
    return Call(14, sent::InText(bsRelatorio), sent::OutRecord(pregExportacao));
  }
  HRESULT LeFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO** ppregFiltro) override {
    return Call(15, sent::InText(bsRelatorio), sent::OutRecord(ppregFiltro));
  }
  HRESULT GravaFiltroRelatorio(BSTR bsRelatorio, tagFILTRO_RELATORIO* pregFiltro) override {
    return Call(16, sent::InText(bsRelatorio), sent::InRecordPointer(pregFiltro));
  }
};

}  // namespace

com::Marshaler RelMarshaler() {
  return {IID_IZNPL_Rel, NewStub<IZNPL_Rel, IID_IZNPL_Rel, kSlots>, NewProxy<IZNPL_Rel, RelProxy>};
}

}  // namespace marshal
