#include "feature/CFeatObjMap.h"

#include <memory>

#include "feature/ByteReader.h"
#include "feature/CFeatureObject.h"
#include "feature/FeatureObjException.h"

namespace {

// The head of a feature object stream: version (2), feature id (2), name length and name, type
// word length and type word.
struct StreamHead {
  uint16_t featureId;
  std::string name;
  std::string typeWord;
};

// Reads the head of a stream of size bytes; a head that does not fit is a format error.
StreamHead readHead(const unsigned char* data, uint32_t size) {
  ByteReader in(data, size);
  StreamHead head;
  in.Skip(2);  // the stream version, which the object's own reader checks
  head.featureId = in.U16();
  const uint8_t nameLength = in.U8();
  head.name.assign(reinterpret_cast<const char*>(in.Take(nameLength)), nameLength);
  const uint8_t typeLength = in.U8();
  head.typeWord.assign(reinterpret_cast<const char*>(in.Take(typeLength)), typeLength);
  return head;
}

std::string notFound(const char* name, const char* where) {
  return std::string("feature ") + name + " not found in " + where;
}

}  // namespace

CFeatObjMap::CFeatObjMap(const CFeatObjMap& other, uint32_t skipMs, uint32_t durationMs,
                         const char* filter) {
  ExcerptFrom(other, skipMs, durationMs, filter);
}

CFeatObjMap::~CFeatObjMap() { Clear(); }

CFeatureObjectBase* CFeatObjMap::createFeature(uint16_t, const std::string& typeWord) {
  if (typeWord == "flt") return new CFeatureObject<float>();
  if (typeWord == "uchr") return new CFeatureObject<unsigned char>();
  if (typeWord == "uint") return new CFeatureObject<unsigned int>();
  throw FeatureObjException(kUnsupportedFeatureType);
}

int CFeatObjMap::AddFeatureObject(CFeatureObjectBase* object) {
  if (!object) throw FeatureObjException(kInvalidFeatureObject);
  CFeatureObjectBase*& entry = (*this)[object->GetName()];
  if (entry != object) {
    delete entry;
    entry = object;
  }
  return 0;
}

CFeatureObjectBase* CFeatObjMap::GetFeatureObject(const char* name) const {
  if (!name) return nullptr;
  const auto it = find(name);
  return it == end() ? nullptr : it->second;
}

void CFeatObjMap::Clear() {
  for (auto& entry : *this) delete entry.second;
  clear();
}

// A second object of a name replaces the first, which is deleted: the map stays the only owner
// even when a stream repeats a name.
void CFeatObjMap::ExcerptFrom(const CFeatObjMap& other, uint32_t skipMs, uint32_t durationMs,
                              const char* filter) {
  for (const auto& entry : other) {
    if (filter && entry.first != filter) continue;
    AddFeatureObject(entry.second->CreateExcerpt(skipMs, durationMs));
  }
  if (empty()) throw FeatureObjException(filter ? notFound(filter, "map") : kFeatureMapEmpty);
}

void CFeatObjMap::ReadFromMetaVec(const CMetaVec& metaVec, const char* filter) {
  for (int index = metaVec.findTaggedFrame(kTagFeatObj); index >= 0;
       index = metaVec.findTaggedFrame(kTagFeatObj, index + 1)) {
    const unsigned char* data = metaVec.frameAt(index).data.data();
    const uint32_t size = metaVec.frameAt(index).dataLength;
    const StreamHead head = readHead(data, size);
    if (filter && head.name != filter) continue;
    std::unique_ptr<CFeatureObjectBase> object(createFeature(head.featureId, head.typeWord));
    object->ReadFromStream(data, size);
    AddFeatureObject(object.release());
  }
  if (empty()) throw FeatureObjException(filter ? notFound(filter, "stream") : kFeatureMapEmpty);
}

int CFeatObjMap::WriteToMetaVec(CMetaVec& metaVec) {
  for (auto& entry : *this) {
    CFeatureObjectBase* object = entry.second;
    object->EncodeParameters();
    const uint32_t size = object->GetStreamSize();
    object->WriteToStream(metaVec.addTaggedFrame(kTagFeatObj, size), size);
  }
  return static_cast<int>(size());
}
