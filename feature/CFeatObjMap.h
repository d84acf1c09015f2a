// CFeatObjMap: the feature objects of one signature, keyed by feature name and walked in name
// order (standard string comparison). The map owns every object in it. It rebuilds itself from
// the "FeatObj" frames of a CMetaVec (one feature object stream per frame), stores itself into
// such frames, and builds excerpts of a whole signature.
//
// Failures are FeatureObjException. A failure while reading leaves the objects read so far in
// the map; the object under construction is freed. Streams are outside bytes: a frame's stream
// header is checked against the frame's size before it is used.
#ifndef ORVANE_FEATURE_CFEATOBJMAP_H_
#define ORVANE_FEATURE_CFEATOBJMAP_H_

#include <cstdint>
#include <map>
#include <string>

#include "feature/CFeatureObjectBase.h"
#include "signature/CMetaVec.h"

class CFeatObjMap : public std::map<std::string, CFeatureObjectBase*> {
 public:
  CFeatObjMap() = default;
  // An excerpt of other: see ExcerptFrom.
  CFeatObjMap(const CFeatObjMap& other, uint32_t skipMs, uint32_t durationMs, const char* filter);
  CFeatObjMap(const CFeatObjMap&) = delete;
  CFeatObjMap& operator=(const CFeatObjMap&) = delete;
  virtual ~CFeatObjMap();

  // A new default object for a stream whose header names typeId and typeWord; owned by the
  // caller. This map goes by the type word: "flt", "uchr", "uint".
  virtual CFeatureObjectBase* createFeature(uint16_t typeId, const std::string& typeWord);

  // Adds CreateExcerpt(skipMs, durationMs) of each of other's objects (only the one named filter
  // when filter is not null). Fails when this map is still empty afterwards.
  void ExcerptFrom(const CFeatObjMap& other, uint32_t skipMs, uint32_t durationMs,
                   const char* filter);
  // Builds an object from each "FeatObj" frame (only those named filter when filter is not
  // null), replacing objects of the same name. Fails when this map is empty afterwards.
  void ReadFromMetaVec(const CMetaVec& metaVec, const char* filter);
  // Appends one "FeatObj" frame per object, in name order; returns the number appended.
  int WriteToMetaVec(CMetaVec& metaVec);
  // Takes ownership; replaces (and deletes) an object of the same name. Returns 0.
  int AddFeatureObject(CFeatureObjectBase* object);
  // The object named name, still owned by the map; null for a null or unknown name.
  CFeatureObjectBase* GetFeatureObject(const char* name) const;
  // Deletes every object and empties the map.
  void Clear();
};

#endif  // ORVANE_FEATURE_CFEATOBJMAP_H_
