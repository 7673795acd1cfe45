#include "common/nomes_arquivos.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestor {

namespace {

constexpr std::size_t kMaxModuloRel = 2;
constexpr std::size_t kMaxComponenteRel = 3;

bool TemPonto(std::string_view nome) {
  return nome.find('.') != std::string_view::npos;
}

// Adds the extension to a name without a dot.
std::string ComExtensao(std::string_view nome, std::string_view extensao) {
  std::string arquivo(nome);
  if (!TemPonto(nome)) arquivo += extensao;
  return arquivo;
}

std::string Cortado(std::string_view nome, std::string_view extensao) {
  return std::string(AntesDoPonto(nome)).append(extensao);
}

std::string Mascara(const std::string& prefixo, std::string_view extensao) {
  return (prefixo + '*').append(extensao);
}

}  // namespace

std::string ModuloRel(std::string_view modulo) {
  return std::string(modulo.substr(0, kMaxModuloRel));
}

std::string ComponenteRel(std::string_view componente) {
  return std::string(componente.substr(0, kMaxComponenteRel));
}

// ---- Models of the first generation --------------------------------------------------------------------------------

std::string CaminhoRelLido(const std::string& prefixo, std::string_view nome) {
  return prefixo + ComExtensao(nome, kExtensaoRel);
}

std::string CaminhoRelGravado(const std::string& prefixo, std::string_view nome) {
  return prefixo + Cortado(nome, kExtensaoRel);
}

std::string CaminhoExportacao(const std::string& prefixo, std::string_view nome) {
  return prefixo + Cortado(nome, kExtensaoExportacao);
}

std::string CaminhoFiltro(const std::string& prefixo, std::string_view nome) {
  return prefixo + Cortado(nome, kExtensaoFiltro);
}

std::string CaminhoRelAtualizado(const std::string& prefixo, std::string_view nome) {
  const bool temExtensao = text::Upper(nome).find(kExtensaoRel) != std::string::npos;
  return (prefixo + std::string(nome)).append(temExtensao ? "" : kExtensaoRel);
}

std::vector<std::string> CaminhosRelExcluidos(const std::string& prefixo, std::string_view nome) {
  if (TemPonto(nome)) return {prefixo + std::string(nome)};
  return {CaminhoRelGravado(prefixo, nome), CaminhoExportacao(prefixo, nome)};
}

std::string NomeDaExportacao(std::string_view nome) {
  return Cortado(nome, kExtensaoExportacao);
}

std::string MascaraRel(const std::string& prefixo) {
  return Mascara(prefixo, kExtensaoRel);
}

std::string MascaraExportacao(const std::string& prefixo) {
  return Mascara(prefixo, kExtensaoExportacao);
}

std::string MascaraFiltro(const std::string& prefixo) {
  return Mascara(prefixo, kExtensaoFiltro);
}

// ---- Models of the second generation -------------------------------------------------------------------------------

std::string CaminhoRelatorioLido(const std::string& prefixo, std::string_view nome) {
  std::string caminho = prefixo + std::string(nome);
  if (!text::EndsWithNoCase(caminho, kExtensaoRelatorio)) caminho += kExtensaoRelatorio;
  return caminho;
}

std::string CaminhoRelatorioGravado(const std::string& prefixo, std::string_view nome) {
  return prefixo + ComExtensao(nome, kExtensaoRelatorio);
}

std::string MascaraRelatorio(const std::string& prefixo) {
  return Mascara(prefixo, kExtensaoRelatorio);
}

std::string ChaveRelatorio(std::string_view nome) {
  std::string chave = text::Upper(ComExtensao(nome, kExtensaoRelatorio));
  chave.resize(chave.find_last_not_of(" .") + 1);
  return chave;
}

// ---- What names say ------------------------------------------------------------------------------------------------

std::string_view NomeDoModelo(std::string_view arquivo, std::size_t codigos) {
  // Codes with wild cards match file names that are shorter than the codes.
  arquivo.remove_prefix(std::min(codigos, arquivo.size()));
  return AntesDoPonto(arquivo);
}

std::string_view AntesDoPonto(std::string_view nome) {
  return nome.substr(0, nome.find('.'));
}

bool FicaNaPasta(std::string_view nome) {
  return nome.find_first_of("\\/:") == std::string_view::npos;
}

std::string_view PastaDoCaminho(std::string_view caminho) {
  return caminho.substr(0, caminho.rfind('\\') + 1);
}

std::string_view NomeDoArquivo(std::string_view caminho) {
  const std::string_view pasta = PastaDoCaminho(caminho);
  return pasta.empty() ? pasta : caminho.substr(pasta.size());
}

// ---- Other files ---------------------------------------------------------------------------------------------------

std::string CaminhoCatalogo(const std::string& pasta, std::string_view modulo, std::string_view componente) {
  return pasta + ComExtensao("X" + std::string(modulo).append(componente), kExtensaoRel);
}

std::string CaminhoPadroes(const std::string& pasta) {
  return pasta + "ZNRELPAD.DAT";
}

std::string CaminhoExcluidos(const std::string& pasta) {
  return pasta + "ZNRELDEL.DAT";
}

std::string CaminhoControle(std::string_view pasta) {
  return std::string(pasta) + "ZNCTLARQ.DAT";
}

}  // namespace kestor
