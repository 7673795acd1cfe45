#include "server/monitor_encerramento.h"

namespace kestor {

void AguardaOciosidade(const EsperaEncerramento& espera, DWORD tempoOciosoMs, std::atomic<bool>& atividade,
                       const std::atomic<LONG>& travas) {
  for (;;) {
    espera(INFINITE);
    do {
      atividade = false;
    } while (espera(tempoOciosoMs));
    if (!atividade && travas == 0) return;
  }
}

}  // namespace kestor
