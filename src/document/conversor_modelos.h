// Conversion of all models of a module and component.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/servidor.h"
#include "contract/interfaces.h"
#include "document/mem_stream.h"
#include "platform/files/files.h"

namespace kestor {

// Base of the converters. Documents go to the disk in batches: the last steps of a model and the report of it wait for
// its batch, and the next documents may be made meanwhile. A converter holds a reference to a store that has been
// initialised for the module and component. It serves one call and is used on one thread, except for what a SegundoFio
// does.
class CConversorModelos {
 public:
  // `classe` and `metodo` name the call in reports to the server. `semExito` is reported for a model whose document
  // cannot be stored.
  CConversorModelos(Servidor& servidor, const char* classe, const char* metodo, IZNPL_Relatorio2& repositorio,
                    std::string modulo, std::string componente, Destino semExito);
  virtual ~CConversorModelos() = default;
  CConversorModelos(const CConversorModelos&) = delete;
  CConversorModelos& operator=(const CConversorModelos&) = delete;

  // Converts each model that the store lists once, in the order of the list. Returns the result of listing.
  virtual HRESULT Executa();

  // Converts one model (code page 1252), or leaves it as it is. The result is reported to the server once the document
  // is on the disk: in this call, in that for a later model, or after the last model. Throws nothing.
  virtual void ConverteModelo(std::string_view nome) = 0;

 protected:
  // What became of a model, and why.
  struct Fim {
    Destino destino = Destino::fica;
    std::string razao = {};
    bool substitui = false;
    TaskBlock<std::uint8_t> antes = {};  // its content before the conversion
    std::size_t bytesAntes = 0;
    std::unique_ptr<CMemStream> depois = {};
  };

  enum class Quando {
    comOsOutros,  // on success the document waits for its batch to go to the disk
    ja            // the document goes to the disk at once
  };

  Servidor& ServidorDeste() const { return servidor_; }
  IZNPL_Relatorio2& Repositorio() const { return *repositorio_; }
  const std::string& Modulo() const { return modulo_; }
  const std::string& Componente() const { return componente_; }

  // Converts models, and reports them in the same order. Reports `incertos` last, as models that it leaves alone.
  void ConverteTodos(const std::vector<std::string_view>& nomes, const std::vector<std::string_view>& incertos = {});

  // Stores a document, over one of that name unless `flag` forbids it. The store's own call is not reported.
  HRESULT Grava(const std::string& nome, KESTOR_FlagGravacao flag, const CMemStream& documento, Quando quando);

  // Called once for each model, in order. The document that Grava has stored since the last call is that of this model.
  void Encerra(std::string_view nome, Fim fim) noexcept;

  // Returns the report of the call as a whole.
  Mudanca Chamada() const;

  // Returns the result for a model for which memory ran out.
  Fim SemMemoria() const;

 private:
  using Relogio = std::chrono::steady_clock;

  // A model that waits for its batch.
  struct Espera {
    std::string nome;
    Fim fim;
    std::optional<std::size_t> arquivo;  // number of its document in the group, if it has one
  };

  // Called, in order, for models that will soon be converted. Throws nothing.
  virtual void Antecipa(std::string_view /*nome*/) {}

  // Called after ConverteModelo of the last model.
  virtual void TerminaUltimos() noexcept {}

  // Takes the last steps once the document is on the disk, or if there was none to store. May throw std::bad_alloc.
  virtual void Conclui(const std::string& /*nome*/, Fim& /*fim*/) {}

  bool LoteCheio() const;
  void FechaLote() noexcept;
  void TerminaFechado() noexcept;
  void TerminaTodos() noexcept;
  void Termina(Espera& espera) noexcept;
  void Relata(std::string_view nome, const Fim& fim, std::string falta = {}) noexcept;

  Servidor& servidor_;
  const char* const classe_;
  const char* const metodo_;
  const std::string modulo_;
  const std::string componente_;
  const Destino semExito_;
  ComPtr<IZNPL_Relatorio2> repositorio_;
  files::GroupedReplacements* grupo_ = nullptr;
  std::vector<Espera> lote_;
  std::vector<Espera> fechado_;  // the previous batch, whose documents go to the disk meanwhile
  Relogio::time_point inicioLote_;
  Relogio::time_point fechamento_;
  std::size_t primeiro_ = 0;  // number of the first document of the batch in the group
  std::size_t arquivosFechados_ = 0;
  Relogio::duration porArquivo_ = std::chrono::milliseconds(100);  // as in the last batch; at first as on a slow disk
  std::optional<std::size_t> arquivo_;                             // stored last, until Encerra takes it
  std::size_t feitos_ = 0;
  std::size_t total_ = 0;
};

}  // namespace kestor
