#include "document/conversor_modelos.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "common/razao.h"
#include "common/texto_bstr.h"
#include "contract/results.h"
#include "document/vocabulario.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

// How many models Antecipa looks ahead: those of a batch, which are made while the previous batch goes to the disk. It
// takes two more at each turn, so that the first model is reported soon.
constexpr std::size_t kDianteira = 60;
constexpr std::size_t kPassoDianteira = 2;

std::string_view Vista(const CMemStream& conteudo) {
  return {reinterpret_cast<const char*>(conteudo.Buffer()), conteudo.Size()};
}

}  // namespace

CConversorModelos::CConversorModelos(Servidor& servidor, const char* classe, const char* metodo,
                                     IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente,
                                     Destino semExito)
    : servidor_(servidor),
      classe_(classe),
      metodo_(metodo),
      modulo_(std::move(modulo)),
      componente_(std::move(componente)),
      semExito_(semExito) {
  repositorio.AddRef();
  *repositorio_.Out() = &repositorio;
}

Mudanca CConversorModelos::Chamada() const {
  return {.classe = classe_, .metodo = metodo_, .modulo = modulo_, .componente = componente_};
}

HRESULT CConversorModelos::Executa() {
  const Servidor::Guarda guarda(servidor_, Chamada());
  REG_ARRAY_RELATORIO2* recebida = nullptr;
  const HRESULT resultado = repositorio_->GetNomeRelatorios(&recebida);
  if (FAILED(resultado) || recebida == nullptr) return resultado;
  const TaskBlock<REG_ARRAY_RELATORIO2> lista(recebida);
  const TaskBlock<tagREG_NOME_RELATORIO2> entradas(lista->pregRelatorios);
  // Files whose names differ only after a dot are listed under the same name, one after the other: the model of that
  // name must not be converted twice. A name in another letter case may lead to that model or to one of its own.
  std::vector<std::string_view> nomes;
  std::vector<std::string_view> incertos;
  for (std::size_t i = 0; i < lista->nQtdeRelatorios; ++i) {
    const std::string_view nome = entradas.get()[i].szNomeRelatorio;
    if (nomes.empty() || !text::EqualNoCase(nome, nomes.back())) {
      nomes.push_back(nome);
    } else if (nome != nomes.back()) {
      incertos.push_back(nome);
    }
  }
  ConverteTodos(nomes, incertos);
  // The reason of a single model is not one of the call.
  EsqueceRazao();
  return resultado;
}

void CConversorModelos::ConverteTodos(const std::vector<std::string_view>& nomes,
                                      const std::vector<std::string_view>& incertos) {
  feitos_ = primeiro_ = 0;
  total_ = nomes.size() + incertos.size();
  files::GroupedReplacements grupo;
  grupo_ = &grupo;
  std::size_t antecipados = 1;
  for (std::size_t i = 0; i < nomes.size(); ++i) {
    const std::size_t dianteira = std::min({nomes.size(), i + kDianteira, antecipados + kPassoDianteira});
    for (; antecipados < dianteira; ++antecipados)
      Antecipa(nomes[antecipados]);
    ConverteModelo(nomes[i]);
  }
  TerminaUltimos();
  TerminaTodos();
  grupo_ = nullptr;
  for (const std::string_view nome : incertos)
    Relata(nome, {.destino = semExito_, .razao = "its name is that of another model but for the letter case"});
}

HRESULT CConversorModelos::Grava(const std::string& nome, KESTOR_FlagGravacao flag, const CMemStream& documento,
                                 Quando quando) {
  std::size_t numero = 0;
  const auto tenta = [&] {
    const Servidor::Silencio silencio(servidor_);
    EsqueceRazao();
    numero = grupo_->Count();
    return repositorio_->Grava(NovoBstr(nome).get(), kVersaoDocumento, static_cast<unsigned char>(flag),
                               static_cast<LONG>(documento.Size()), documento.Buffer());
  };
  HRESULT resultado = tenta();
  if (FAILED(resultado) && !(lote_.empty() && fechado_.empty())) {
    // On a nearly full disk there may be room once the waiting models are finished and their old files are gone.
    TerminaTodos();
    resultado = tenta();
  }
  if (grupo_->Count() == numero) return resultado;
  arquivo_ = numero;
  if (quando == Quando::comOsOutros) return resultado;
  grupo_->Finish();
  const CFileException& falha = grupo_->Of(numero).failure;
  if (falha.m_cause == CFileException::none) return resultado;
  arquivo_.reset();
  DizRazao("written", falha);
  return ErrorForm(KESTOR_PROBLEMAS_AO_GRAVAR);
}

void CConversorModelos::Encerra(std::string_view nome, Fim fim) noexcept {
  const std::optional<std::size_t> arquivo = std::exchange(arquivo_, std::nullopt);
  try {
    Espera espera = {std::string(nome), std::move(fim), arquivo};
    if (lote_.empty() && fechado_.empty() && !arquivo) return Termina(espera);
    if (lote_.empty()) inicioLote_ = Relogio::now();
    lote_.push_back(std::move(espera));
    if (!fechado_.empty() && grupo_->IsFlushed()) TerminaFechado();
    if (LoteCheio()) FechaLote();
  } catch (const std::bad_alloc&) {
    TerminaTodos();
    Relata(nome, SemMemoria());
  }
}

bool CConversorModelos::LoteCheio() const {
  // Clients show the progress of the call, and a disk may be slow.
  constexpr auto kMaiorEspera = std::chrono::milliseconds(400);
  constexpr std::size_t kMaisModelos = 1024;  // most of them without a document to store
  if (lote_.empty()) return false;
  const Relogio::duration espera =
      Relogio::now() - inicioLote_ + static_cast<int>(grupo_->Count() - primeiro_) * porArquivo_;
  return grupo_->IsFull() || lote_.size() >= kMaisModelos || espera > kMaiorEspera;
}

void CConversorModelos::FechaLote() noexcept {
  TerminaFechado();
  fechado_.swap(lote_);
  arquivosFechados_ = grupo_->Count() - std::exchange(primeiro_, grupo_->Count());
  fechamento_ = Relogio::now();
  grupo_->Close();
}

void CConversorModelos::TerminaFechado() noexcept {
  const std::size_t arquivos = std::exchange(arquivosFechados_, 0);
  if (grupo_->FinishClosed()) porArquivo_ = (Relogio::now() - fechamento_) / static_cast<int>(arquivos);
  for (Espera& espera : fechado_)
    Termina(espera);
  fechado_.clear();
  grupo_->ForgetClosed();
}

void CConversorModelos::TerminaTodos() noexcept {
  FechaLote();
  TerminaFechado();
}

void CConversorModelos::Termina(Espera& espera) noexcept {
  std::string falta;
  try {
    EsqueceRazao();
    const auto desfecho = espera.arquivo ? grupo_->Of(*espera.arquivo) : files::GroupedReplacements::Outcome();
    falta = desfecho.notKept;
    if (desfecho.failure.m_cause == CFileException::none) {
      Conclui(espera.nome, espera.fim);
    } else {
      DizRazao("written", desfecho.failure);
      espera.fim = {.destino = semExito_, .razao = RazaoDita()};
    }
  } catch (const std::bad_alloc&) {
    espera.fim = SemMemoria();
  }
  Relata(espera.nome, espera.fim, std::move(falta));
}

CConversorModelos::Fim CConversorModelos::SemMemoria() const {
  return {.destino = semExito_, .razao = "memory ran out"};  // short enough to need no allocation
}

void CConversorModelos::Relata(std::string_view nome, const Fim& fim, std::string falta) noexcept {
  ++feitos_;
  EsqueceRazao();
  try {
    Mudanca mudanca = Chamada();
    mudanca.modelo = nome;
    mudanca.razao = fim.razao;
    mudanca.falta = std::move(falta);
    mudanca.destino = fim.destino;
    mudanca.feitos = feitos_;
    mudanca.total = total_;
    mudanca.antes = {reinterpret_cast<const char*>(fim.antes.get()), fim.bytesAntes};
    if (fim.depois) mudanca.depois = Vista(*fim.depois);
    mudanca.substitui = fim.substitui;
    servidor_.Relata(std::move(mudanca));
  } catch (const std::bad_alloc&) {
    // The conversion stands, reported or not.
  }
}

}  // namespace kestor
