// What goes over all models of a module and component.
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

// Base of the converters. Documents go to the disk some at a time: a model's last steps, and the telling of it, wait
// for that, and it may be that the next ones are made meanwhile. It works on a store that has been initialised for the
// module and component and holds a reference to it. One call, one thread, but for what a SegundoFio does.
class CConversorModelos {
 public:
  // `classe` and `metodo`: the call that has the models converted, as the server is told of it. `semExito`: what it is
  // told of a model whose document cannot be stored.
  CConversorModelos(Servidor& servidor, const char* classe, const char* metodo, IZNPL_Relatorio2& repositorio,
                    std::string modulo, std::string componente, Destino semExito);
  virtual ~CConversorModelos() = default;
  CConversorModelos(const CConversorModelos&) = delete;
  CConversorModelos& operator=(const CConversorModelos&) = delete;

  // Converts every model that the store lists once, in the order of the list. The result is that of listing.
  virtual HRESULT Executa();

  // Converts one model (code page 1252); what cannot be converted is left as it is. The server is told what became of
  // it once its document is on the disk: after this one, some of the next, or TerminaUltimos. Throws nothing.
  virtual void ConverteModelo(std::string_view nome) = 0;

 protected:
  // What became of a model, and why.
  struct Fim {
    Destino destino = Destino::fica;
    std::string razao = {};
    bool substitui = false;
    TaskBlock<std::uint8_t> antes = {};  // its content before
    std::size_t bytesAntes = 0;
    std::unique_ptr<CMemStream> depois = {};
  };

  enum class Quando {
    comOsOutros,  // success means that the document waits for others, with which it goes to the disk
    ja            // it goes there at once
  };

  Servidor& ServidorDeste() const { return servidor_; }
  IZNPL_Relatorio2& Repositorio() const { return *repositorio_; }
  const std::string& Modulo() const { return modulo_; }
  const std::string& Componente() const { return componente_; }

  // Converts models. They are told of in their order.
  void ConverteTodos(const std::vector<std::string_view>& nomes);

  // Stores a document, over one of that name unless it must be new. The server is not told of the store's own call.
  HRESULT Grava(const std::string& nome, KESTOR_FlagGravacao flag, const CMemStream& documento, Quando quando);

  // Called once for each model, in their order. What Grava has stored since the last call is the document of this one.
  void Encerra(std::string_view nome, Fim fim) noexcept;

  // What the server is told of the call as a whole.
  Mudanca Chamada() const;

  // What becomes of a model for which the memory is lacking.
  Fim SemMemoria() const;

 private:
  using Relogio = std::chrono::steady_clock;

  // A model whose document, if it has one, waits.
  struct Espera {
    std::string nome;
    Fim fim;
    std::optional<std::size_t> arquivo;  // its number in the group
  };

  // Called for models whose turn to be converted comes soon, in their order. Throws nothing.
  virtual void Antecipa(std::string_view /*nome*/) {}

  // Called after ConverteModelo of the last model.
  virtual void TerminaUltimos() noexcept {}

  // What is left to do when the document is on the disk, or there was none to store. May throw std::bad_alloc.
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
  std::vector<Espera> fechado_;  // the batch before, whose documents go to the disk meanwhile
  Relogio::time_point inicioLote_;
  Relogio::time_point fechamento_;
  std::size_t primeiro_ = 0;  // number of the first document of the batch in the group
  std::size_t arquivosFechados_ = 0;
  Relogio::duration porArquivo_ = std::chrono::milliseconds(100);  // what the last batch took, or a slow disk would
  std::optional<std::size_t> arquivo_;                             // that was stored last and is still to be told of
  std::size_t feitos_ = 0;
  std::size_t total_ = 0;
};

}  // namespace kestor
