#include "signature/CSignDataMulti.h"

#include <algorithm>
#include <cstring>

#include "feature/CSignDataASE.h"
#include "feature/CSignDataSFM.h"
#include "feature/FeatureObjException.h"
#include "vexl/ByteOrder.h"

namespace {

// Removes the first frame with the tag's id, if any, and appends one holding value as a u32.
void replaceWordFrame(CMetaVec& frames, MetaTag index, uint32_t value) {
  const int at = frames.findTaggedFrame(index);
  if (at >= 0) frames.removeFrame(at);
  storeBigEndian32(frames.addTaggedFrame(index, 4), value);
}

}  // namespace

CSignDataMulti::CSignDataMulti(const CSignDataMulti& other, uint32_t skipMs, uint32_t durationMs,
                               const char* filter)
    : CFeatObjMap(other, skipMs, durationMs, filter), meta(other.meta, kTagFeatObj) {
  // The skip brought to the nearest second, in integer arithmetic.
  if (other.timeOrigin) timeOrigin = other.timeOrigin + (skipMs + 500) / 1000;
  takeActiveFeature(filter);
}

CSignDataMulti::CSignDataMulti(const CWholeStream& stream, const char* filter)
    : meta(stream, kTagFeatObj) {
  ReadFromMetaVec(stream, filter);
  takeTimeFrame();
  takeActiveFeature(filter);
}

CSignDataMulti::~CSignDataMulti() { clearAll(); }

void CSignDataMulti::takeActiveFeature(const char* filter) {
  if (filter && !empty()) activeFeature = dynamic_cast<CFeatureObject<float>*>(begin()->second);
}

CFeatureObjectBase* CSignDataMulti::createFeature(uint16_t typeId, const std::string&) {
  return CreateFeatureObject(typeId);
}

CFeatureObjectBase* CSignDataMulti::CreateFeatureObject(uint16_t featureId) {
  switch (featureId) {
    case 1:
    case 2:
      return new CSignDataSFM();
    case 3:
      return new CSignDataASE();
    default:
      return new CFeatureObject<float>();
  }
}

void CSignDataMulti::toWholeStream(CWholeStream& stream, CSignatureHook* hook) {
  stream.clearFrames();
  stream.reserveFrames(size() + meta.frameCount() + 1);
  stream.assignExcept(meta, kTagFeatObj);
  putTimeFrame(stream);
  if (WriteToMetaVec(stream) == 0) throw FeatureObjException(kNoFeatureToStream);
  if (hook) stream.setHook(hook);
}

void CSignDataMulti::setCuid(unsigned value) { replaceWordFrame(meta, kTagCuid, value); }

unsigned CSignDataMulti::addFrame(const SMetaFrame& frame) {
  meta.appendFrame(frame);
  return meta.frameCount();
}

void CSignDataMulti::takeTimeFrame() {
  if (timeOrigin) return;
  const int at = meta.findTaggedFrame(kTagTime);
  if (at < 0) return;
  // A value shorter than 4 bytes counts its missing low bytes as 0.
  const SMetaFrame& frame = meta.frameAt(at);
  unsigned char word[4] = {};
  if (frame.dataLength) std::memcpy(word, frame.data.data(), std::min<uint32_t>(frame.dataLength, 4));
  timeOrigin = loadBigEndian32(word);
  meta.removeFrame(at);
  reservedWord = 0;
}

void CSignDataMulti::putTimeFrame(CMetaVec& frames) const {
  if (timeOrigin) replaceWordFrame(frames, kTagTime, timeOrigin);
}

CFeatureObject<float>* CSignDataMulti::getFeature(const char* name) const {
  if (activeFeature && (!name || activeFeature->GetName() == name)) return activeFeature;
  return dynamic_cast<CFeatureObject<float>*>(GetFeatureObject(name));
}

int CSignDataMulti::getMeta(const char* id, char* out, int outSize) const {
  out[0] = '\0';
  const int at = meta.findFrame(id, static_cast<unsigned>(std::strlen(id)));
  if (at < 0) return 1;
  const SMetaFrame& frame = meta.frameAt(at);
  // The value is terminated in memory, so strnlen stops inside it.
  const size_t length = frame.dataLength ? strnlen(reinterpret_cast<const char*>(frame.data.data()),
                                                   static_cast<size_t>(outSize - 1))
                                         : 0;
  if (length) std::memcpy(out, frame.data.data(), length);
  out[length] = '\0';
  return 0;
}

void CSignDataMulti::clearAll() {
  Clear();
  meta.clearFrames();
  timeOrigin = 0;
  reservedWord = 0;
  activeFeature = nullptr;
}
