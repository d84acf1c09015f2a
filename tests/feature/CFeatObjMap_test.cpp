#include "feature/CFeatObjMap.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "feature/CFeatureObject.h"
#include "tests/ThrownText.h"

namespace {

CFeatureObject<float>* floatFeature(const char* name, float value) {
  auto* feature = new CFeatureObject<float>(name, 2027);
  feature->AppendVector(BaseVector<float>(&value, 1));
  return feature;
}

float firstValue(const CFeatObjMap& map, const char* name) {
  CFeatureObjectBase* feature = map.GetFeatureObject(name);
  if (!feature) return -1.0f;
  SMatrixInfo info;
  return static_cast<const float*>(feature->GetMatrixInfo(info).m_data)[0];
}

TEST(FeatObjMap, FactoryByTypeWord) {
  CFeatObjMap map;
  for (const char* word : {"flt", "uchr", "uint"}) {
    SCOPED_TRACE(word);
    std::unique_ptr<CFeatureObjectBase> object(map.createFeature(9, word));
    EXPECT_EQ(object->GetTypeName(), word);
  }
  for (const char* word : {"fl", "flt ", "int", ""}) {
    SCOPED_TRACE(word);
    EXPECT_EQ(thrownText([&] { delete map.createFeature(2, word); }),
              "CFeatureObject: unsupported feature object type");
  }
}

TEST(FeatObjMap, AddOwnsAndReplaces) {
  CFeatObjMap map;
  EXPECT_EQ(thrownText([&] { map.AddFeatureObject(nullptr); }),
            "CFeatureObject: feature object is invalid");
  CFeatureObject<float>* first = floatFeature("B", 1.0f);
  EXPECT_EQ(map.AddFeatureObject(first), 0);
  EXPECT_EQ(map.AddFeatureObject(first), 0);  // the same object again: nothing happens
  EXPECT_EQ(map.GetFeatureObject("B"), first);
  map.AddFeatureObject(floatFeature("B", 2.0f));  // deletes the first (ASan would see a leak)
  map.AddFeatureObject(floatFeature("A", 3.0f));
  EXPECT_EQ(map.size(), 2u);
  EXPECT_EQ(firstValue(map, "B"), 2.0f);
  EXPECT_EQ(map.GetFeatureObject(nullptr), nullptr);
  EXPECT_EQ(map.GetFeatureObject("C"), nullptr);
  map.Clear();
  EXPECT_TRUE(map.empty());
}

TEST(FeatObjMap, FramesRoundTripInNameOrder) {
  CFeatObjMap map;
  CMetaVec frames;
  EXPECT_EQ(map.WriteToMetaVec(frames), 0);
  EXPECT_EQ(frames.frameCount(), 0u);

  map.AddFeatureObject(floatFeature("VAL", 4.0f));
  map.AddFeatureObject(floatFeature("EDG", 1.0f));
  map.AddFeatureObject(floatFeature("HUE", 2.0f));
  frames.addNewFrame(4, "Cuid", 0);
  EXPECT_EQ(map.WriteToMetaVec(frames), 3);
  ASSERT_EQ(frames.frameCount(), 4u);
  EXPECT_EQ(frames.findFrame("FeatObj", 7), 1);
  // Name order: "EDG" stands in the first feature frame.
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(frames.frameAt(1).data.data()) + 5, 3), "EDG");

  CFeatObjMap read;
  read.AddFeatureObject(floatFeature("HUE", 9.0f));  // replaced, and deleted, by the stream's
  read.AddFeatureObject(floatFeature("ZZZ", 5.0f));  // not in the stream: stays
  read.ReadFromMetaVec(frames, nullptr);
  EXPECT_EQ(read.size(), 4u);
  EXPECT_EQ(firstValue(read, "EDG"), 1.0f);
  EXPECT_EQ(firstValue(read, "HUE"), 2.0f);
  EXPECT_EQ(firstValue(read, "ZZZ"), 5.0f);

  CFeatObjMap filtered;
  filtered.ReadFromMetaVec(frames, "VAL");
  EXPECT_EQ(filtered.size(), 1u);
  EXPECT_EQ(firstValue(filtered, "VAL"), 4.0f);
}

TEST(FeatObjMap, ReadFailures) {
  CFeatObjMap map;
  map.AddFeatureObject(floatFeature("EDG", 1.0f));
  CMetaVec good;
  map.WriteToMetaVec(good);
  const SMetaFrame& frame = good.frameAt(0);
  const std::string stream(reinterpret_cast<const char*>(frame.data.data()), frame.dataLength);

  struct Case {
    const char* name;
    std::vector<std::string> streams;  // one "FeatObj" frame each
    const char* filter;
    std::string expected;
  };
  std::string otherType = stream;
  otherType[9] = 'x';  // "flx"
  const Case cases[] = {
      {"no frame", {}, nullptr, "CFeatureObject: feature map is empty"},
      {"filter misses", {stream}, "HUE", "CFeatureObject: feature HUE not found in stream"},
      {"head cut in the name", {stream.substr(0, 6)}, nullptr,
       "CFeatureObject: format error in input stream"},
      {"head cut in the type word", {stream.substr(0, 11)}, nullptr,
       "CFeatureObject: format error in input stream"},
      {"empty stream", {""}, nullptr, "CFeatureObject: format error in input stream"},
      {"unknown type word", {otherType}, nullptr,
       "CFeatureObject: unsupported feature object type"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CMetaVec frames;
    frames.addNewFrame(4, "Cuid", 0);
    for (const std::string& s : c.streams) {
      unsigned char* data = frames.addNewFrame(7, "FeatObj", static_cast<unsigned>(s.size()));
      std::copy(s.begin(), s.end(), data);
    }
    CFeatObjMap read;
    EXPECT_EQ(thrownText([&] { read.ReadFromMetaVec(frames, c.filter); }), c.expected);
  }
}

TEST(FeatObjMap, ExcerptsCopyDeeply) {
  CFeatObjMap source;
  source.AddFeatureObject(floatFeature("EDG", 1.0f));
  source.AddFeatureObject(floatFeature("HUE", 2.0f));

  const CFeatObjMap copy(source, 0, 0, nullptr);
  ASSERT_EQ(copy.size(), 2u);
  EXPECT_NE(copy.GetFeatureObject("EDG"), source.GetFeatureObject("EDG"));
  EXPECT_EQ(firstValue(copy, "HUE"), 2.0f);

  const CFeatObjMap one(source, 0, 0, "HUE");
  EXPECT_EQ(one.size(), 1u);

  CFeatObjMap empty;
  EXPECT_EQ(thrownText([&] { CFeatObjMap(source, 0, 0, "VAL"); }),
            "CFeatureObject: feature VAL not found in map");
  EXPECT_EQ(thrownText([&] { CFeatObjMap(empty, 0, 0, nullptr); }),
            "CFeatureObject: feature map is empty");
}

}  // namespace
