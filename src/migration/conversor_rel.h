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

// Makes a store of the first generation in this process; results as IClassFactory::CreateInstance gives them.
using CriaLegado = HRESULT (*)(Servidor& servidor, REFIID iid, void** object);

// Writes the first-generation models of a module and component as report documents, stores these and then deletes the
// models. A model that has not been understood to its end, or whose document cannot be made or stored, stays as it is,
// to be tried again another time. Made for one run.
class CConversorRel final : public CConversorModelos {
 public:
  // A rehearsal only tells what would become of the models.
  enum class Modo { conversao, ensaio };

  // The documents go into `repositorio`, which is initialised for the module and component.
  CConversorRel(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente, Servidor& servidor,
                CriaLegado criaLegado, Modo modo = Modo::conversao);

  // Tells of a document that exists: a model of its name, whatever the letter case, is deleted and not converted.
  // Models whose own names differ in letter case alone are left as they are all the same.
  void AdicionaNomeExistente(const std::string& nome);

  // E_OUTOFMEMORY without a store of the first generation; that store's failure of initialising or listing. What
  // happens to each model does not show in the result. Throws std::bad_alloc.
  HRESULT Executa() override;

  // Needs the store that Executa makes. Names of more than 255 characters are left alone. The document of a model is
  // stored after some of the next have been read: the name must live that long.
  void ConverteModelo(std::string_view nome) override;

 private:
  using Documento = SegundoFio::Tarefa<std::unique_ptr<CMemStream>>;  // null when it cannot be made
  using Tratado = std::variant<Fim, Documento>;

  // A model whose turn has come, and that is told of after those before it.
  struct EmObra {
    std::string_view nome;
    Tratado tratado;
  };

  // A name that is listed more than once.
  struct Repetido {
    std::string arquivos;  // those that have it, by their names on the disk
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
  static Fim Fica(const std::string& frase);  // unless something else has been said
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
