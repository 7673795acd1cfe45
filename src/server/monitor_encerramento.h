// When an idle server ends.
#pragma once

#include <atomic>
#include <functional>

#include "platform/kernel/kernel.h"

namespace kestor {

// Waits for the shutdown event, at most so many milliseconds (INFINITE: no limit). True when it was signalled.
using EsperaEncerramento = std::function<bool(DWORD milissegundos)>;

// Returns when the server has had no object for the idle time: the last one went (the event was signalled), and nothing
// came and went since, and none is there. `atividade` is set by the main thread whenever the count falls to 0, just
// before it signals the event.
void AguardaOciosidade(const EsperaEncerramento& espera, DWORD tempoOciosoMs, std::atomic<bool>& atividade,
                       const std::atomic<LONG>& travas);

}  // namespace kestor
