#include "migration/conversor_rel.h"

#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/arquivos_modelo.h"
#include "common/caminhos_instalacao.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "common/texto_bstr.h"
#include "common/zn_exception.h"
#include "contract/results.h"
#include "document/modelo_lido.h"
#include "documento_rel.h"
#include "migration/conteudo_rel.h"
#include "platform/files/files.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

constexpr std::size_t kMaximoNome = 255;
constexpr char kSeparadorNomes = '|';

// Longer contents are stored before the next one is read.
constexpr std::size_t kMaiorAdiantado = std::size_t{128} << 10;

// Bytes of export settings without their items. A shorter file has no settings.
constexpr LONG kBytesCabecalhoExportacao = kBytesWithoutPointer<tagREG_RELEXPORTACAO>;

// Splits a list of names. The names are views of the text.
std::vector<std::string_view> Nomes(std::string_view texto) {
  std::vector<std::string_view> nomes;
  while (!texto.empty()) {
    nomes.push_back(texto.substr(0, texto.find(kSeparadorNomes)));
    texto.remove_prefix(std::min(nomes.back().size() + 1, texto.size()));
  }
  return nomes;
}

}  // namespace

CConversorRel::CConversorRel(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente,
                             Servidor& servidor, CriaLegado criaLegado, Modo modo)
    : CConversorModelos(servidor, "ZNPL_Relatorio2", "Inicializa", repositorio, std::move(modulo),
                        std::move(componente), Destino::fica),
      criaLegado_(criaLegado),
      modo_(modo) {}

void CConversorRel::AdicionaNomeExistente(const std::string& nome) {
  existentes_.insert(text::Upper(nome));
}

HRESULT CConversorRel::Executa() {
  const Servidor::Guarda guarda(ServidorDeste(), Chamada());
  const HRESULT inicio = CriaRepositorioRel();
  if (FAILED(inicio)) return inicio;
  BSTR recebidos = nullptr;
  const HRESULT listagem = rel_->BuscaNomeRelatoriosExistentes(&recebidos);
  const std::string texto = TextoDeBstr(OwnedBstr(recebidos).get());
  if (FAILED(listagem)) return listagem;

  // Flushing two removals for each model would cost as much as all the rest. If a power failure undoes a removal, the
  // next initialisation finds the model converted and removes it.
  const files::GroupedRemovals remocoes;
  const std::vector<std::string_view> nomes = Nomes(texto);
  AnotaRepetidos(nomes);
  ConverteTodos(nomes);
  if (!nomes.empty()) EsqueceRazao();  // the reason of a single model is not one of the call
  return S_OK;
}

// Files whose names differ in letter case alone come from elsewhere, and the platform reaches only one of them: if that
// one were converted or deleted under their common name, the other would be lost. A name that is listed twice may also
// come from two files that differ after a dot. If the files cannot be listed, it counts as differing in letter case.
void CConversorRel::AnotaRepetidos(const std::vector<std::string_view>& nomes) {
  std::unordered_set<std::string> vistos;
  for (const std::string_view nome : nomes) {
    std::string maiusculas = text::Upper(nome);
    if (!vistos.insert(maiusculas).second) repetidos_.try_emplace(std::move(maiusculas));
  }
  if (repetidos_.empty()) return;
  std::unordered_map<std::string, std::vector<std::string>> arquivos;
  for (const std::string& arquivo : ArquivosDaMascara(MascaraRel(prefixo_)))
    arquivos[text::Upper(arquivo)].push_back(text::Presentable(text::ToUtf8(arquivo)));
  const std::string codigos = ModuloRel(Modulo()) + ComponenteRel(Componente());
  for (auto& [nome, repetido] : repetidos_) {
    const std::vector<std::string>& achados = arquivos[text::Upper(CaminhoRelGravado(codigos, nome))];
    repetido.eUmArquivo = achados.size() == 1;
    for (const std::string& arquivo : achados)
      repetido.arquivos += (repetido.arquivos.empty() ? "" : " and ") + arquivo;
  }
}

HRESULT CConversorRel::CriaRepositorioRel() {
  if (FAILED(criaLegado_(ServidorDeste(), IID_IZNPL_Rel, rel_.OutVoid()))) return E_OUTOFMEMORY;
  const HRESULT inicio = rel_->Inicializa(nullptr, NovoBstr(Modulo()).get(), NovoBstr(Componente()).get());
  if (FAILED(inicio)) return inicio;
  std::string pasta;
  if (const auto falha = CCaminhosInstalacao::BuscaCaminhoRelatorios(pasta)) return ServiceError(falha);
  prefixo_ = pasta + ModuloRel(Modulo()) + ComponenteRel(Componente());
  prefixoDocumentos_ = pasta + Modulo() + Componente();
  std::string instalacao;
  if (const auto falha = CCaminhosInstalacao::BuscaCaminhoModulo(Modulo(), instalacao)) return ServiceError(falha);
  vigiaCatalogo_.emplace(CaminhoCatalogo(instalacao, ModuloRel(Modulo()), ComponenteRel(Componente())));
  comCatalogo_.DefineRepositorio(*rel_);
  return S_OK;
}

void CConversorRel::ConverteModelo(std::string_view listado) {
  if (!rel_) return;
  if (emObra_ == obras_.size()) TerminaPrimeiro();
  EmObra& obra = obras_.at((primeira_ + emObra_++) % obras_.size());
  obra = {listado, SemMemoria()};
  bytesLidos_ = 0;
  try {
    EsqueceRazao();
    obra.tratado = Trata(std::string(listado));
  } catch (const ZN::CException&) {
    // A model that is too large for the memory must not hold up the others.
  } catch (const std::bad_alloc&) {
  }
  // Several long models must not be in memory at the same time.
  if (bytesLidos_ > kMaiorAdiantado) TerminaUltimos();
}

void CConversorRel::TerminaUltimos() noexcept {
  while (emObra_ > 0)
    TerminaPrimeiro();
}

void CConversorRel::TerminaPrimeiro() noexcept {
  EmObra& obra = obras_.at(primeira_);
  primeira_ = (primeira_ + 1) % obras_.size();
  --emObra_;
  Fim fim = SemMemoria();
  try {
    EsqueceRazao();
    auto* const documento = std::get_if<Documento>(&obra.tratado);
    fim = documento != nullptr ? Guarda(std::string(obra.nome), documento->Toma())
                               : std::move(std::get<Fim>(obra.tratado));
  } catch (const ZN::CException&) {
  } catch (const std::bad_alloc&) {
  }
  Encerra(obra.nome, std::move(fim));
}

CConversorRel::Fim CConversorRel::Fica(const std::string& frase) {
  const std::string dita = RazaoDita();
  return {.destino = Destino::fica, .razao = dita.empty() ? frase : dita};
}

CConversorRel::Tratado CConversorRel::Trata(const std::string& nome) {
  if (nome.size() > kMaximoNome) {
    return Fica("its name has more than " + std::to_string(kMaximoNome) + " characters");
  }
  const std::string maiusculas = text::Upper(nome);
  const auto repetido = repetidos_.find(maiusculas);
  if (repetido != repetidos_.end() && !repetido->second.eUmArquivo) {
    const std::string& arquivos = repetido->second.arquivos;
    return Fica("the files " + (arquivos.empty() ? "of that name" : arquivos) +
                " differ in letter case alone: rename or remove one of them");
  }
  const bool tratado = repetido != repetidos_.end() && std::exchange(repetido->second.tratado, true);
  if (tratado || GetFileAttributesA(CaminhoRelGravado(prefixo_, nome).c_str()) == INVALID_FILE_ATTRIBUTES) {
    return Fica("its file has more in its name than \"" + text::Presentable(text::ToUtf8(nome)) + "\"");
  }
  if (existentes_.contains(maiusculas) && HaDocumento(nome)) return Fim{.destino = Destino::descartado};
  return Converte(nome);
}

// Deletes a model only if its document is on the disk. If the link to the folder has changed since the document was
// stored, the document is in another folder than the model that would be deleted.
void CConversorRel::Conclui(const std::string& nome, Fim& fim) {
  if (fim.destino == Destino::fica || modo_ == Modo::ensaio) return;
  const std::string documento = CaminhoRelatorioGravado(prefixoDocumentos_, nome);
  if (GetFileAttributesA(documento.c_str()) == INVALID_FILE_ATTRIBUTES) {
    fim = Fica("its document is no longer there");
    return;
  }
  ExcluiRel(nome);
  fim.razao = RazaoDita();
  // A model that could not be deleted stays, even though its document existed before.
  if (fim.destino == Destino::descartado && !fim.razao.empty()) fim.destino = Destino::fica;
}

CConversorRel::Tratado CConversorRel::Converte(const std::string& nome) {
  const auto conteudo = std::make_shared<CConteudoRel>();
  conteudo->DefineRepositorio(*rel_);
  EsqueceRazao();  // it may say why a listed document is none
  if (const HRESULT leitura = conteudo->Carrega(nome); leitura != S_OK) return Fica("it cannot be read");
  EsqueceRazao();  // models without export settings are common
  if (!conteudo->Completo()) return Fica("its content is empty, cut short, or of a version that is not known");
  if (!ExportacaoInteira(nome, *conteudo)) return Fica("its export settings are cut short");
  EsqueceRazao();
  if (!CarregaCatalogo()) return Fica("the field catalogue cannot be read");
  conteudo->UsaCatalogoDe(comCatalogo_);
  bytesLidos_ = conteudo->Bytes();
  return fio_.Comeca([conteudo, nome] {
    auto documento = std::make_unique<CMemStream>();
    if (!GeraDocumento(*conteudo, nome, *documento)) documento.reset();
    return documento;
  });
}

CConversorRel::Fim CConversorRel::Guarda(const std::string& nome, std::unique_ptr<CMemStream> documento) {
  if (!documento) return Fica("its document cannot be made");
  // An existing document is not overwritten: another station may have converted the model at the same moment.
  const HRESULT gravacao = Grava(nome, KESTOR_NaoSobreescrever, *documento, Quando::comOsOutros);
  if (gravacao == S_OK) return {.destino = Destino::convertido};
  const std::string arquivo = CaminhoRelatorioGravado(Modulo() + Componente(), nome);
  return Fica(gravacao == NoticeForm(KESTOR_ARQUIVO_JA_EXISTE)
                  ? "there is a file " + text::Presentable(text::ToUtf8(arquivo)) + " already"
                  : "its document cannot be stored");
}

// Reads the catalogue only when it has changed: it is the same for all models, and reading it takes as long as
// everything else that is done for one.
bool CConversorRel::CarregaCatalogo() {
  const bool mudou = vigiaCatalogo_->HasChanged();
  if (temCatalogo_ && !mudou) return true;
  temCatalogo_ = false;
  temCatalogo_ = comCatalogo_.CarregaCatalogo() == S_OK;
  return temCatalogo_;
}

// A listed name alone is no document: it may be that of a folder, of an empty file, or of a file with a second dot.
bool CConversorRel::HaDocumento(const std::string& nome) const {
  return static_cast<bool>(ModeloLido(Repositorio(), nome));
}

// Returns false for settings that exist but could not be read whole, because another program has them open or because
// they are cut inside their items: they would be lost with the model.
bool CConversorRel::ExportacaoInteira(const std::string& nome, const CConteudoRel& conteudo) const {
  if (conteudo.TemExportacao()) {
    const auto bytes = files::LengthOf(CaminhoExportacao(prefixo_, nome).c_str());
    return bytes && *bytes >= conteudo.BytesExportacao();
  }
  LONG bytes = 0;
  const HRESULT leitura = rel_->BuscaTamanhoRelatorio(NovoBstr(NomeDaExportacao(nome)).get(), &bytes);
  return leitura == S_OK ? bytes < kBytesCabecalhoExportacao : !HaExportacao(nome);
}

// Returns true if there is a file of export settings, even one that another program has open.
bool CConversorRel::HaExportacao(const std::string& nome) const {
  return GetFileAttributesA(CaminhoExportacao(prefixo_, nome).c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Deletes a model and its export settings. Records the reason if one of the two files stays.
void CConversorRel::ExcluiRel(const std::string& nome) const {
  EsqueceRazao();
  const Servidor::Silencio silencio(ServidorDeste());
  // The export settings are deleted before the model. If the server is killed in between, or another station has the
  // settings open, the model stays and the next migration deletes it. Settings without a model would stay for good.
  rel_->ExcluiRelatorio(NovoBstr(NomeDaExportacao(nome)).get());
  if (!HaExportacao(nome)) rel_->ExcluiRelatorio(NovoBstr(nome).get());
}

}  // namespace kestor
