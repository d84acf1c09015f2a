// CSignDataMulti: one signature. Its feature objects (the map it derives from), its meta frames
// and a time of origin in seconds. The words speak of time because the format was made for
// signals in time; a photo signature has one row per feature and no time.
//
// meta never holds a "FeatObj" frame: features live in the map and become frames only on their
// way into a stream, behind the other frames and a "TIME" frame that stands for timeOrigin.
// Copies are deep (the excerpt constructor with 0, 0 and no filter).
#ifndef ORVANE_SIGNATURE_CSIGNDATAMULTI_H_
#define ORVANE_SIGNATURE_CSIGNDATAMULTI_H_

#include <cstdint>
#include <string>

#include "feature/CFeatObjMap.h"
#include "feature/CFeatureObject.h"
#include "signature/CMetaVec.h"
#include "signature/CSignatureHook.h"
#include "signature/CWholeStream.h"

class CSignDataMulti : public CFeatObjMap {
 public:
  CSignDataMulti() = default;
  // An excerpt of other's features (see CFeatObjMap::ExcerptFrom) with its frames; timeOrigin
  // moves on by the skip brought to the nearest second. A filter makes that feature the active
  // one.
  CSignDataMulti(const CSignDataMulti& other, uint32_t skipMs, uint32_t durationMs,
                 const char* filter);
  // Everything a stream object read: its frames but "FeatObj", its features, its "TIME" frame
  // taken into timeOrigin.
  CSignDataMulti(const CWholeStream& stream, const char* filter);
  ~CSignDataMulti() override;

  // The object for a feature stream, chosen by feature id alone; the type word is ignored.
  CFeatureObjectBase* createFeature(uint16_t typeId, const std::string& typeWord) override;
  // The factory by feature id; owned by the caller.
  static CFeatureObjectBase* CreateFeatureObject(uint16_t featureId);

  // Fills stream (frames it held are dropped) with the frames of meta, the "TIME" frame, then
  // one "FeatObj" frame per feature, and hands it hook when hook is not null. Fails when there
  // is no feature.
  void toWholeStream(CWholeStream& stream, CSignatureHook* hook);

  // Replaces the first "Cuid" frame by one at the end holding value as a u32.
  void setCuid(unsigned value);
  // Appends a copy of frame; returns the number of frames.
  unsigned addFrame(const SMetaFrame& frame);
  // When timeOrigin is 0: a "TIME" frame in meta becomes timeOrigin and leaves meta.
  void takeTimeFrame();
  // When timeOrigin is not 0: frames gets a "TIME" frame for it at the end (replacing its first
  // one). meta is not touched.
  void putTimeFrame(CMetaVec& frames) const;

  // The active feature when name is null or its name; otherwise the float feature of that
  // name. Null when there is none.
  CFeatureObject<float>* getFeature(const char* name) const;
  // Copies the value of the frame with exactly this id as text (up to its first zero byte, at
  // most outSize - 1 characters, always terminated) and answers 0; 1 with an empty out when
  // there is no such frame.
  // REQUIRES: outSize >= 1.
  int getMeta(const char* id, char* out, int outSize) const;

  // Drops features and frames and zeroes the three words.
  void clearAll();

  const CMetaVec& getMetaVec() const { return meta; }
  uint32_t getTimeOrigin() const { return timeOrigin; }

 private:
  // The first feature cast to float, when a filter left just that one.
  void takeActiveFeature(const char* filter);

  CMetaVec meta;
  uint32_t timeOrigin = 0;
  uint32_t reservedWord = 0;
  CFeatureObject<float>* activeFeature = nullptr;
};

#endif  // ORVANE_SIGNATURE_CSIGNDATAMULTI_H_
