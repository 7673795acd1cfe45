#include "document/segundo_fio.h"

#include <system_error>

namespace kestor {

SegundoFio::~SegundoFio() {
  {
    const std::lock_guard<std::mutex> guarda(mutex_);
    fim_ = true;
  }
  haTrabalho_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void SegundoFio::Enfileira(std::shared_ptr<Trabalho> trabalho) {
  try {
    if (!thread_.joinable()) thread_ = std::thread([this] { Trabalha(); });
  } catch (const std::system_error&) {
    return;
  }
  {
    const std::lock_guard<std::mutex> guarda(mutex_);
    fila_.push_back(std::move(trabalho));
  }
  haTrabalho_.notify_one();
}

void SegundoFio::Trabalha() {
  for (;;) {
    {
      std::unique_lock<std::mutex> guarda(mutex_);
      haTrabalho_.wait(guarda, [this] { return fim_ || !fila_.empty(); });
      if (fim_) return;
    }
    FazProximo();
  }
}

bool SegundoFio::FazProximo() {
  std::shared_ptr<Trabalho> trabalho;
  {
    const std::lock_guard<std::mutex> guarda(mutex_);
    if (fila_.empty()) return false;
    trabalho = std::move(fila_.front());
    fila_.pop_front();
  }
  if (!trabalho->tomado.test_and_set()) trabalho->Faz();
  return true;
}

}  // namespace kestor
