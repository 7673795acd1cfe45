#include "migration/valor_fixo.h"

#include <algorithm>
#include <iterator>

namespace kestor {

namespace {

constexpr char kSeparadorDecimal = ',';
constexpr char kSeparadorMilhar = '.';
constexpr std::size_t kDigitosMilhar = 3;

bool EhDigito(char c) {
  return c >= '0' && c <= '9';
}

// Returns where the decimals of a text begin: at its last comma, or at the last point if that comes later or alone.
std::size_t LugarDecimal(std::string_view texto) {
  const std::size_t virgula = texto.rfind(',');
  const std::size_t ponto = texto.rfind('.');
  const bool valeVirgula = virgula != std::string_view::npos && (ponto == std::string_view::npos || ponto < virgula);
  return valeVirgula ? virgula : ponto;
}

// Removes zeros at the front, but never the last digit.
std::string_view SemZerosAEsquerda(std::string_view digitos) {
  return digitos.substr(std::min(digitos.find_first_not_of('0'), digitos.size() - 1));
}

std::string EmMilhares(std::string_view digitos) {
  std::string grupos;
  for (std::size_t i = 0; i < digitos.size(); ++i) {
    if (i > 0 && (digitos.size() - i) % kDigitosMilhar == 0) grupos += kSeparadorMilhar;
    grupos += digitos[i];
  }
  return grupos;
}

}  // namespace

std::string FormataValor(std::string_view texto) {
  const std::string_view semBrancos = texto.substr(std::min(texto.find_first_not_of(' '), texto.size()));
  const bool negativo = !semBrancos.empty() && semBrancos.front() == '-';
  const std::size_t lugar = LugarDecimal(semBrancos);
  const bool temSeparador = lugar != std::string_view::npos;
  const std::string inteiro = SomenteDigitos(semBrancos.substr(0, lugar));
  const std::string decimais = temSeparador ? SomenteDigitos(semBrancos.substr(lugar)) : std::string();

  std::string valor(negativo ? "-" : "");
  // A whole part of at most one digit keeps its separator, with or without decimals after it.
  const bool curto = inteiro.size() <= 1;
  valor += curto ? inteiro : EmMilhares(SemZerosAEsquerda(inteiro));
  if (curto ? temSeparador : !decimais.empty()) valor += kSeparadorDecimal;
  return valor + decimais;
}

std::string SomenteDigitos(std::string_view texto) {
  std::string digitos;
  std::copy_if(texto.begin(), texto.end(), std::back_inserter(digitos), EhDigito);
  return digitos;
}

}  // namespace kestor
