// The move of first-generation models into the report store.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

#include "common/objeto_contado.h"
#include "document/conversor_modelos.h"
#include "document/mem_stream.h"
#include "document/segundo_fio.h"
#include "migration/conteudo_rel.h"
#include "platform/files/files.h"

namespace kestor {

// Makes a store of the first generation in this process. Returns what IClassFactory::CreateInstance would.
using CriaLegado = HRESULT (*)(Servidor& servidor, REFIID iid, void** object);

// Writes the first-generation models of a module and component as report documents, stores these, and then deletes the
// models. Leaves a model for a later run if it is not understood to its end, or if its document cannot be made or
// stored. An object serves one run.
class CConversorRel final : public CConversorModelos {
 public:
  // A rehearsal only reports what would become of the models.
  enum class Modo { conversao, ensaio };

  // The documents go into `repositorio`, which is initialised for the module and component.
  CConversorRel(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente, Servidor& servidor,
                CriaLegado criaLegado, Modo modo = Modo::conversao);

  // Adds the name of a document that exists: a model of that name, in any letter case, is deleted and not converted.
  // Models whose own names differ in letter case alone are still left as they are.
  void AdicionaNomeExistente(const std::string& nome);

  // Returns E_OUTOFMEMORY if no store of the first generation can be made; otherwise that store's failure to initialise
  // or to list. The result does not depend on what happens to each model. Throws std::bad_alloc.
  HRESULT Executa() override;

  // Needs the store that Executa makes. Leaves models with names of more than 255 characters alone. The document may be
  // stored only after later models have been read: `nome` must stay valid until then.
  void ConverteModelo(std::string_view nome) override;

 private:
  using Documento = SegundoFio::Tarefa<std::unique_ptr<CMemStream>>;  // null when it cannot be made
  using Tratado = std::variant<Fim, Documento>;

  // A model whose turn has come. It is reported after those before it.
  struct EmObra {
    std::string_view nome;
    Tratado tratado;
  };

  // A name that is listed more than once.
  struct Repetido {
    std::string arquivos;  // the files of that name, as they are called on the disk
    bool eUmArquivo = false;
    bool tratado = false;
  };

  HRESULT CriaRepositorioRel();
  void TerminaUltimos() noexcept override;
  void TerminaPrimeiro() noexcept;
  void Conclui(const std::string& nome, Fim& fim) override;
  void AnotaRepetidos(const std::vector<std::string_view>& nomes);
  Tratado Trata(const std::string& nome);
  Tratado Converte(const std::string& nome);
  Fim Guarda(const std::string& nome, std::unique_ptr<CMemStream> documento);
  static Fim Fica(const std::string& frase);  // a recorded reason replaces `frase`
  bool CarregaCatalogo();
  bool HaDocumento(const std::string& nome) const;
  bool ExportacaoInteira(const std::string& nome, const CConteudoRel& conteudo) const;
  bool HaExportacao(const std::string& nome) const;
  void ExcluiRel(const std::string& nome) const;

  const CriaLegado criaLegado_;
  const Modo modo_;
  ComPtr<IZNPL_Rel> rel_;
  CConteudoRel comCatalogo_;
  bool temCatalogo_ = false;
  std::optional<files::ContentWatch> vigiaCatalogo_;
  std::string prefixo_;                                  // of the paths of the first generation's files
  std::string prefixoDocumentos_;                        // and of those of the documents
  std::unordered_set<std::string> existentes_;           // upper case
  std::unordered_map<std::string, Repetido> repetidos_;  // upper case
  std::array<EmObra, 8> obras_;                          // enough that the second thread always has a next model
  std::size_t primeira_ = 0;
  std::size_t emObra_ = 0;      // from there on
  std::size_t bytesLidos_ = 0;  // of the model whose document was begun last
  SegundoFio fio_;
};

}  // namespace kestor
