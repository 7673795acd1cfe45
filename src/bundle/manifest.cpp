#include "manifest.h"

#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "common/nomes_arquivos.h"
#include "platform/text/text.h"

namespace bundle {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "KESTOR bundle";
constexpr int kFormatVersion = 1;

constexpr std::array<std::pair<Kind, const char*>, 5> kWords = {{{Kind::document, "document"},
                                                                 {Kind::firstGeneration, "first generation"},
                                                                 {Kind::exportSettings, "export settings"},
                                                                 {Kind::filter, "filter"},
                                                                 {Kind::catalogue, "field catalogue"}}};

const char* WordOf(Kind kind) {
  return std::find_if(kWords.begin(), kWords.end(), [&](const auto& word) { return word.first == kind; })->second;
}

// Throws Failure for a text that could lead elsewhere as part of a path, or that code page 1252 cannot express.
void RequirePart(const std::string& text, std::string_view without) {
  std::string ansi;
  if (!text::FromUtf8Exactly(text, &ansi) || text.find_first_of(without) != text.npos ||
      std::any_of(text.begin(), text.end(), [](unsigned char one) { return one < ' '; })) {
    throw Failure("no module, component or model can be called \"" + text::Presentable(text) + "\"");
  }
}

void RequireCode(const std::string& code) {
  RequirePart(code, "/\\");
  if (code.empty() || code == "." || code == "..") throw Failure("a module or component lacks its code");
}

void RequireName(const std::string& name) {
  RequirePart(name, "/\\.");
}

Json JsonOf(const Pair& pair, const Model* model, const File& file) {
  return {{"kind", WordOf(file.kind)},
          {"path", PathOf(pair, model, file.kind)},
          {"bytes", file.bytes},
          {"sha256", file.sha256}};
}

Json JsonOf(const Pair& pair) {
  Json models = Json::array();
  for (const Model& model : pair.models) {
    Json files = Json::array();
    for (const File& file : model.files)
      files.push_back(JsonOf(pair, &model, file));
    models.push_back({{"name", model.name}, {"codes", model.codes}, {"files", files}});
  }
  return {{"module", pair.module},
          {"component", pair.component},
          {"defaultReport", pair.defaultReport.empty() ? Json() : Json(pair.defaultReport)},
          {"hidden", pair.hidden},
          {"catalogue", pair.catalogue ? JsonOf(pair, nullptr, *pair.catalogue) : Json()},
          {"models", models}};
}

// ---- Reading -------------------------------------------------------------------------------------------------------

std::uint64_t NumberOf(const Json& json, const char* member) {
  const Json& number = json.at(member);
  if (!number.is_number_unsigned()) throw Failure(std::string("\"") + member + "\" is no number of bytes");
  return number.get<std::uint64_t>();
}

// Each path may occur once, ignoring letter case, because the stores ignore it.
using Paths = std::set<std::string>;

File FileOf(const Json& json, const Pair& pair, const Model* model, Paths* paths) {
  const std::string kind = json.at("kind").get<std::string>();
  const auto* const word =
      std::find_if(kWords.begin(), kWords.end(), [&](const auto& one) { return kind == one.second; });
  if (word == kWords.end() || (word->first == Kind::catalogue) != (model == nullptr))
    throw Failure("a file is of a kind that is not known, \"" + text::Presentable(kind) + "\"");
  File file = {word->first, NumberOf(json, "bytes"), json.at("sha256").get<std::string>()};
  const std::string path = json.at("path").get<std::string>();
  if (path != PathOf(pair, model, file.kind) || !paths->insert(text::Upper(text::FromUtf8(path))).second)
    throw Failure("\"" + text::Presentable(path) + "\" is not where a file of that model lies");
  if (file.bytes > kestor::kMaxConteudo + sizeof(std::uint16_t))
    throw Failure(text::Presentable(path) + " is larger than a model can be");
  return file;
}

Model ModelOf(const Json& json, const Pair& pair, Paths* paths) {
  Model model;
  model.name = json.at("name").get<std::string>();
  RequireName(model.name);
  for (const Json& code : json.at("codes")) {
    if (!code.is_number_integer()) throw Failure("a field code is no number");
    const auto number = code.get<std::int64_t>();
    if (number != static_cast<std::int32_t>(number)) throw Failure("a field code is out of range");
    model.codes.push_back(static_cast<std::int32_t>(number));
  }
  for (const Json& file : json.at("files"))
    model.files.push_back(FileOf(file, pair, &model, paths));
  bool isModel = !model.files.empty();
  for (std::size_t i = 1; i < model.files.size(); ++i)
    isModel = isModel && model.files[i - 1].kind != Kind::document && model.files[i - 1].kind < model.files[i].kind;
  if (!isModel)
    throw Failure("\"" + text::Presentable(model.name) + "\" is neither a document nor a first-generation model");
  const bool isDocument = model.files.front().kind == Kind::document;
  if (isDocument && model.files.front().bytes < sizeof(std::uint16_t))
    throw Failure("\"" + text::Presentable(model.name) + "\" is too short for a document");
  return model;
}

Pair PairOf(const Json& json, Paths* paths) {
  Pair pair;
  pair.module = json.at("module").get<std::string>();
  pair.component = json.at("component").get<std::string>();
  RequireCode(pair.module);
  RequireCode(pair.component);
  const Json& defaultReport = json.at("defaultReport");
  if (!defaultReport.is_null()) pair.defaultReport = defaultReport.get<std::string>();
  RequireName(pair.defaultReport);
  pair.hidden = json.at("hidden").get<std::vector<std::string>>();
  std::for_each(pair.hidden.begin(), pair.hidden.end(), RequireName);
  if (const Json& catalogue = json.at("catalogue"); !catalogue.is_null())
    pair.catalogue = FileOf(catalogue, pair, nullptr, paths);
  bool documentsEnd = false;
  for (const Json& model : json.at("models")) {
    pair.models.push_back(ModelOf(model, pair, paths));
    const bool isDocument = pair.models.back().files.front().kind == Kind::document;
    if (isDocument && documentsEnd) throw Failure("a document follows first-generation models");
    documentsEnd = !isDocument;
  }
  return pair;
}

}  // namespace

std::string_view ExtensionOf(Kind kind) {
  switch (kind) {
    case Kind::firstGeneration:
      return kestor::kExtensaoRel;
    case Kind::exportSettings:
      return kestor::kExtensaoExportacao;
    case Kind::filter:
      return kestor::kExtensaoFiltro;
    default:
      return kestor::kExtensaoRelatorio;
  }
}

std::string PathOf(const Pair& pair, const Model* model, Kind kind) {
  RequireCode(pair.module);
  RequireCode(pair.component);
  const std::string folder = pair.module + "/" + pair.component + "/";
  if (model == nullptr) {
    return folder + "fields/" +
           text::ToUtf8(kestor::CaminhoCatalogo({}, text::FromUtf8(pair.module), text::FromUtf8(pair.component)));
  }
  RequireName(model->name);
  return (folder + model->name).append(ExtensionOf(kind));
}

std::string TextOf(const Manifest& manifest) {
  Json pairs = Json::array();
  for (const Pair& pair : manifest.pairs)
    pairs.push_back(JsonOf(pair));
  const Json json = {{"format", kFormat}, {"formatVersion", kFormatVersion}, {"made", manifest.made}, {"pairs", pairs}};
  return json.dump(1) + "\n";
}

Manifest ParseManifest(std::string_view text) try {
  const Json json = Json::parse(text);
  if (!json.is_object() || json.value("format", std::string()) != kFormat)
    throw Failure("its manifest is that of something else");
  if (json.at("formatVersion") != kFormatVersion) throw Failure("a newer program has made it");
  Manifest manifest;
  manifest.made = json.at("made").get<std::string>();
  Paths paths;
  for (const Json& pair : json.at("pairs"))
    manifest.pairs.push_back(PairOf(pair, &paths));
  return manifest;
} catch (const Json::exception&) {
  throw Failure("its manifest is no JSON text with the members of one");
}

}  // namespace bundle
