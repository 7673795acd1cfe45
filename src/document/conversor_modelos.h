// What goes over all models of a module and component.
#pragma once

#include <string>
#include <string_view>

#include "common/servidor.h"
#include "contract/interfaces.h"
#include "document/mem_stream.h"

namespace kestor {

// Base of the converters. It works on a store that has been initialised for the module and component and holds a
// reference to it. One call, one thread.
class CConversorModelos {
 public:
  // `classe` and `metodo`: the call that has the models converted, as the server is told of it.
  CConversorModelos(Servidor& servidor, const char* classe, const char* metodo, IZNPL_Relatorio2& repositorio,
                    std::string modulo, std::string componente);
  virtual ~CConversorModelos() = default;
  CConversorModelos(const CConversorModelos&) = delete;
  CConversorModelos& operator=(const CConversorModelos&) = delete;

  // Converts every model that the store lists once, in the order of the list. The result is that of listing.
  virtual HRESULT Executa();

  // Converts one model (code page 1252) and tells the server what became of it; what cannot be converted is left as it
  // is. Throws nothing.
  virtual void ConverteModelo(std::string_view nome) = 0;

 protected:
  Servidor& ServidorDeste() const { return servidor_; }
  IZNPL_Relatorio2& Repositorio() const { return *repositorio_; }
  const std::string& Modulo() const { return modulo_; }
  const std::string& Componente() const { return componente_; }

  // Stores a document, over one of that name unless it must be new. The server is not told of the store's own call.
  HRESULT Grava(const std::string& nome, KESTOR_FlagGravacao flag, const CMemStream& documento) const;

  // What the server is told of the call as a whole.
  Mudanca Chamada() const;

  // There are so many models to convert.
  void Comeca(std::size_t total);

  // One of them is done.
  void Relata(std::string_view nome, Destino destino, std::string razao = {}, std::string_view antes = {},
              std::string_view depois = {}, bool substitui = false) noexcept;

 private:
  Servidor& servidor_;
  const char* const classe_;
  const char* const metodo_;
  const std::string modulo_;
  const std::string componente_;
  ComPtr<IZNPL_Relatorio2> repositorio_;
  std::size_t feitos_ = 0;
  std::size_t total_ = 0;
};

}  // namespace kestor
