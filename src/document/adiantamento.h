// Work on models ahead of their turn.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "document/modelo_lido.h"

namespace kestor {

// Makes results of models on a second thread while the first one waits for the disk. It is but a guess of what the
// models will be when their turn comes: the one who asks reads the model again, and gets the result for what it has
// read. All members are called on one thread.
template <typename Resultado>
class Adiantamento {
 public:
  // Called on either thread.
  using Faz = std::function<Resultado(const ModeloLido&)>;

  explicit Adiantamento(Faz faz) : faz_(std::move(faz)) {}
  ~Adiantamento() {
    {
      const std::lock_guard<std::mutex> guarda(mutex_);
      fim_ = true;
    }
    haTrabalho_.notify_one();
    if (thread_.joinable()) thread_.join();
  }
  Adiantamento(const Adiantamento&) = delete;
  Adiantamento& operator=(const Adiantamento&) = delete;

  // Tells of a model whose turn comes after those that have been told of. Throws std::bad_alloc.
  void Adiciona(std::string_view nome, ModeloLido modelo) {
    const auto trabalho = std::make_shared<Trabalho>(nome, std::move(modelo));
    vindouros_.push_back(trabalho);
    {
      const std::lock_guard<std::mutex> guarda(mutex_);
      fila_.push_back(trabalho);
    }
    haTrabalho_.notify_one();
    try {
      if (!thread_.joinable()) thread_ = std::thread([this] { Trabalha(); });
    } catch (const std::system_error&) {
      // Without a second thread each result is made in its turn.
    }
  }

  // The result of a model whose turn it is; throws what making it throws.
  Resultado De(std::string_view nome, const ModeloLido& modelo) {
    const auto achado =
        std::find_if(vindouros_.begin(), vindouros_.end(), [&](const auto& outro) { return outro->nome == nome; });
    if (achado == vindouros_.end()) return faz_(modelo);
    const std::shared_ptr<Trabalho> trabalho = *achado;
    vindouros_.erase(vindouros_.begin(), achado + 1);
    const bool comecado = trabalho->tomado.test_and_set();
    return comecado && trabalho->modelo == modelo ? trabalho->resultado.get_future().get() : faz_(modelo);
  }

 private:
  struct Trabalho {
    Trabalho(std::string_view nome_, ModeloLido modelo_) : nome(nome_), modelo(std::move(modelo_)) {}

    const std::string nome;
    const ModeloLido modelo;
    std::atomic_flag tomado;  // by the thread that has come first
    std::promise<Resultado> resultado;
  };

  void Trabalha() {
    while (const std::shared_ptr<Trabalho> trabalho = Proximo()) {
      if (trabalho->tomado.test_and_set()) continue;
      try {
        trabalho->resultado.set_value(faz_(trabalho->modelo));
      } catch (...) {
        trabalho->resultado.set_exception(std::current_exception());
      }
    }
  }

  // Null at the end.
  std::shared_ptr<Trabalho> Proximo() {
    std::unique_lock<std::mutex> guarda(mutex_);
    haTrabalho_.wait(guarda, [this] { return fim_ || !fila_.empty(); });
    if (fim_) return nullptr;
    std::shared_ptr<Trabalho> trabalho = std::move(fila_.front());
    fila_.pop_front();
    return trabalho;
  }

  const Faz faz_;
  std::deque<std::shared_ptr<Trabalho>> vindouros_;
  std::mutex mutex_;  // of all that follows
  std::condition_variable haTrabalho_;
  std::deque<std::shared_ptr<Trabalho>> fila_;
  bool fim_ = false;
  std::thread thread_;
};

}  // namespace kestor
