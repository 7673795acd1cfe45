// The arguments that name a store of models, and a model in it.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

#include "answer.h"
#include "explanation.h"
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

// The file of a second-generation model, as it is read and as it is written, deleted and made the default.
ModelFile ReportFileRead(const ModelOptions& options);
ModelFile ReportFileWritten(const ModelOptions& options);

// Whether the store can be used; the answer tells why not.
bool IsOpen(const StoreSession& store, Answer& answer);

}  // namespace kestorctl
