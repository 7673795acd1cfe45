// The arguments that name a store of models, and a model in it.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <functional>
#include <string>

#include "answer.h"
#include "store_session.h"

namespace kestorctl {

struct StoreOptions {
  std::string module;
  std::string component;
};

struct ModelOptions : StoreOptions {
  std::string name;
};

// Where the content of a model, or of a file that belongs to it, goes to or comes from.
struct ReadOptions {
  ModelOptions model;
  std::string output = "-";
};

struct WriteOptions {
  ModelOptions model;
  std::string input;
};

struct WriteModelOptions : WriteOptions {
  bool keepExisting = false;
};

void AddStoreOptions(CLI::App* command, StoreOptions* options);
void AddModelOptions(CLI::App* command, ModelOptions* options);
void AddReadOptions(CLI::App* command, ReadOptions* options);
void AddWriteOptions(CLI::App* command, WriteOptions* options);
void AddWriteModelOptions(CLI::App* command, WriteModelOptions* options);

// Puts the result of a server's method into the answer, with the reason that the server gives. Must be called before
// any other method.
void Conclude(HRESULT result, Answer& answer);

// Return whether the store can be used. The answer gets the result of opening it. The second one adds the models that
// the opening has converted, so it is called once for each store.
bool IsOpen(const StoreSession& store, Answer& answer);
bool IsOpen(const ReportStore& store, Answer& answer);

// Rehearses a call for this module and component, and puts the result into the answer.
void Rehearse(const StoreOptions& store, const std::function<HRESULT()>& rehearsal, Answer& answer);

// Returns whether the notes cover every model. When they do not, the answer gets a note.
bool TellsAll(const CallNotes& notes, Answer& answer);

}  // namespace kestorctl
