// What goes over all models of a module and component.
#pragma once

#include <string>
#include <string_view>

#include "contract/interfaces.h"

namespace kestor {

// Base of the converters. It works on a store that has been initialised for the module and component and holds a
// reference to it. One call, one thread.
class CConversorModelos {
 public:
  CConversorModelos(IZNPL_Relatorio2& repositorio, std::string modulo, std::string componente);
  virtual ~CConversorModelos() = default;
  CConversorModelos(const CConversorModelos&) = delete;
  CConversorModelos& operator=(const CConversorModelos&) = delete;

  // Converts every model that the store lists once, in the order of the list. The result is that of listing.
  virtual HRESULT Executa();

  // Converts one model (code page 1252); what cannot be converted is left as it is. Throws nothing.
  virtual void ConverteModelo(std::string_view nome) = 0;

 protected:
  IZNPL_Relatorio2& Repositorio() const { return *repositorio_; }
  const std::string& Modulo() const { return modulo_; }
  const std::string& Componente() const { return componente_; }

 private:
  const std::string modulo_;
  const std::string componente_;
  ComPtr<IZNPL_Relatorio2> repositorio_;
};

}  // namespace kestor
