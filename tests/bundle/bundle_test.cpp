#include "bundle/bundle.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manifest.h"
#include "support/support.h"

namespace {

using bundle::Kind;
using bundle::Manifest;
using Contents = std::vector<std::string>;

// Two pairs: a document with a long name, and a first-generation model with its companions, one of them empty.
struct Example {
  Example() {
    const std::string longName = "Relação " + std::string(200, 'x');
    bundle::Pair first = {"CT", "01", longName, {"Exemplo"}, writer.Add(Kind::catalogue, "fields"), {}};
    first.models.push_back({longName, {writer.Add(Kind::document, std::string("\1\0a", 3))}, {301, -1}});
    bundle::Pair second = {"GE", "9", "", {}, {}, {}};
    second.models.push_back({"",
                             {writer.Add(Kind::firstGeneration, std::string(70'000, '\0')),
                              writer.Add(Kind::exportSettings, ""), writer.Add(Kind::filter, "f")},
                             {}});
    manifest.made = "2026-11-26T22:15:44Z";
    manifest.pairs = {first, second};
  }

  bundle::Writer writer;
  Manifest manifest;
};

TEST(BundleTest, HoldsWhatWasPutIn) {
  Example example;
  const support::TempFolder folder;
  const std::string file = folder.Path() / "bundle.tar";
  example.writer.Finish(example.manifest, [&](std::string_view archive) { std::ofstream(file) << archive; });
  bundle::Reader reader(file);
  EXPECT_EQ(bundle::TextOf(reader.Contents()), bundle::TextOf(example.manifest));
  Contents all;
  reader.Visit([&](const bundle::Pair& pair, const bundle::Model* model, Contents& contents) {
    all.push_back(pair.module + (model == nullptr ? " catalogue" : " " + model->name.substr(0, 9)));
    all.insert(all.end(), contents.begin(), contents.end());
  });
  EXPECT_THAT(all, testing::ElementsAre("CT catalogue", "fields", "CT Relação", std::string("\1\0a", 3), "GE ",
                                        std::string(70'000, '\0'), "", "f"));

  // Any change to the archive.
  const std::string archive = support::ReadFile(file);
  const auto isRefused = [&](const std::string& bytes) {
    std::ofstream(file, std::ios::trunc) << bytes;
    try {
      bundle::Reader(file).Visit([](const bundle::Pair&, const bundle::Model*, Contents&) {});
    } catch (const bundle::Failure&) {
      return true;
    }
    return false;
  };
  EXPECT_FALSE(isRefused(archive));
  const std::size_t end = archive.find_last_not_of('\0') / 512 * 512 + 512;  // the end of the last file
  for (std::size_t bytes = 0; bytes < end; bytes += 512)
    EXPECT_TRUE(isRefused(archive.substr(0, bytes))) << "cut after " << bytes << " bytes";
  EXPECT_TRUE(isRefused(archive.substr(0, end) + archive.substr(end - 1024)));
  std::string changed = archive;
  changed.replace(changed.find("fields", changed.find("XCT01.REL\0")), 6, "Fields");
  EXPECT_TRUE(isRefused(changed));
}

TEST(ManifestTest, RefusesWhatNoStoreCouldTake) {
  const std::string text = bundle::TextOf(Example().manifest);
  ASSERT_EQ(bundle::TextOf(bundle::ParseManifest(text)), text);
  const struct {
    const char* from;
    const char* to;
  } changes[] = {
      {"KESTOR bundle", "tar"},
      {"\"formatVersion\": 1", "\"formatVersion\": 2"},
      {"\"bytes\": 6", "\"bytes\": -6"},
      {"\"bytes\": 6", "\"bytes\": 6.5"},
      {"\"bytes\": 6", "\"bytes\": 18446744073709551615"},
      {"\"bytes\": 3", "\"bytes\": 1"},
      {"301", "4294967297"},
      {"\"module\": \"GE\"", "\"module\": \"..\""},
      {"\"module\": \"GE\"", "\"module\": \"G/E\""},
      {"\"module\": \"GE\"", "\"module\": \"\""},
      {"\"Exemplo\"", "\"..\\\\Exemplo\""},
      {"\"Exemplo\"", "\"\\u4e00\""},
      {"\"name\": \"\"", "\"name\": \"x.DAT\""},
      {"\"path\": \"GE/9/.REL\"", "\"path\": \"../9/.REL\""},
      {"\"path\": \"GE/9/.REE\"", "\"path\": \"GE/9/.REL\""},
      {"\"kind\": \"document\"", "\"kind\": \"symbolic link\""},
      {"\"kind\": \"document\"", "\"kind\": \"field catalogue\""},
      {"\"models\"", "\"modelos\""},
  };
  for (const auto& [from, to] : changes) {
    std::string changed = text;
    ASSERT_NE(changed.find(from), changed.npos) << from;
    changed.replace(changed.find(from), std::string_view(from).size(), to);
    EXPECT_THROW(bundle::ParseManifest(changed), bundle::Failure) << to;
  }
  Example twice;
  twice.manifest.pairs.push_back(twice.manifest.pairs.front());
  EXPECT_THROW(bundle::ParseManifest(bundle::TextOf(twice.manifest)), bundle::Failure);
  Example mixed;
  mixed.manifest.pairs[1].models.push_back({"x", {{Kind::document, 3, {}}}, {}});
  EXPECT_THROW(bundle::ParseManifest(bundle::TextOf(mixed.manifest)), bundle::Failure);
  mixed.manifest.pairs[1].models = {{"x", {{Kind::filter, 3, {}}, {Kind::document, 3, {}}}, {}}};
  EXPECT_THROW(bundle::ParseManifest(bundle::TextOf(mixed.manifest)), bundle::Failure);
  mixed.manifest.pairs[1].models = {{"x", {}, {}}};
  EXPECT_THROW(bundle::ParseManifest(bundle::TextOf(mixed.manifest)), bundle::Failure);
}

}  // namespace
