#include "common/caminhos_instalacao.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "platform/registry/registry.h"
#include "platform/text/text.h"
#include "texto_registry.h"

namespace kestor {

namespace {

constexpr std::array<ModuloFamilia, 21> kModulos = {{
    {"CT", "Contabil", 1, 2004},      {"FS", "Fiscal", 2, 2004},         {"FP", "Folha", 3, 2004},
    {"PT", "Patrimonio", 4, 2004},    {"ES", "Estoque", 5, 2004},        {"FT", "Faturamento", 6, 2004},
    {"CR", "ContasReceber", 7, 2004}, {"CP", "ContasPagar", 8, 2004},    {"CX", "Caixa", 9, 2004},
    {"BC", "Bancos", 10, 2004},       {"LF", "LivrosFiscais", 11, 2004}, {"AT", "Atendimento", 12, 2004},
    {"PD", "Pedidos", 13, 2004},      {"CM", "Compras", 14, 2004},       {"VD", "Vendas", 15, 2004},
    {"OS", "OrdemServico", 16, 2004}, {"PR", "Producao", 17, 2004},      {"CU", "Custos", 18, 2004},
    {"OR", "Orcamento", 19, 2004},    {"AB", "AtivoFixo", 20, 2004},     {"GE", "Gerencial", 21, 2004},
}};

// Reads a path as it is stored, without adding a backslash.
bool LeCaminho(const std::string& chave, const char* valor, std::string& caminho) {
  registry::OwnedKey aberta;
  return RegOpenKeyA(HKEY_LOCAL_MACHINE, chave.c_str(), aberta.Out()) == 0 && LeTexto(aberta.Get(), valor, &caminho);
}

std::uint32_t LePasta(const std::string& chave, const char* valor, std::string& caminho) {
  std::string pasta;
  if (!LeCaminho(chave, valor, pasta)) return CCaminhosInstalacao::kFalhaRegistry;
  if (!pasta.empty() && pasta.back() != '\\') pasta += '\\';
  caminho = std::move(pasta);
  return 0;
}

// Returns null if no application has the code in any letter case.
const ModuloFamilia* BuscaModulo(std::string_view codigo) {
  const auto achado = std::find_if(kModulos.begin(), kModulos.end(), [codigo](const ModuloFamilia& candidato) {
    return text::EqualNoCase(candidato.codigo, codigo);
  });
  return achado == kModulos.end() ? nullptr : &*achado;
}

}  // namespace

std::span<const ModuloFamilia> ModulosDaFamilia() {
  return kModulos;
}

std::uint32_t CCaminhosInstalacao::BuscaCaminhoRelatorios(std::string& caminho) {
  return LePasta(kChaveBase, "Relatorios", caminho);
}

std::string CCaminhosInstalacao::BuscaCaminhoHistorico() {
  std::string caminho;
  return LeCaminho(kChaveBase, "Historico", caminho) ? text::ToUtf8(caminho) : std::string();
}

std::uint32_t CCaminhosInstalacao::BuscaCaminhoModulo(const std::string& modulo, std::string& caminho) {
  const ModuloFamilia* familia = BuscaModulo(modulo);
  caminho.clear();
  if (familia == nullptr) return kFalhaRegistry;
  return LePasta(kChaveBase + std::string(familia->subchave), "Path", caminho);
}

std::string CCaminhosInstalacao::PorQueFalta(const std::string& modulo) {
  try {
    registry::Check();
  } catch (const registry::FormatError& falha) {
    return falha.what();
  } catch (const std::filesystem::filesystem_error& falha) {
    return falha.path1().string() + ": " + falha.code().message();
  }
  std::string pasta;
  if (BuscaCaminhoRelatorios(pasta) != 0) return "no reports folder is entered: kestorctl setup --reports DIR";
  const ModuloFamilia* familia = BuscaModulo(modulo);
  if (familia == nullptr) {
    std::string codigos;
    for (const ModuloFamilia& conhecido : kModulos)
      codigos.append(codigos.empty() ? "" : ", ").append(conhecido.codigo);
    return "no module has the code " + text::Presentable(text::ToUtf8(modulo)) + "; the codes are " + codigos;
  }
  const std::string codigo(familia->codigo);
  return "the application " + std::string(familia->subchave) + " of module " + codigo +
         " has no folder: kestorctl setup --reports DIR --module " + codigo + "=DIR";
}

}  // namespace kestor
