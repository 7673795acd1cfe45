// What is known of a model's file, and what the record files say about it.
#include <fcntl.h>

#include <cstring>
#include <functional>

#include "admin/admin.h"
#include "common/arquivos_modelo.h"
#include "common/nomes_arquivos.h"
#include "common/razao.h"
#include "platform/files/files.h"
#include "platform/host/system.h"
#include "platform/text/text.h"
#include "store/registros.h"

namespace admin {

namespace {

using Clock = std::chrono::system_clock;

std::optional<Clock::time_point> TimeOf(const std::string& path) {
  std::string host;
  platform::Descriptor file;
  struct stat status {};
  // Does not wait for a pipe that has a model's name.
  if (files::HostPath(path.c_str(), &host) != 0 || host::Open(AT_FDCWD, host, O_RDONLY | O_NONBLOCK, &file) != 0 ||
      host::StatNow(file, &status) != 0) {
    return std::nullopt;
  }
  const auto sinceEpoch =
      std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec);
  return Clock::time_point(std::chrono::duration_cast<Clock::duration>(sinceEpoch));
}

// Takes the first bytes of a file; returns nothing if there are too few.
std::optional<std::uint16_t> VersionOf(Generation generation, const unsigned char* bytes, std::size_t count) {
  constexpr unsigned char kTellsVersion = 1;  // first byte of a first-generation model; another one means version 0
  std::uint16_t version = 0;
  if (generation == Generation::first) {
    if (count == 0) return std::nullopt;
    if (bytes[0] != kTellsVersion) return version;
    bytes += sizeof version;
    count -= std::min(count, sizeof version);
  }
  if (count < sizeof version) return std::nullopt;
  std::memcpy(&version, bytes, sizeof version);
  return version;
}

}  // namespace

Details DetailsOf(const Inventory& inventory, const Model& model) {
  constexpr UINT kEnough = 4;
  Details details;
  const std::string path = inventory.folder + model.file;
  details.changed = TimeOf(path);
  try {
    CFile file;
    CFileException failure;
    if (!file.Open(path.c_str(), kestor::kLeituraModelo, &failure)) throw failure;
    details.bytes = file.GetLength();
    unsigned char bytes[kEnough];
    details.version = VersionOf(model.generation, bytes, file.Read(bytes, kEnough));
  } catch (const CFileException& failure) {
    kestor::DizRazao("read", failure);
    details.trouble = kestor::RazaoDita();
  }
  return details;
}

Records RecordsOf(const Inventory& inventory, const Pair& pair) {
  Records records;
  const std::string key = text::FromUtf8(pair.module + pair.component);
  const auto visit = [&](const std::string& file, const std::function<bool(std::string_view name)>& take) {
    try {
      constexpr bool kReadOnly = true;
      kestor::PercorreRegistros(file, kReadOnly, [&](std::uint32_t, const kestor::RegistroNome& record) {
        return !record.EDe(key) || take(record.Nome());
      });
    } catch (const CFileException& failure) {
      kestor::DizRazao("read", failure);
      records.trouble += (records.trouble.empty() ? "" : "; ") + kestor::RazaoDita();
    }
  };
  visit(kestor::CaminhoPadroes(inventory.folder), [&](std::string_view name) {
    records.defaultReport = text::ToUtf8(name);
    return false;
  });
  visit(kestor::CaminhoExcluidos(inventory.folder), [&](std::string_view name) {
    records.hidden[text::Upper(name)] = text::ToUtf8(name);
    return true;
  });
  return records;
}

bool Records::IsDefault(const Model& model) const {
  return model.generation == Generation::second && !defaultReport.empty() &&
         kestor::ChaveRelatorio(text::FromUtf8(defaultReport)) == kestor::ChaveRelatorio(text::FromUtf8(model.name));
}

bool Records::Hides(const Model& model) const {
  return model.generation == Generation::second && hidden.contains(text::Upper(text::FromUtf8(model.name)));
}

}  // namespace admin
