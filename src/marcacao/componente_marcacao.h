// The markup component: the classes LeitorMarcacao, EscritorMarcacao and AtributosMarcacao for the process that it is
// part of. Everything else reaches it by CoCreateInstance and the interfaces of markup/interfaces_marcacao.h.
//
// A document is XML 1.0 in UTF-8; docs/formats.md describes it. Every byte from 1 to 255 of a value that is written is
// read back unchanged. The reader also accepts UTF-16, ISO-8859-1, US-ASCII and windows-1252 (cp1252), as the document
// declares; a character that code page 1252 lacks becomes '?'. It refuses document type declarations, entities that are
// not predefined, and more than 1,000 levels of elements.
#pragma once

#include <array>

#include "platform/com/com.h"

namespace kestor {

// Publishes the three classes to this process while it lives.
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
