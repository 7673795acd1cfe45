// What the commands for first-generation models share.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "model_options.h"

namespace kestorctl {

// Adds the commands for the files that belong to a model to the group `legacy`.
void AddCompanions(CLI::App* legacy, Command* chosen);

// The files that belong to a model, made from contents in the form of these commands. For a content of the wrong size
// the constructors throw a LocalFailure that names `file`.
class ExportSettings {
 public:
  ExportSettings(const std::string& file, const std::string& content);
  ExportSettings(const ExportSettings&) = delete;
  ExportSettings& operator=(const ExportSettings&) = delete;

  std::size_t Count() const { return items_.size(); }
  HRESULT Store(const LegacyStore& store, const std::string& model) const;

 private:
  tagREG_RELEXPORTACAO settings_;
  std::vector<tagREG_RELEXPORTACAO_ITEM> items_;
};

class Filter {
 public:
  Filter(const std::string& file, const std::string& content);

  std::size_t Count() const { return entries_.size(); }
  HRESULT Store(const LegacyStore& store, const std::string& model);

 private:
  std::vector<tagCAMPO_FILTRO> entries_;
};

}  // namespace kestorctl
