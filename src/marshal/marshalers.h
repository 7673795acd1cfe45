// Stub and proxy of each interface.
#pragma once

#include "platform/com/marshaler.h"

namespace marshal {

com::Marshaler RelMarshaler();
com::Marshaler Relatorio2Marshaler();
com::Marshaler RelConverteMarshaler();

}  // namespace marshal
