// The default report of a module and component.

#include <new>

#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "resultado.h"
#include "store/registros.h"
#include "store/repositorio_rel2.h"

namespace kestor {

namespace {

HRESULT EntregaNome(std::string_view nome, BSTR* destino) {
  try {
    if (!nome.empty()) *destino = NovoBstr(nome).release();
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace

HRESULT CRepositorioRel2::GetRelatorioPadrao(BSTR* bsRelatorio) {
  if (bsRelatorio == nullptr) return E_POINTER;
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  *bsRelatorio = nullptr;

  return ResultadoDe("read", [&] {
    if (registroPadrao_ > 0) {
      RegistroNome registro;
      CZNArqEx arquivo;
      const std::uint32_t numero =
          arquivo.LeRegistroArquivo(arquivoPadrao_, registroPadrao_, &registro, sizeof registro);
      if (numero != CZNArqEx::semErro) {
        DizRazao("read", arquivo, numero);
        return ServiceError(numero);
      }
      if (arquivo.LeuInteiro(registroPadrao_) && registro.EDe(chaveModulo_)) {
        return EntregaNome(registro.Nome(), bsRelatorio);
      }
    }
    std::string nome;
    PercorreRegistros(arquivoPadrao_, modo_ == Modo::ensaio, [&](std::uint32_t numero, const RegistroNome& registro) {
      if (!registro.EDe(chaveModulo_)) return true;
      registroPadrao_ = numero;
      nome = registro.Nome();
      return false;
    });
    return EntregaNome(nome, bsRelatorio);
  });
}

HRESULT CRepositorioRel2::SetRelatorioPadrao(BSTR bsRelatorio) {
  return servidor_.Executa(MudancaDe("SetRelatorioPadrao"), bsRelatorio, [&] { return GravaPadrao(bsRelatorio); });
}

HRESULT CRepositorioRel2::GravaPadrao(BSTR bsRelatorio) {
  if (!Inicializado()) return ErrorForm(KESTOR_NAO_FOI_INICIALIZADO);
  const std::string nome = TextoDeBstr(bsRelatorio);
  CFileException falha;
  if (bsRelatorio != nullptr && !ArquivoExiste(CaminhoRelatorioGravado(Prefixo(), nome), &falha)) {
    DizRazao("made the default report", falha);
    return S_FALSE;
  }

  const RegistroNome registro(chaveModulo_, nome);
  CZNArqEx arquivo;
  std::uint32_t numero = AbreParaGravar(arquivo, arquivoPadrao_);
  if (numero == CZNArqEx::semErro) numero = ProcuraRegistroPadrao(arquivo);
  if (numero == CZNArqEx::semErro) numero = GravaNome(arquivo, registro, registroPadrao_);
  if (numero == CZNArqEx::semErro) numero = arquivo.Fecha();
  if (numero == CZNArqEx::semErro) return S_OK;
  DizRazao("written", arquivo, numero);
  return ServiceError(numero);
}

// Sets registroPadrao_ to the number of this key's record, 0 if there is none. Returns a number of CZNArqEx. Trusts the
// remembered number only if the record there is this key's: the file may have been replaced by an older one.
std::uint32_t CRepositorioRel2::ProcuraRegistroPadrao(CZNArqEx& arquivo) {
  RegistroNome registro;
  if (registroPadrao_ > 0 && arquivo.LeRegistro(registroPadrao_, &registro) == CZNArqEx::semErro &&
      registro.EDe(chaveModulo_)) {
    return CZNArqEx::semErro;
  }
  registroPadrao_ = 0;
  std::uint32_t comprimento = 0;
  if (arquivo.Posiciona('F', 0, comprimento) != CZNArqEx::semErro) comprimento = 0;  // as if there were no record
  const std::uint32_t registros = comprimento / sizeof registro;
  for (std::uint32_t numero = 1; numero < registros; ++numero) {
    const std::uint32_t falha = arquivo.LeRegistro(numero, &registro);
    if (falha != CZNArqEx::semErro) return falha;
    if (registro.EDe(chaveModulo_)) {
      registroPadrao_ = numero;
      break;
    }
  }
  return CZNArqEx::semErro;
}

}  // namespace kestor
