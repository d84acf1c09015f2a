#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "database/CSignatureDatabase.h"
#include "database/SFeatureGroupDef.h"
#include "tests/support/ThrownText.h"
#include "tests/support/HexBytes.h"

namespace {

// A signature as the store reads it: the tiles of the four features.
struct STiles {
  std::vector<float> edg = std::vector<float>(96);
  std::vector<float> hue = std::vector<float>(144);
  std::vector<float> sat = std::vector<float>(36);
  std::vector<float> val = std::vector<float>(36);

  CSignatureDatabase::FeatureTiles reader() const {
    return [this](const std::string& name, uint32_t count) -> const float* {
      const std::vector<float>* f = name == "EDG"   ? &edg
                                    : name == "HUE" ? &hue
                                    : name == "SAT" ? &sat
                                    : name == "VAL" ? &val
                                                    : nullptr;
      return f != nullptr && count <= f->size() ? f->data() : nullptr;
    };
  }
};

// No edges, and one constant level per colour feature, so that every group vector is that
// level throughout (its means included).
STiles flatTiles(float hue, float sat, float val) {
  STiles t;
  t.hue.assign(t.hue.size(), hue);
  t.sat.assign(t.sat.size(), sat);
  t.val.assign(t.val.size(), val);
  return t;
}

// Deterministic, unlike neighbours: a different photo per seed.
STiles photoTiles(unsigned seed) {
  STiles t;
  unsigned x = seed * 2654435761u + 1;
  for (std::vector<float>* feature : {&t.edg, &t.hue, &t.sat, &t.val}) {
    for (float& v : *feature) {
      x = x * 1103515245u + 12345u;
      v = static_cast<float>((x >> 8) & 0xFFFF) / 65536.0f;
    }
  }
  return t;
}

class SignatureDatabaseStreamTest : public ::testing::Test {
 protected:
  static void build(CSignatureDatabase& db) {
    std::vector<SFeatureGroupDef> defs;
    buildFeatureGroupDefs(defs);
    db.init(defs, 0);
  }
  SignatureDatabaseStreamTest() {
    build(db);
    build(loaded);
  }

  std::string save(CSignatureDatabase& from) {
    std::ostringstream out;
    const uint32_t written = from.saveToStream(out);
    EXPECT_EQ(written, out.str().size());
    return out.str();
  }
  uint32_t load(CSignatureDatabase& into, const std::string& stream) {
    std::istringstream in(stream);
    return into.loadFromStream(in);
  }
  static std::string hex(const std::string& stream) {
    return hexText(reinterpret_cast<const unsigned char*>(stream.data()), stream.size());
  }

  CSignatureDatabase db;
  CSignatureDatabase loaded;
};

std::string repeated(const std::string& hex, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += hex + " ";
  return all;
}

// Versions and weights as a store has them after creation (percent 50 for both keys).
const char kVersionsAndWeights[] =
    "33 00 00 00 04 00 00 00 01  35 00 00 00 02 56 36 "
    "33 00 00 00 04 00 00 00 02 "
    "33 00 00 00 04 00 00 00 00  33 00 00 00 04 42 48 00 00  33 00 00 00 04 3F 00 00 00 "
    "33 00 00 00 04 00 00 00 01  33 00 00 00 04 42 48 00 00  33 00 00 00 04 3D CC CC CD "
    "33 00 00 00 04 00 00 00 04 ";
// Scale and reserved word of the four groups, in order.
const char* const kGroupHeads[] = {
    "33 00 00 00 04 3D CC CC CD  33 00 00 00 04 00 00 00 00 ",
    "33 00 00 00 04 3E 4C CC CD  33 00 00 00 04 00 00 00 00 ",
    "33 00 00 00 04 3E 19 99 9A  33 00 00 00 04 00 00 00 00 ",
    "33 00 00 00 04 3E 19 99 9A  33 00 00 00 04 00 00 00 00 ",
};
// Stream length, message header and body length in front of the values.
std::string streamHex(const std::string& length, const std::string& body,
                      const std::string& values) {
  return length + " 4F 52 56 31 00 " + body + " " + values + "58";
}

TEST_F(SignatureDatabaseStreamTest, EmptyStoreStreamIsGolden) {
  std::string values = kVersionsAndWeights;
  for (const char* group : kGroupHeads)
    values += group + std::string("33 00 00 00 04 00 00 00 00 ");
  const std::string stream = save(db);
  EXPECT_EQ(hex(stream), hexText(hexBytes(streamHex("00 00 00 CE", "00 00 00 C5", values))));
  EXPECT_EQ(load(loaded, stream), stream.size());
  EXPECT_EQ(loaded.itemCount(), 0u);
  EXPECT_EQ(loaded.versions, std::vector<std::string>{"V6"});
}

// Ids 7, 8, 9 added, then 7 removed: 9 moves into the gap, so the stream holds 9, then 8.
TEST_F(SignatureDatabaseStreamTest, TwoPhotosAfterRemovalStreamIsGolden) {
  db.addFeatures("V6", flatTiles(3.0f, 3.0f, 3.0f).reader(), 7, 0, 107);
  db.addFeatures("V6", flatTiles(1.0f, 0.5f, 2.0f).reader(), 8, 0, 108);
  db.addFeatures("V6", flatTiles(0.25f, 0.0f, 1.0f).reader(), 9, 0, 109);
  db.removeSignature(7, 0);

  // Group vector lengths, and the level of each photo in each group (hex of the float).
  const char* const columns[] = {"00 00 00 C0", "00 00 01 00", "00 00 00 40", "00 00 00 40"};
  const int lengths[] = {192, 256, 64, 64};
  const char* const levels9[] = {"00 00 00 00", "3E 80 00 00", "00 00 00 00", "3F 80 00 00"};
  const char* const levels8[] = {"00 00 00 00", "3F 80 00 00", "3F 00 00 00", "40 00 00 00"};
  std::string values = kVersionsAndWeights;
  for (int g = 0; g < 4; ++g) {
    values += kGroupHeads[g] + std::string("33 00 00 00 04 00 00 00 02 ");
    values +=
        "33 00 00 00 04 00 00 00 00  34 00 00 00 08 00 00 00 00 00 00 00 09 "
        "33 00 00 00 04 00 00 00 6D  33 00 00 00 04 " +
        std::string(columns[g]) + "  33 00 00 00 04 00 00 00 01 ";
    values += repeated("33 00 00 00 04 " + std::string(levels9[g]), lengths[g]);
    values +=
        "33 00 00 00 04 00 00 00 01  34 00 00 00 08 00 00 00 00 00 00 00 08 "
        "33 00 00 00 04 00 00 00 6C  33 00 00 00 04 " +
        std::string(columns[g]) + "  33 00 00 00 04 00 00 00 01 ";
    values += repeated("33 00 00 00 04 " + std::string(levels8[g]), lengths[g]);
  }
  const std::string stream = save(db);
  // 5,380 bytes per photo on top of the empty store's 210.
  ASSERT_EQ(stream.size(), 210u + 2 * 5380u);
  EXPECT_EQ(hex(stream), hexText(hexBytes(streamHex("00 00 2A D6", "00 00 2A CD", values))));

  // Loading keeps the order, and with the weights set again, saves the same bytes.
  EXPECT_EQ(load(loaded, stream), stream.size());
  loaded.setWeight(0, 50.0f);
  loaded.setWeight(1, 50.0f);
  EXPECT_EQ(hex(save(loaded)), hex(stream));
}

// Enough photos to fill several blocks and more than one read of a stream, with gaps filled
// by removals: a load gives back the same store, which saves the same bytes and ranks alike,
// whether the stream can tell its size (decoded while read) or not (read whole first), and
// leaves the stream after the message.
TEST_F(SignatureDatabaseStreamTest, ManyPhotosRoundTripByteForByte) {
  for (uint32_t id = 1; id <= 250; ++id) db.addFeatures("V6", photoTiles(id).reader(), id, 0, id);
  for (uint32_t id : {1u, 50u, 99u}) db.removeSignature(id, 0);
  const std::string stream = save(db);
  ASSERT_EQ(stream.size(), 210u + 247 * 5380u);
  // Reads a string and cannot seek.
  struct SForwardBuf : std::streambuf {
    explicit SForwardBuf(std::string& s) { setg(s.data(), s.data(), s.data() + s.size()); }
  };
  for (const bool seekable : {true, false}) {
    SCOPED_TRACE(seekable ? "seekable" : "forward only");
    std::string bytes = stream + "tail";
    std::istringstream file(bytes);
    SForwardBuf forward(bytes);
    std::istream in(seekable ? static_cast<std::streambuf*>(file.rdbuf()) : &forward);
    CSignatureDatabase into;
    build(into);
    EXPECT_EQ(into.loadFromStream(in), stream.size());
    std::string rest;
    in >> rest;
    EXPECT_EQ(rest, "tail");
    into.setWeight(0, 50.0f);
    into.setWeight(1, 50.0f);
    EXPECT_EQ(save(into), stream);
  }
  EXPECT_EQ(load(loaded, stream), stream.size());
  loaded.setWeight(0, 50.0f);
  loaded.setWeight(1, 50.0f);
  for (int mode : {0, 1}) {
    const std::vector<SClassifyResult> before =
        db.classifyFeatures("V6", photoTiles(7).reader(), mode, nullptr);
    const std::vector<SClassifyResult>& after =
        loaded.classifyFeatures("V6", photoTiles(7).reader(), mode, nullptr);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(after[i].idLow, before[i].idLow);
      EXPECT_EQ(after[i].score, before[i].score);
    }
  }
}

// The store is saved with the weights of creation (50 and 50); a load leaves 0.5 and 0.5.
TEST_F(SignatureDatabaseStreamTest, LoadedStoreRanksAlikeOnceTheWeightsAreSetAgain) {
  for (uint32_t id = 1; id <= 6; ++id) db.addFeatures("V6", photoTiles(id).reader(), id, 0, 0);
  const STiles query = photoTiles(3);
  load(loaded, save(db));
  for (int mode : {0, 1}) {
    SCOPED_TRACE(mode);
    const std::vector<SClassifyResult> before =
        db.classifyFeatures("V6", query.reader(), mode, nullptr);
    const std::vector<SClassifyResult> small =
        loaded.classifyFeatures("V6", query.reader(), mode, nullptr);
    loaded.setWeight(0, 50.0f);
    loaded.setWeight(1, 50.0f);
    const std::vector<SClassifyResult> after =
        loaded.classifyFeatures("V6", query.reader(), mode, nullptr);
    loaded.setWeight(0, 0.5f);
    loaded.setWeight(1, 0.5f);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(after[i].idLow, before[i].idLow);
      EXPECT_EQ(after[i].score, before[i].score);
      EXPECT_EQ(small[i].idLow, before[i].idLow);
      EXPECT_NEAR(small[i].score * 100.0f, before[i].score, before[i].score * 1e-5f);
    }
  }
}

TEST_F(SignatureDatabaseStreamTest, HeaderAndVersionsComeFromTheStream) {
  std::string stream = save(db);
  stream[7] = '2';  // "ORV2": nothing is read, but the weights are reset all the same
  loaded.addFeatures("V6", photoTiles(1).reader(), 1, 0, 0);
  EXPECT_EQ(load(loaded, stream), stream.size());
  EXPECT_EQ(loaded.itemCount(), 1u);
  float percent = 0.0f;
  ASSERT_TRUE(loaded.getWeight(0, &percent));
  EXPECT_EQ(percent, 0.5f);

  stream[7] = '1';
  stream[stream.find("V6") + 1] = '7';
  load(loaded, stream);
  EXPECT_EQ(loaded.itemCount(), 0u);
  EXPECT_EQ(thrownText([&] { loaded.addFeatures("V6", photoTiles(1).reader(), 1, 0, 0); }),
            "Wrong Feature Version");
}

// Whatever the damage, a load ends quietly, keeps the items read before it (a stream
// without a whole header changes nothing), and leaves a store that classifies without fault.
TEST_F(SignatureDatabaseStreamTest, DamagedStreamsKeepTheStoreUsable) {
  for (uint32_t id = 1; id <= 2; ++id) db.addFeatures("V6", photoTiles(id).reader(), id, 0, 0);
  const std::string good = save(db);
  // Offset of the first item of group 0, behind the values of the empty store's stream
  // (210 bytes with its end mark) and group 0's scale, reserved word and count.
  const size_t firstIndex = 210 - 1 - 4 * 27 + 27;
  struct Case {
    const char* name;
    size_t offset;
    std::string bytes;
    size_t keep;      // bytes of the stream kept, the rest cut off
    uint32_t photos;  // stored after the load
  };
  const Case cases[] = {
      {"index not its position", firstIndex + 5, std::string("\0\0\0\1", 4), good.size(), 0},
      {"columns not the group's", firstIndex + 9 + 13 + 9 + 5, std::string("\0\0\0\xBF", 4),
       good.size(), 0},
      {"two rows", firstIndex + 9 + 13 + 9 + 9 + 5, std::string("\0\0\0\2", 4), good.size(), 0},
      {"group count 5", firstIndex - 27 - 9 + 5, std::string("\0\0\0\5", 4), good.size(), 0},
      {"huge item count", firstIndex - 9 + 5, std::string("\x7F\xFF\xFF\xFF", 4), good.size(), 0},
      {"huge version count", 4 + 9 + 5, std::string("\xFF\xFF\xFF\xFF", 4), good.size(), 0},
      {"huge weight count", 4 + 9 + 16 + 5, std::string("\xFF\xFF\xFF\xFF", 4), good.size(), 0},
      {"item length past the end", firstIndex + 1, std::string("\x7F", 1), good.size(), 0},
      {"float item with a text tag", firstIndex + 9 + 13 + 9 + 9 + 9, "5", good.size(), 0},
      {"cut in the second item", 0, "", good.size() - 3000, 2},
      {"cut in the head", 0, "", 7, 1},
      {"4 GiB announced, 20 bytes there", 0, std::string("\xFF\xFF\xFF\xFF", 4), 20, 0},
      {"nothing", 0, "", 0, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string stream = good;
    stream.replace(c.offset, c.bytes.size(), c.bytes);
    stream.resize(c.keep);
    CSignatureDatabase store;
    build(store);
    store.addFeatures("V6", photoTiles(9).reader(), 9, 0, 0);
    ASSERT_NO_THROW(load(store, stream));
    EXPECT_EQ(store.itemCount(), c.photos);
    for (const CFeatureGroup& group : store.groups) {
      for (size_t i = 0; i < group.items.size(); ++i) EXPECT_EQ(group.items[i].index, i);
    }
    if (store.itemCount() == 0) continue;
    try {
      store.classifyFeatures("V6", photoTiles(1).reader(), 1, nullptr);
    } catch (const std::string&) {
      // Groups left out of step by the damage are refused; what matters is no fault.
    }
  }
}

TEST_F(SignatureDatabaseStreamTest, FailingStreamsReportTheirTexts) {
  struct FailingBuf : std::streambuf {
    int_type overflow(int_type) override { return traits_type::eof(); }
    int_type underflow() override { throw std::ios_base::failure("gone"); }
  } failing;
  std::ostream out(&failing);
  out.exceptions(std::ios::badbit);
  std::istream in(&failing);
  in.exceptions(std::ios::badbit);
  db.addFeatures("V6", photoTiles(1).reader(), 1, 0, 0);
  EXPECT_EQ(thrownText([&] { db.saveToStream(out); }), "Error OStreaming Database");
  EXPECT_EQ(thrownText([&] { db.loadFromStream(in); }), "Error IStreaming Database");
  EXPECT_EQ(db.itemCount(), 1u);
}

}  // namespace
