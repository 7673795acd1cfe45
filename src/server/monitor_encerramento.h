// Decides when an idle server ends.
#pragma once

#include <atomic>
#include <functional>

#include "platform/kernel/kernel.h"

namespace kestor {

// Waits for the shutdown event, at most `milissegundos` (INFINITE: no limit). Returns true when the event was
// signalled.
using EsperaEncerramento = std::function<bool(DWORD milissegundos)>;

// Returns when the server has had no object for the idle time: the last one was released, which signalled the event,
// none has come and gone since, and none exists. The main thread sets `atividade` whenever the count falls to 0, just
// before it signals the event.
void AguardaOciosidade(const EsperaEncerramento& espera, DWORD tempoOciosoMs, std::atomic<bool>& atividade,
                       const std::atomic<LONG>& travas);

}  // namespace kestor
