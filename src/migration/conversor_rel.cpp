#include "migration/conversor_rel.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>

#include "common/arquivos_modelo.h"
#include "common/caminhos_instalacao.h"
#include "common/texto_bstr.h"
#include "common/zn_exception.h"
#include "documento_rel.h"
#include "migration/conteudo_rel.h"
#include "platform/files/files.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

constexpr std::size_t kMaximoNome = 255;
constexpr std::size_t kMaximoModulo = 2;  // characters of the codes in the first generation
constexpr std::size_t kMaximoComponente = 3;
constexpr char kSeparadorNomes = '|';
constexpr const char* kExtensaoExportacao = ".REE";

// Throws std::bad_alloc.
OwnedBstr NovoBstr(const std::string& texto) {
  OwnedBstr novo(BstrDeTexto(texto));
  if (!novo) throw std::bad_alloc();
  return novo;
}

// False when the markup component is not to be had, or has not written the whole document.
bool GeraDocumento(const CConteudoRel& conteudo, const std::string& nome, CMemStream& saida) {
  ComPtr<IEscritorMarcacao> escritor;
  if (FAILED(
          CoCreateInstance(CLSID_EscritorMarcacao, nullptr, CLSCTX_ALL, IID_IEscritorMarcacao, escritor.OutVoid()))) {
    return false;
  }
  escritor->DefineSaida(&saida);
  escritor->IniciaDocumento();
  ComPtr<IAtributosMarcacao> atributos;
  if (FAILED(CoCreateInstance(CLSID_AtributosMarcacao, nullptr, CLSCTX_ALL, IID_IAtributosMarcacao,
                              atributos.OutVoid()))) {
    return false;
  }
  EscreveDocumento(conteudo, nome, *escritor, *atributos);
  return SUCCEEDED(escritor->FinalizaDocumento());
}

}  // namespace

CConversorRel::CConversorRel(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente,
                             ContagemServidor& servidor, CriaLegado criaLegado)
    : CConversorModelos(repositorio, std::move(modulo), std::move(componente)),
      servidor_(servidor),
      criaLegado_(criaLegado) {}

void CConversorRel::AdicionaNomeExistente(const std::string& nome) {
  existentes_.insert(text::Upper(nome));
}

HRESULT CConversorRel::Executa() {
  // Longer codes would be cut by the first-generation store, and the models be another component's.
  if (Modulo().size() > kMaximoModulo || Componente().size() > kMaximoComponente) return S_OK;
  const HRESULT inicio = CriaRepositorioRel();
  if (FAILED(inicio)) return inicio;
  BSTR recebidos = nullptr;
  const HRESULT listagem = rel_->BuscaNomeRelatoriosExistentes(&recebidos);
  const OwnedBstr lista(recebidos);
  if (FAILED(listagem)) return listagem;

  // Two flushed removals a model would cost as much as all the rest. A model whose removal a power failure undoes is
  // found to be converted, and removed, by the next initialisation.
  const files::GroupedRemovals remocoes;
  const std::string nomes = TextoDeBstr(lista.get());
  for (std::string_view resto = nomes; !resto.empty();) {
    const std::string_view nome = resto.substr(0, resto.find(kSeparadorNomes));
    resto.remove_prefix(std::min(nome.size() + 1, resto.size()));
    ConverteModelo(nome);
  }
  return S_OK;
}

HRESULT CConversorRel::CriaRepositorioRel() {
  if (FAILED(criaLegado_(servidor_, IID_IZNPL_Rel, rel_.OutVoid()))) return E_OUTOFMEMORY;
  return rel_->Inicializa(nullptr, NovoBstr(Modulo()).get(), NovoBstr(Componente()).get());
}

void CConversorRel::ConverteModelo(std::string_view listado) {
  if (!rel_ || listado.size() > kMaximoNome) return;
  try {
    const std::string nome(listado);
    if (existentes_.count(text::Upper(nome)) != 0 && HaDocumento(nome)) {
      ExcluiRel(nome);
    } else {
      Converte(nome);
    }
  } catch (const ZN::CException&) {
    // One model too large for the memory must not hold up the others.
  } catch (const std::bad_alloc&) {
    // As above.
  }
}

void CConversorRel::Converte(const std::string& nome) const {
  CConteudoRel conteudo;
  conteudo.DefineRepositorio(*rel_);
  if (conteudo.Carrega(nome) != S_OK || !conteudo.Completo() || !ExportacaoInteira(nome, conteudo)) return;
  if (conteudo.CarregaCatalogo() != S_OK) return;
  CMemStream documento;
  if (GeraDocumento(conteudo, nome, documento) && Armazena(nome, documento)) ExcluiRel(nome);
}

// A listed name alone is no document yet: it is also that of a folder, of an empty file, or of one with a second dot.
bool CConversorRel::HaDocumento(const std::string& nome) const {
  REG_RELATORIO2* lido = nullptr;
  const HRESULT resultado = Repositorio().Le(NovoBstr(nome).get(), &lido);
  const TaskBlock<REG_RELATORIO2> registro(lido);
  const TaskBlock<std::uint8_t> conteudo(lido != nullptr ? lido->lpRelatorio : nullptr);
  return resultado == S_OK;
}

// Settings that are there and have not been read whole, because somebody has them open or because they are cut short,
// would be lost with the model.
bool CConversorRel::ExportacaoInteira(const std::string& nome, const CConteudoRel& conteudo) const {
  LONG bytes = 0;
  if (rel_->BuscaTamanhoRelatorio(NovoBstr(nome + kExtensaoExportacao).get(), &bytes) == S_OK) {
    return conteudo.TemExportacao() && static_cast<std::size_t>(bytes) >= conteudo.BytesExportacao();
  }
  return !conteudo.TemExportacao() && !HaExportacao(nome);
}

// Whether there is a file of export settings, also one that somebody has open.
bool CConversorRel::HaExportacao(const std::string& nome) const {
  std::string pasta;
  if (CCaminhosInstalacao::BuscaCaminhoRelatorios(pasta) != 0) return true;
  const std::string arquivo = pasta + Modulo() + Componente() + nome + kExtensaoExportacao;
  return GetFileAttributesA(arquivo.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// What is there is not overwritten: it may be the document of another station, which has converted the model at the
// same moment. One that no call could hand out again is not stored.
bool CConversorRel::Armazena(const std::string& nome, const CMemStream& documento) const {
  if (documento.Size() > kMaxConteudo) return false;
  return Repositorio().Grava(NovoBstr(nome).get(), kVersaoDocumento, KESTOR_NaoSobreescrever,
                             static_cast<LONG>(documento.Size()), documento.Buffer()) == S_OK;
}

void CConversorRel::ExcluiRel(const std::string& nome) const {
  // The export settings go first, and the model only behind them: of a server that is killed in between, or that meets
  // another station in the settings, the model is left, which the next migration deletes, and not settings without a
  // model, which nobody would.
  rel_->ExcluiRelatorio(NovoBstr(nome + kExtensaoExportacao).get());
  if (!HaExportacao(nome)) rel_->ExcluiRelatorio(NovoBstr(nome).get());
}

}  // namespace kestor
