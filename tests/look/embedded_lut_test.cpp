// Embedded LUTs: which embeddedlut elements count, how payload records are matched to them (first
// pending match, case-insensitive hashes, records that do not read, a payload that ends inside a
// record), the LUT cache serving identifiers it holds, and readers on several threads at once.
#include <gtest/gtest.h>

#include <thread>

#include "look/look_document_reader.h"
#include "look_test_support.h"
#include "lut/lut_cache.h"
#include "support/lut_samples.h"

namespace crandle_test {
namespace {

using Tincta::COvEmbeddedLUTPayload;

// A 2-point cube whose every output is `value`.
std::string ConstantCube(double value) {
  return CubeText3D(
      2, [value](double, double, double, double out[3]) { out[0] = out[1] = out[2] = value; });
}

std::string Record(std::string_view identifierHex, std::string_view bytes) {
  std::string record(16, '\0');
  for (size_t i = 0; i < 16; ++i) {
    record[i] = char(std::stoi(std::string(identifierHex.substr(2 * i, 2)), nullptr, 16));
  }
  const auto length = uint32_t(bytes.size());
  for (int i = 0; i < 4; ++i)
    record += char(length >> (8 * i));
  return record + std::string(bytes);
}

std::string Text(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string text = "<Tincta>\n";
  for (const auto& [hash, fileName] : entries) {
    text += "<embeddedlut><hash>" + hash + "</hash><filename>" + fileName +
            "</filename></embeddedlut>\n";
  }
  return text + "</Tincta>\n";
}

// Counts how often a reader asks for the payload.
class CCountingSource final : public Tincta::IOvEmbeddedLUTSource {
 public:
  explicit CCountingSource(std::string bytes) : bytes_(std::move(bytes)) {}
  std::span<const uint8_t> Payload() override {
    ++calls;
    return {reinterpret_cast<const uint8_t*>(bytes_.data()), bytes_.size()};
  }
  int calls = 0;

 private:
  std::string bytes_;
};

std::unique_ptr<Tincta::COvGradingDocument> Read(const std::string& text,
                                                 Tincta::IOvEmbeddedLUTSource* payload) {
  return Tincta::ReadLookDocument(text.data(), text.size(), payload);
}

float FirstValue(const Tincta::SDocumentLUT& entry) {
  return entry.lut->Table()[0];
}

constexpr const char* kA = "A1000000000000000000000000000001";
constexpr const char* kB = "B2000000000000000000000000000002";
constexpr const char* kE = "E5000000000000000000000000000005";

TEST_F(LookTest, PayloadRecordsServeTheFirstPendingMatch) {
  const std::string text = Text({
      {"a1000000000000000000000000000001", "a.cube"},  // lower case still matches
      {kB, "b1.cube"},
      {kB, "b2.cube"},
      {std::string(kA).substr(0, 31), "short.cube"},
      {std::string(kA) + "0", "long.cube"},
      {"D4000000000000000000000000000004", ""},
      {kE, "e.cube"},
  });
  const std::string payload = Record("FF000000000000000000000000000000", ConstantCube(0.9)) +
                              Record(kA, ConstantCube(0.1)) + Record(kB, "not a LUT") +
                              Record(kB, ConstantCube(0.2)) + Record(kB, ConstantCube(0.3)) +
                              Record(kE, ConstantCube(0.5)).substr(0, 30);
  CCountingSource source(payload);
  const auto document = Read(text, &source);
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(source.calls, 1);
  const auto& luts = document->LUTs();
  ASSERT_EQ(luts.size(), 3u);
  const std::tuple<const char*, float, const char*> expected[] = {
      {"a.cube", 0.1f, kA}, {"b1.cube", 0.2f, kB}, {"b2.cube", 0.3f, kB}};
  for (size_t i = 0; i < luts.size(); ++i) {
    EXPECT_EQ(luts[i].lut->SourcePath(), std::get<0>(expected[i])) << i;
    EXPECT_EQ(FirstValue(luts[i]), std::get<1>(expected[i])) << i;
    EXPECT_EQ(luts[i].embeddedIdentifier, std::get<2>(expected[i])) << i;
  }
  EXPECT_EQ(document->MissingEmbeddedLUTs(), std::vector<std::string>{std::string(kE) + "e.cube"});
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf(kA), 1);
  WriteFuzzSeedIfAsked("look_document", "embedded_rules", FuzzInput(text, payload));
}

TEST_F(LookTest, APayloadEndingInsideARecordKeepsTheRecordsBeforeIt) {
  const std::string text = Text({{kA, "a.cube"}, {kB, "b.cube"}});
  const std::string first = Record(kA, ConstantCube(0.1));
  const std::string second = Record(kB, ConstantCube(0.2));
  const size_t cuts[] = {0, 8, 16, 18, 20, second.size() - 1, second.size()};
  for (const size_t cut : cuts) {
    Tincta::COvLUTCache::Instance().EvictUnused();
    CCountingSource source(first + second.substr(0, cut));
    const auto document = Read(text, &source);
    ASSERT_NE(document, nullptr) << cut;
    const bool whole = cut == second.size();
    ASSERT_EQ(document->LUTs().size(), whole ? 2u : 1u) << cut;
    EXPECT_EQ(FirstValue(document->LUTs()[0]), 0.1f) << cut;
    EXPECT_EQ(document->MissingEmbeddedLUTs().size(), whole ? 0u : 1u) << cut;
  }
}

TEST_F(LookTest, TheCacheServesIdentifiersItHolds) {
  const std::string text = Text({{kA, "dir/a.cube"}});
  CCountingSource source(Record(kA, ConstantCube(0.25)));
  auto loaded = Read(text, &source);
  ASSERT_EQ(loaded->LUTs().size(), 1u);
  CCountingSource unused("");
  auto cached = Read(text, &unused);
  ASSERT_EQ(cached->LUTs().size(), 1u);
  EXPECT_EQ(unused.calls, 0) << "nothing was pending";
  EXPECT_EQ(cached->LUTs()[0].lut->Table(), loaded->LUTs()[0].lut->Table());
  EXPECT_EQ(cached->LUTs()[0].lut->SourcePath(), "dir/a.cube");
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf(kA), 2);
  loaded.reset();
  cached.reset();
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf(kA), 0);
}

TEST_F(LookTest, ReadersOnSeveralThreadsShareTheCache) {
  const std::string text = Text({{kA, "a.cube"}, {kB, "b.cube"}});
  const std::string payload = Record(kA, ConstantCube(0.1)) + Record(kB, ConstantCube(0.2));
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 25; ++i) {
        COvEmbeddedLUTPayload source(std::vector<uint8_t>(payload.begin(), payload.end()));
        const auto document = Read(text, &source);
        if (!document || document->LUTs().size() != 2 || FirstValue(document->LUTs()[0]) != 0.1f ||
            FirstValue(document->LUTs()[1]) != 0.2f) {
          ++failures;
        }
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf(kA), 0);
}

}  // namespace
}  // namespace crandle_test
