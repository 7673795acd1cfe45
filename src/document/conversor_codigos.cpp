#include "document/conversor_codigos.h"

#include <algorithm>
#include <memory>
#include <new>
#include <set>
#include <utility>

#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/campo_texto.h"
#include "document/doc_relatorio.h"
#include "platform/files/files.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

// Codes up to this one are those of fixed columns; no code is renumbered to one of them.
constexpr std::uint16_t kUltimoCodigoFixo = 99;

// Longer contents are not converted ahead of their turn: some dozens of them wait in memory.
constexpr std::size_t kMaiorAdiantado = std::size_t{128} << 10;

// Returns the recorded reason of the last failure, or `frase` if there is none.
std::string RazaoOu(const char* frase) {
  std::string dita = RazaoDita();
  return dita.empty() ? frase : dita;
}

}  // namespace

CConversorCodigos::CConversorCodigos(Servidor& servidor, IZNPL_Relatorio2& repositorio, std::string modulo,
                                     std::string componente, LONG quantidade, const REL_CODIGO_CAMPOS_ALTERADOS* pares)
    : CConversorModelos(servidor, "ZNPL_RelConverte", "AlteraCodigoCampos", repositorio, std::move(modulo),
                        std::move(componente), Destino::ignorado) {
  if (!CarregaCatalogo()) {
    semCatalogo_ = RazaoOu("the field catalogue cannot be read");
    return;
  }
  std::string pasta;
  adianta_ = !CCaminhosInstalacao::BuscaCaminhoRelatorios(pasta) && files::IsOnLocalDisk(pasta.c_str());
  for (LONG i = 0; i < quantidade; ++i) {
    const REL_CODIGO_CAMPOS_ALTERADOS par = pares[i];
    mapaCodigos_.insert_or_assign(std::uint16_t{par.nCodigoAntigo}, std::uint16_t{par.nNovoCodigo});
  }
}

bool CConversorCodigos::CarregaCatalogo() {
  REG_CAMPOS_DISPONIVEIS2* recebidos = nullptr;
  if (FAILED(Repositorio().GetCamposDisponiveis(&recebidos)) || recebidos == nullptr) return false;
  const TaskBlock<REG_CAMPOS_DISPONIVEIS2> registro(recebidos);
  const TaskBlock<tagREG_CAMPOS_RELATORIO2> campos(registro->pregCampos);
  for (std::size_t i = 0; i < registro->nQtdeCampos; ++i) {
    const tagREG_CAMPOS_RELATORIO2& campo = campos.get()[i];
    mapaCatalogo_.insert_or_assign(std::uint16_t{campo.nCodigo}, campo);
  }
  return true;
}

const tagREG_CAMPOS_RELATORIO2* CConversorCodigos::BuscaCampo(std::uint16_t codigo) const {
  const auto campo = mapaCatalogo_.find(codigo);
  return campo != mapaCatalogo_.end() ? &campo->second : nullptr;
}

bool CConversorCodigos::Renumera(std::uint16_t& codigo) const {
  const auto novo = mapaCodigos_.find(codigo);
  if (novo == mapaCodigos_.end() || novo->second <= kUltimoCodigoFixo) return false;
  codigo = novo->second;
  return true;
}

template <typename Registro>
bool CConversorCodigos::AlteraLista(std::vector<Registro>& lista, char tagREG_CAMPOS_RELATORIO2::*permissao) const {
  bool alterou = false;
  for (Registro& registro : lista)
    alterou = Renumera(registro.codigo) || alterou;
  const std::size_t retirados = std::erase_if(lista, [&](const Registro& registro) {
    const tagREG_CAMPOS_RELATORIO2* campo = BuscaCampo(registro.codigo);
    return campo != nullptr && campo->*permissao == 0;
  });
  return alterou || retirados != 0;
}

bool CConversorCodigos::Altera(CDocRelatorio& documento) const {
  bool alterou = false;
  for (CampoEscolhido& coluna : documento.camposEscolhidos.campos) {
    if (!Renumera(coluna.codigo)) continue;
    alterou = true;
    if (const tagREG_CAMPOS_RELATORIO2* campo = BuscaCampo(coluna.codigo))
      coluna.cabecalho = TextoDoCampo(campo->szApelido);
  }
  alterou = AlteraLista(documento.ordenacao.campos, &tagREG_CAMPOS_RELATORIO2::bPodeOrdenar) || alterou;
  alterou = AlteraLista(documento.ordenacao.totalizacoes, &tagREG_CAMPOS_RELATORIO2::bPodeTotalizar) || alterou;
  return AlteraLista(documento.filtro.condicoes, &tagREG_CAMPOS_RELATORIO2::bPodeFiltrar) || alterou;
}

void CConversorCodigos::RelataCodigosSemCampo() {
  if (!semCatalogo_.empty()) return;
  std::set<std::uint16_t> faltam;
  for (const auto& [antigo, novo] : mapaCodigos_) {
    if (BuscaCampo(novo) == nullptr) faltam.insert(novo);
  }
  for (const std::uint16_t codigo : faltam) {
    const std::string nome = std::to_string(codigo);
    Mudanca mudanca = Chamada();
    mudanca.modelo = nome;
    mudanca.destino = Destino::codigoSemCampo;
    ServidorDeste().Relata(std::move(mudanca));
  }
}

CConversorCodigos::DocumentoNovo CConversorCodigos::Renumerado(const ModeloLido& modelo) const {
  DocumentoNovo novo;
  CDocRelatorio documento;
  novo.lido = documento.CarregaConteudo(*modelo, &novo.motivo);
  if (!novo.lido) return novo;
  novo.nome = documento.nome;
  novo.alterou = Altera(documento);
  novo.conteudo = documento.GeraConteudo();
  return novo;
}

void CConversorCodigos::Antecipa(std::string_view nome) {
  if (!adianta_) return;
  try {
    const auto modelo = std::make_shared<const ModeloLido>(Repositorio(), nome);
    if (!*modelo || modelo->Bytes() > kMaiorAdiantado) return;
    adiantados_.push_back({std::string(nome), modelo, fio_.Comeca([this, modelo] { return Renumerado(*modelo); })});
  } catch (const std::bad_alloc&) {
    // There may be memory when the model's turn comes.
  }
}

// Takes the document that was made ahead if it is complete and the model, read again in its turn, is still the same.
// Otherwise makes the document now: there may be memory by now.
CConversorCodigos::DocumentoNovo CConversorCodigos::DocumentoDe(std::string_view nome, const ModeloLido& modelo) {
  const auto achado = std::find_if(adiantados_.begin(), adiantados_.end(),
                                   [nome](const Adiantado& adiantado) { return adiantado.nome == nome; });
  if (achado == adiantados_.end()) return Renumerado(modelo);
  Adiantado adiantado = std::move(*achado);
  adiantados_.erase(adiantados_.begin(), achado + 1);
  try {
    if (*adiantado.modelo == modelo) {
      DocumentoNovo novo = adiantado.tarefa.Toma();
      if (novo.conteudo && novo.conteudo->Size() != 0) return novo;
    }
  } catch (const std::bad_alloc&) {
  }
  return Renumerado(modelo);
}

void CConversorCodigos::ConverteModelo(std::string_view nome) {
  Fim fim = SemMemoria();
  try {
    EsqueceRazao();
    fim = Converte(nome);
  } catch (const std::bad_alloc&) {
    // The other models still have their turn.
  }
  Encerra(nome, std::move(fim));
}

CConversorCodigos::Fim CConversorCodigos::Converte(std::string_view nome) {
  const auto ignora = [](std::string razao) { return Fim{.destino = Destino::ignorado, .razao = std::move(razao)}; };
  const std::string lido = ChaveRelatorio(nome);
  if (gravados_.contains(lido)) return ignora("its content is that of another model, which bears its name");
  ModeloLido modelo(Repositorio(), nome);
  if (!modelo) return ignora(RazaoOu("it cannot be read"));
  DocumentoNovo documento = DocumentoDe(nome, modelo);
  if (!documento.lido) return ignora(std::move(documento.motivo));
  // A document may come from anywhere: the name that it bears must not lead out of the reports folder.
  const std::string nomeDocumento = '"' + text::Presentable(text::ToUtf8(documento.nome)) + '"';
  if (!FicaNaPasta(documento.nome)) return ignora("its document bears the name of no model, " + nomeDocumento);

  const std::string gravado = ChaveRelatorio(documento.nome);
  const bool deOutro = gravado != lido;
  const bool substitui = deOutro && (gravados_.contains(gravado) || ModeloLido(Repositorio(), documento.nome));
  const bool anotado = deOutro && gravados_.insert(gravado).second;
  const auto falhou = [&](std::string razao) {
    if (anotado) gravados_.erase(gravado);
    return ignora(std::move(razao));
  };
  // An empty content means that the document could not be made: the stored one stays.
  if (!documento.conteudo || documento.conteudo->Size() == 0) return falhou("its document cannot be made");
  // When the other model's turn comes, it must be known whether its content is a new one.
  const Quando quando = deOutro ? Quando::ja : Quando::comOsOutros;
  if (Grava(documento.nome, KESTOR_Sobreescrever, *documento.conteudo, quando) != S_OK)
    return falhou(RazaoOu("it cannot be stored"));
  std::string razao = semCatalogo_;
  if (deOutro) razao = "stored as " + nomeDocumento + ", the name that its document bears";
  if (substitui) razao += ", over the model of that name";
  const std::size_t bytes = modelo.Bytes();
  return {.destino = documento.alterou || deOutro ? Destino::renumerado : Destino::inalterado,
          .razao = std::move(razao),
          .substitui = substitui,
          .antes = modelo.Conteudo(),
          .bytesAntes = bytes,
          .depois = std::move(documento.conteudo)};
}

}  // namespace kestor
