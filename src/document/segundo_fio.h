// A second thread, for work that can be done while the first one waits for the disk.
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

// Runs tasks in the order in which they are begun. If no thread can be started, the thread that takes a result runs the
// task.
class SegundoFio {
  struct Trabalho {
    virtual ~Trabalho() = default;
    virtual void Faz() = 0;

    std::atomic_flag tomado;  // set by the first thread that claims the task
  };

  template <typename Resultado>
  struct TrabalhoCom final : Trabalho {
    explicit TrabalhoCom(std::function<Resultado()> faz) : tarefa(std::move(faz)), resultado(tarefa.get_future()) {}
    void Faz() override { tarefa(); }

    std::packaged_task<Resultado()> tarefa;
    std::future<Resultado> resultado;
  };

 public:
  // A task that has been begun. Destroying it before Toma cancels the task, unless it is running.
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

    // Returns the result. Runs the task here if the second thread has not started it; otherwise runs later tasks while
    // it waits. Called once. Throws what the task throws.
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

  // Begins a task. What the task uses must outlive this object, or belong to the task. Throws std::bad_alloc.
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
  bool FazProximo();  // false if none waits

  std::thread thread_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable haTrabalho_;
  std::deque<std::shared_ptr<Trabalho>> fila_;
  bool fim_ = false;
};

}  // namespace kestor
