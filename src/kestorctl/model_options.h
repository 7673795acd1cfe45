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

// Where the content of a model, or of a file beside it, goes to or comes from.
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

// Enters the result of a method of the server, with what the server says about it. To be called before any other
// method.
void Conclude(HRESULT result, Answer& answer);

// Whether the store can be used; the answer tells why not, and how many models the opening has converted.
bool IsOpen(const StoreSession& store, Answer& answer);
bool IsOpen(const ReportStore& store, Answer& answer);

// Has the server tell what a call for this module and component would do, and enters the result.
void Rehearse(const StoreOptions& store, const std::function<HRESULT()>& rehearsal, Answer& answer);

// Whether the notes tell of every model; the answer says when they do not.
bool TellsAll(const CallNotes& notes, Answer& answer);

}  // namespace kestorctl
