// Why a method answers as it does, in a sentence for people: the error information of the thread. English, UTF-8. It
// costs a method nothing that has nothing to say, and one that fails no more than a copy of what it knows: the sentence
// is made when somebody asks for it. The last one of a call counts. Nothing here throws; without memory there is no
// sentence.
#pragma once

#include <string>

#include "platform/files/files.h"

namespace kestor {

void DizRazao(std::string frase) noexcept;

// A file operation has failed: "NAME cannot be OPERACAO: REASON (error NUMBER)". `operacao`: such as "written", a
// constant.
void DizRazao(const char* operacao, const CFileException& falha) noexcept;

// A file has not what an operation needs: "NAME cannot be OPERACAO: PORQUE".
void DizRazao(const char* operacao, const std::string& caminho, const std::string& porque) noexcept;

// What had been said before goes in front of what has been said since, where several steps of a call are independent.
void JuntaRazao(const std::string& antes) noexcept;

// Nothing was found in a folder; a reason where that is because the folder is missing or cannot be read.
void DizRazaoSePastaFalta(const std::string& pasta) noexcept;

// What has been said since the runtime, or EsqueceRazao, has cleared it, as far as that is found out quickly: the
// server does not keep others waiting for it. Empty when nothing has.
std::string RazaoDita() noexcept;
void EsqueceRazao() noexcept;

}  // namespace kestor
