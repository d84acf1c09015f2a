#include "feature/CFeatObjMap.h"

#include <gtest/gtest.h>

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

TEST(FeatObjMap, OwnsOneObjectPerName) {
  CFeatObjMap map;
  EXPECT_EQ(thrownText([&] { map.AddFeatureObject(nullptr); }),
            "CFeatureObject: feature object is invalid");
  CFeatureObject<float>* first = floatFeature("B", 1.0f);
  map.AddFeatureObject(first);
  map.AddFeatureObject(first);  // the same object again: nothing happens
  map.AddFeatureObject(floatFeature("B", 2.0f));  // replaces and frees the first
  EXPECT_EQ(std::make_tuple(map.size(), firstValue(map, "B")), std::make_tuple(size_t{1}, 2.0f));
  EXPECT_EQ(map.GetFeatureObject(nullptr), nullptr);
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

  EXPECT_NE(CFeatObjMap(read, 0, 0, nullptr).GetFeatureObject("EDG"), read.GetFeatureObject("EDG"));
}

TEST(FeatObjMap, ReadFailures) {
  CFeatObjMap map;
  map.AddFeatureObject(floatFeature("EDG", 1.0f));
  CMetaVec good;
  map.WriteToMetaVec(good);
  const std::string stream(reinterpret_cast<const char*>(good.frameAt(0).data.data()),
                           good.frameAt(0).dataLength);
  // No frame; the head cut in the name and in the type word.
  const std::pair<std::string, const char*> cases[] = {
      {"", "feature map is empty"},
      {stream.substr(0, 6), "format error in input stream"},
      {stream.substr(0, 11), "format error in input stream"}};
  for (const auto& [bytes, expected] : cases) {
    CMetaVec frames;
    frames.addNewFrame(4, "Cuid", 0);
    const auto size = static_cast<unsigned>(bytes.size());
    if (size) std::copy(bytes.begin(), bytes.end(), frames.addNewFrame(7, "FeatObj", size));
    CFeatObjMap read;
    EXPECT_EQ(thrownText([&] { read.ReadFromMetaVec(frames, nullptr); }),
              std::string("CFeatureObject: ") + expected);
  }
}

}  // namespace
