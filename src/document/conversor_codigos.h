// Renumbering of field codes in all report documents of a module and component.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "document/conversor_modelos.h"
#include "document/mem_stream.h"
#include "document/modelo_lido.h"
#include "document/segundo_fio.h"

namespace kestor {

class CDocRelatorio;

class CConversorCodigos final : public CConversorModelos {
 public:
  // Reads the field catalogue from the store. If that fails, no code is renumbered and nothing is removed. `pares` has
  // `quantidade` pairs; the last one of an old code counts. Throws std::bad_alloc.
  CConversorCodigos(Servidor& servidor, IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente,
                    LONG quantidade, const REL_CODIGO_CAMPOS_ALTERADOS* pares);

  // Reports to the server each new code that no field of the catalogue has.
  void RelataCodigosSemCampo();

  // Renumbers the codes in one model, gives renumbered columns the titles of the catalogue, removes sort keys, totals
  // and conditions that the catalogue does not allow for their field, and stores the document under the name that it
  // bears. Leaves a model as it is if its content is no document, if the document's name is not one of a model, or if
  // another model's document has already been stored in its file: those codes are new.
  void ConverteModelo(std::string_view nome) override;

 private:
  // What renumbering makes of a model's content alone.
  struct DocumentoNovo {
    bool lido = false;
    std::string motivo;  // why it is no document
    std::string nome;    // the name that the document bears
    bool alterou = false;
    std::unique_ptr<CMemStream> conteudo;
  };

  // A document that is made ahead, in the hope that the model is still the same when its turn comes.
  struct Adiantado {
    std::string nome;
    std::shared_ptr<const ModeloLido> modelo;
    SegundoFio::Tarefa<DocumentoNovo> tarefa;
  };

  void Antecipa(std::string_view nome) override;
  bool CarregaCatalogo();
  DocumentoNovo Renumerado(const ModeloLido& modelo) const;  // also runs on the second thread
  DocumentoNovo DocumentoDe(std::string_view nome, const ModeloLido& modelo);
  Fim Converte(std::string_view nome);
  const tagREG_CAMPOS_RELATORIO2* BuscaCampo(std::uint16_t codigo) const;  // null if the catalogue does not have it
  bool Renumera(std::uint16_t& codigo) const;                              // false: the code stays
  bool Altera(CDocRelatorio& documento) const;                             // false: nothing in it changes
  // Renumbers the records and removes those whose field in the catalogue lacks `permissao`. False: nothing changes.
  template <typename Registro>
  bool AlteraLista(std::vector<Registro>& lista, char tagREG_CAMPOS_RELATORIO2::*permissao) const;

  std::string semCatalogo_;  // why the catalogue could not be read
  std::unordered_map<std::uint16_t, tagREG_CAMPOS_RELATORIO2> mapaCatalogo_;
  std::unordered_map<std::uint16_t, std::uint16_t> mapaCodigos_;
  std::unordered_set<std::string> gravados_;  // files stored for a model of another name, see ChaveRelatorio
  bool adianta_ = false;                      // reading a model a second time costs less than making it ahead gains
  std::deque<Adiantado> adiantados_;
  SegundoFio fio_;
};

}  // namespace kestor
