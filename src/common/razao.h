// The reason why a method answers as it does: a sentence for people in English, UTF-8, kept as the thread's error
// information. A method without a reason pays nothing. A method that fails only copies what it knows: the sentence is
// composed when a caller asks for it. The last reason of a call counts. Nothing here throws; on allocation failure
// there is no reason.
#pragma once

#include <string>

#include "platform/files/files.h"

namespace kestor {

void DizRazao(std::string frase) noexcept;

// Records that a file operation failed: "NAME cannot be OPERACAO: REASON (error NUMBER)". `operacao` is a string
// literal such as "written".
void DizRazao(const char* operacao, const CFileException& falha) noexcept;

// Records that a file is not fit for an operation: "NAME cannot be OPERACAO: PORQUE".
void DizRazao(const char* operacao, const std::string& caminho, const std::string& porque) noexcept;

// Puts an earlier reason in front of the one recorded since, for a call whose steps are independent.
void JuntaRazao(const std::string& antes) noexcept;

// Records why nothing was found in a folder if the folder is missing or cannot be read; otherwise an empty reason.
void DizRazaoSePastaFalta(const std::string& pasta) noexcept;

// RazaoDita returns the reason recorded since the runtime or EsqueceRazao last cleared it; empty if there is none. The
// sentence is the brief one, so that clients do not wait while a full explanation is worked out.
std::string RazaoDita() noexcept;
void EsqueceRazao() noexcept;

}  // namespace kestor
