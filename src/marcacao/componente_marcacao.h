// The markup component: the classes LeitorMarcacao, EscritorMarcacao and AtributosMarcacao for the process that it is
// part of. Everything else reaches it by CoCreateInstance and the interfaces of markup/interfaces_marcacao.h.
//
// A document is XML 1.0 in UTF-8; docs/formats.md has it. What is written comes back as it went in, every byte from 1
// to 255 of a value. What is read may be in UTF-8, UTF-16, ISO-8859-1, US-ASCII or windows-1252 (cp1252), as its
// declaration says; a character that code page 1252 lacks becomes '?'. A document type declaration, entities of one's
// own and more than 1,000 levels of elements are refused.
#pragma once

#include <array>

#include "platform/com/com.h"

namespace kestor {

// Publishes the three classes to this process as long as it lives.
class ComponenteMarcacao {
 public:
  ComponenteMarcacao();
  ~ComponenteMarcacao();
  ComponenteMarcacao(const ComponenteMarcacao&) = delete;
  ComponenteMarcacao& operator=(const ComponenteMarcacao&) = delete;

 private:
  std::array<DWORD, 3> cookies_{};
};

}  // namespace kestor
