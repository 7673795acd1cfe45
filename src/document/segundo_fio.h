// A second thread, for what can be made while the first one waits for the disk.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace kestor {

// Tasks are done in the order in which they are begun. Where no thread can be had, whoever wants a result does the
// task.
class SegundoFio {
  struct Trabalho {
    virtual ~Trabalho() = default;
    virtual void Faz() = 0;

    std::atomic_flag tomado;  // by the thread that has come first
  };

  template <typename Resultado>
  struct TrabalhoCom final : Trabalho {
    explicit TrabalhoCom(std::function<Resultado()> faz) : tarefa(std::move(faz)), resultado(tarefa.get_future()) {}
    void Faz() override { tarefa(); }

    std::packaged_task<Resultado()> tarefa;
    std::future<Resultado> resultado;
  };

 public:
  // A task that has been begun. One whose result nobody has taken is not done any more, unless it is under way.
  template <typename Resultado>
  class Tarefa {
   public:
    Tarefa(SegundoFio& fio, std::shared_ptr<TrabalhoCom<Resultado>> trabalho)
        : fio_(&fio), trabalho_(std::move(trabalho)) {}
    ~Tarefa() {
      if (trabalho_) trabalho_->tomado.test_and_set();
    }
    Tarefa(Tarefa&&) = default;
    Tarefa& operator=(Tarefa&& outra) {
      std::swap(fio_, outra.fio_);
      std::swap(trabalho_, outra.trabalho_);
      return *this;
    }

    // Does the task if the thread has not come to it, and others while that one is at it. Called once. Throws what the
    // task throws.
    Resultado Toma() {
      const auto trabalho = std::move(trabalho_);
      if (!trabalho->tomado.test_and_set()) trabalho->Faz();
      const auto feito = [&] {
        return trabalho->resultado.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
      };
      while (!feito() && fio_->FazProximo())
        continue;
      return trabalho->resultado.get();
    }

   private:
    SegundoFio* fio_;
    std::shared_ptr<TrabalhoCom<Resultado>> trabalho_;
  };

  SegundoFio() = default;
  ~SegundoFio();
  SegundoFio(const SegundoFio&) = delete;
  SegundoFio& operator=(const SegundoFio&) = delete;

  // What the task uses must outlive this object, or be the task's own. Throws std::bad_alloc.
  template <typename Faz>
  auto Comeca(Faz faz) {
    using Resultado = std::invoke_result_t<Faz>;
    auto trabalho = std::make_shared<TrabalhoCom<Resultado>>(std::move(faz));
    Enfileira(trabalho);
    return Tarefa<Resultado>(*this, std::move(trabalho));
  }

 private:
  void Enfileira(std::shared_ptr<Trabalho> trabalho);
  void Trabalha();
  bool FazProximo();  // false when none waits

  std::thread thread_;
  std::mutex mutex_;  // of what follows
  std::condition_variable haTrabalho_;
  std::deque<std::shared_ptr<Trabalho>> fila_;
  bool fim_ = false;
};

}  // namespace kestor
