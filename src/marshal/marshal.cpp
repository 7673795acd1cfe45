#include "marshal/marshal.h"

#include "marshalers.h"

namespace marshal {

std::array<com::Marshaler, 3> Marshalers() {
  return {RelMarshaler(), Relatorio2Marshaler(), RelConverteMarshaler()};
}

void RegisterInterfaces() {
  for (const com::Marshaler& marshaler : Marshalers())
    com::RegisterMarshaler(marshaler);
}

}  // namespace marshal
