#include "feature/CFeatObjMap.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "feature/CFeatureObject.h"
#include "tests/support/ThrownText.h"

namespace {

CFeatureObject<float>* floatFeature(const char* name, float value) {
  auto* feature = new CFeatureObject<float>(name, 2027);
  feature->AppendVector(BaseVector<float>(&value, 1));
  return feature;
}

float firstValue(const CFeatObjMap& map, const char* name) {
  CFeatureObjectBase* feature = map.GetFeatureObject(name);
  SMatrixInfo info;
  return feature ? static_cast<const float*>(feature->GetMatrixInfo(info).m_data)[0] : -1.0f;
}

void addFrame(CMetaVec& frames, const std::string& stream) {
  unsigned char* data = frames.addNewFrame(7, "FeatObj", static_cast<unsigned>(stream.size()));
  std::copy(stream.begin(), stream.end(), data);
}

TEST(FeatObjMap, FactoryAndOwnership) {
  CFeatObjMap map;
  for (const char* word : {"flt", "uchr", "uint"}) {
    std::unique_ptr<CFeatureObjectBase> object(map.createFeature(9, word));
    EXPECT_EQ(object->GetTypeName(), word);
  }
  for (const char* word : {"fl", "flt ", "int"}) {
    EXPECT_EQ(thrownText([&] { delete map.createFeature(2, word); }),
              "CFeatureObject: unsupported feature object type");
  }
  EXPECT_EQ(thrownText([&] { map.AddFeatureObject(nullptr); }),
            "CFeatureObject: feature object is invalid");
  CFeatureObject<float>* first = floatFeature("B", 1.0f);
  map.AddFeatureObject(first);
  map.AddFeatureObject(first);  // the same object again: nothing happens
  map.AddFeatureObject(floatFeature("B", 2.0f));  // replaces and frees the first
  EXPECT_EQ(std::make_tuple(map.size(), firstValue(map, "B")), std::make_tuple(size_t{1}, 2.0f));
  EXPECT_EQ(map.GetFeatureObject(nullptr), nullptr);
  map.Clear();
  EXPECT_TRUE(map.empty());
}

TEST(FeatObjMap, FramesRoundTripInNameOrder) {
  CFeatObjMap map;
  CMetaVec frames;
  EXPECT_EQ(map.WriteToMetaVec(frames), 0);
  map.AddFeatureObject(floatFeature("VAL", 4.0f));
  map.AddFeatureObject(floatFeature("EDG", 1.0f));
  frames.addNewFrame(4, "Cuid", 0);
  EXPECT_EQ(map.WriteToMetaVec(frames), 2);
  ASSERT_EQ(frames.frameCount(), 3u);
  // Name order: the first feature frame holds "EDG" behind its 5-byte head.
  const unsigned char* first = frames.frameAt(1).data.data();
  EXPECT_EQ(std::string(first + 5, first + 8), "EDG");

  CFeatObjMap read;
  read.AddFeatureObject(floatFeature("EDG", 9.0f));  // replaced by the stream's
  read.AddFeatureObject(floatFeature("ZZZ", 5.0f));  // not in the stream: stays
  read.ReadFromMetaVec(frames, nullptr);
  EXPECT_EQ(std::make_tuple(read.size(), firstValue(read, "EDG"), firstValue(read, "ZZZ")),
            std::make_tuple(size_t{3}, 1.0f, 5.0f));

  CFeatObjMap filtered;
  filtered.ReadFromMetaVec(frames, "VAL");
  EXPECT_EQ(std::make_tuple(filtered.size(), firstValue(filtered, "VAL")),
            std::make_tuple(size_t{1}, 4.0f));
  const CFeatObjMap copy(read, 0, 0, nullptr);
  EXPECT_NE(copy.GetFeatureObject("EDG"), read.GetFeatureObject("EDG"));
  EXPECT_EQ(firstValue(copy, "ZZZ"), 5.0f);
  EXPECT_EQ(CFeatObjMap(read, 0, 0, "VAL").size(), 1u);
  EXPECT_EQ(thrownText([&] { CFeatObjMap(read, 0, 0, "HUE"); }),
            "CFeatureObject: feature HUE not found in map");
  EXPECT_EQ(thrownText([] { CFeatObjMap(CFeatObjMap(), 0, 0, nullptr); }),
            "CFeatureObject: feature map is empty");
}

TEST(FeatObjMap, ReadFailures) {
  CFeatObjMap map;
  map.AddFeatureObject(floatFeature("EDG", 1.0f));
  CMetaVec good;
  map.WriteToMetaVec(good);
  const std::string stream(reinterpret_cast<const char*>(good.frameAt(0).data.data()),
                           good.frameAt(0).dataLength);
  std::string otherType = stream;
  otherType[9] = 'x';  // "flx"
  const std::string format = "format error in input stream";
  const struct { std::string stream; const char* filter; std::string expected; } cases[] = {
      {"", nullptr, "feature map is empty"},  // no frame
      {stream, "HUE", "feature HUE not found in stream"},
      {stream.substr(0, 6), nullptr, format},  // cut in the name
      {stream.substr(0, 11), nullptr, format},  // cut in the type word
      {otherType, nullptr, "unsupported feature object type"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    CMetaVec frames;
    frames.addNewFrame(4, "Cuid", 0);
    if (!c.stream.empty()) addFrame(frames, c.stream);
    CFeatObjMap read;
    EXPECT_EQ(thrownText([&] { read.ReadFromMetaVec(frames, c.filter); }),
              "CFeatureObject: " + c.expected);
  }
}

}  // namespace
