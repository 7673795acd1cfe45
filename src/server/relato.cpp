#include "server/relato.h"

#include <unistd.h>

#include <string>

#include "contract/results.h"
#include "platform/com/long_calls.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

const char* PalavraDe(Destino destino) {
  switch (destino) {
    case Destino::convertido:
      return "converted";
    case Destino::descartado:
      return "dropped";
    case Destino::fica:
      return "stays";
    case Destino::renumerado:
      return "renumbered";
    case Destino::inalterado:
      return "unchanged";
    case Destino::ignorado:
      return "passed over";
    default:
      return "";
  }
}

}  // namespace

void RelataAoCliente(const Mudanca& mudanca, bool comConteudo) {
  channel::Caller* cliente = com::ServedClient();
  if (cliente == nullptr || mudanca.destino == Destino::nenhum) return;
  const std::string nome = text::ToUtf8(mudanca.modelo);
  channel::Note nota{.fate = static_cast<std::uint16_t>(mudanca.destino),
                     .done = static_cast<std::uint32_t>(mudanca.feitos),
                     .total = static_cast<std::uint32_t>(mudanca.total),
                     .name = nome,
                     .reason = mudanca.razao,
                     .before = {},
                     .after = {}};
  if (comConteudo) {
    nota.before = mudanca.antes;
    nota.after = mudanca.depois;
  }
  cliente->Tell(nota);
}

uid_t UsuarioDoCliente() {
  const channel::Caller* cliente = com::ServedClient();
  return cliente != nullptr ? cliente->User() : geteuid();
}

void RelataAoDiario(const Mudanca& mudanca, journal::Writer& diario) {
  const channel::Caller* cliente = com::ServedClient();
  const std::string modulo = text::ToUtf8(mudanca.modulo);
  const std::string componente = text::ToUtf8(mudanca.componente);
  const std::string modelo = text::ToUtf8(mudanca.modelo);
  const std::string razao =
      mudanca.razao + (mudanca.razao.empty() || mudanca.falta.empty() ? "" : "; ") + mudanca.falta;
  diario.Append({.time = std::chrono::system_clock::now(),
                 .user = UsuarioDoCliente(),
                 .process = cliente != nullptr ? cliente->Process() : getpid(),
                 .className = mudanca.classe,
                 .method = mudanca.metodo,
                 .module = modulo,
                 .component = componente,
                 .model = modelo,
                 .outcome = PalavraDe(mudanca.destino),
                 .result = mudanca.resultado,
                 .bytes = mudanca.bytes,
                 .reason = razao});
}

}  // namespace kestor
