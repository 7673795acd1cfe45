#include "common/razao.h"

#include <exception>
#include <new>
#include <utility>

#include "common/nomes_arquivos.h"
#include "platform/com/error_info.h"
#include "platform/text/text.h"

namespace kestor {

namespace {

class RazaoFrase final : public com::ErrorInfo {
 public:
  explicit RazaoFrase(std::string frase) : frase_(std::move(frase)) {}
  std::string Sentence() const override { return frase_; }

 private:
  const std::string frase_;
};

// "NAME cannot be OPERACAO: "
std::string Inicio(const char* operacao, const std::string& caminho) {
  const std::string nome = text::Presentable(text::ToUtf8(NomeDoArquivo(caminho)));
  return (nome.empty() ? "a file" : nome) + " cannot be " + operacao + ": ";
}

class RazaoArquivo final : public com::ErrorInfo {
 public:
  RazaoArquivo(const char* operacao, const CFileException& falha)
      : operacao_(operacao), numero_(static_cast<DWORD>(falha.m_lOsError)), caminho_(falha.m_strFileName) {}

  std::string Sentence() const override { return Frase(files::Care::thorough); }
  std::string BriefSentence() const override { return Frase(files::Care::brief); }

 private:
  std::string Frase(files::Care cuidado) const {
    return Inicio(operacao_, caminho_) + files::Explain(caminho_, numero_, cuidado) + " (error " +
           std::to_string(numero_) + ")";
  }

  const char* const operacao_;
  const DWORD numero_;
  const std::string caminho_;
};

class RazaoPasta final : public com::ErrorInfo {
 public:
  explicit RazaoPasta(std::string pasta) : pasta_(std::move(pasta)) {}

  std::string Sentence() const override {
    const DWORD falha = files::FolderError(pasta_.c_str());
    return falha == ERROR_SUCCESS ? std::string() : files::Explain(pasta_, falha);
  }

 private:
  const std::string pasta_;
};

template <typename Razao, typename... Argumentos>
void Diz(Argumentos&&... argumentos) noexcept {
  try {
    ComPtr<IErrorInfo> razao;
    com::CreateObject([&]() -> IUnknown& { return *new Razao(std::forward<Argumentos>(argumentos)...); },
                      IID_IErrorInfo, razao.OutVoid());
    SetErrorInfo(0, razao.Get());
  } catch (const std::exception&) {
    // Then without a reason.
  }
}

}  // namespace

void DizRazao(std::string frase) noexcept {
  Diz<RazaoFrase>(std::move(frase));
}

void DizRazao(const char* operacao, const CFileException& falha) noexcept {
  Diz<RazaoArquivo>(operacao, falha);
}

void DizRazao(const char* operacao, const std::string& caminho, const std::string& porque) noexcept {
  try {
    DizRazao(Inicio(operacao, caminho) + porque);
  } catch (const std::exception&) {
    // Then without a reason.
  }
}

void JuntaRazao(const std::string& antes) noexcept {
  if (antes.empty()) return;
  try {
    const std::string desde = RazaoDita();
    DizRazao(desde.empty() ? antes : antes + "; " + desde);
  } catch (const std::exception&) {
    // Then with the later reason alone.
  }
}

void DizRazaoSePastaFalta(const std::string& pasta) noexcept {
  Diz<RazaoPasta>(pasta);
}

std::string RazaoDita() noexcept {
  const ComPtr<IErrorInfo> dita = com::TakeOwnErrorInfo();
  if (!dita) return {};
  SetErrorInfo(0, dita.Get());
  try {
    return com::BriefDescriptionOf(*dita);
  } catch (const std::exception&) {
    return {};
  }
}

void EsqueceRazao() noexcept {
  SetErrorInfo(0, nullptr);
}

}  // namespace kestor
