#include "common/servidor.h"

#include <exception>
#include <utility>

#include "common/razao.h"
#include "common/texto_bstr.h"

namespace kestor {

void Servidor::Relata(Mudanca mudanca) noexcept {
  if (silencios_ != 0) return;
  try {
    if (mudanca.razao.empty()) mudanca.razao = RazaoDita();
    std::string falta = FaltaDaGuarda();
    if (mudanca.falta.empty()) mudanca.falta = std::move(falta);
    if (falta_.empty()) falta_ = mudanca.falta;
    Anota(mudanca);
  } catch (const std::exception&) {
    // The change stands, reported or not.
  }
}

void Servidor::RelataModelo(const Mudanca& mudanca, BSTR nome) noexcept {
  if (silencios_ != 0) return;
  try {
    const std::string modelo = TextoDeBstr(nome);
    Mudanca propria = mudanca;
    propria.modelo = modelo;
    Relata(std::move(propria));
  } catch (const std::exception&) {
    // As above.
  }
}

void Servidor::DizFaltaDaGuarda() noexcept {
  if (falta_.empty()) return;
  const std::string antes = RazaoDita();
  DizRazao(std::exchange(falta_, {}));
  JuntaRazao(antes);
}

}  // namespace kestor
