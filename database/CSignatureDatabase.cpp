#include "database/CSignatureDatabase.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <istream>
#include <ostream>

#include "database/CGroupScan.h"
#include "database/DatabaseErrors.h"
#include "message/CSendMsg.h"
#include "message/MessageErrors.h"
#include "vexl/ByteOrder.h"

namespace {

// The one feature version that signatures of this library carry.
constexpr char kFeatureVersion[] = "V6";

// Scores at or below this count as the same photo.
constexpr double kSamePhotoThreshold = 0.07;

// The "VER" text of a signature; empty when there is no signature or no such frame.
std::string versionOf(const CAudioSignMulti& signature) {
  const CSignDataMulti* data = signature.getData();
  if (data == nullptr) return std::string();
  char text[256];
  data->getMeta("VER", text, sizeof text);
  return text;
}

// The float features of a signature, each refused when it holds fewer values than asked.
CSignatureDatabase::FeatureTiles featuresOf(const CAudioSignMulti& signature) {
  return [data = signature.getData()](const std::string& name, uint32_t count) -> const float* {
    if (data == nullptr) return nullptr;
    const CFeatureObject<float>* feature = data->getFeature(name.c_str());
    if (feature == nullptr) return nullptr;
    const HeapMatrix<float>& values = feature->m_matrix;
    return uint64_t{values.m_rows} * values.m_cols < count ? nullptr : values.m_data;
  };
}

// Starts reading `count` floats into the cache, a line at a time; nothing for null.
void prefetchFloats(const float* values, uint32_t count) {
  if (values == nullptr) return;
  constexpr uint32_t kLineFloats = 16;
  for (uint32_t i = 0; i < count; i += kLineFloats) __builtin_prefetch(values + i);
}

// Unsigned keys that order like the float scores under `<`: negative scores below positive
// ones, -0 with +0, and NaN (only a NaN weight or a damaged stream makes one) after all.
uint32_t orderKey(float score) {
  if (score != score) return UINT32_MAX;
  const uint32_t bits = score == 0.0f ? 0u : floatBits(score);
  return (bits & 0x80000000u) != 0 ? ~bits : bits | 0x80000000u;
}

float scoreOfKey(uint32_t key) {
  return floatFromBits((key & 0x80000000u) != 0 ? key & 0x7fffffffu : ~key);
}

// Ranked entries whose items are asked for ahead of the one being copied out: their
// positions are scattered, so each item is a miss of its own.
constexpr size_t kRankAhead = 16;

// Below count / kFewDivisor wanted results, a heap beats a partition of all entries.
constexpr size_t kFewDivisor = 64;

// Sorts entries (key << 32 | position) by key, stably: a least-significant-digit radix
// sort over the key's four bytes, skipping a byte that all keys share. Entries that come in
// position order leave with equal keys in position order. `spare` is room to sort through.
void sortByKeyStably(std::vector<uint64_t>& entries, std::vector<uint64_t>& spare) {
  spare.resize(entries.size());
  for (int shift = 32; shift < 64; shift += 8) {
    size_t start[257] = {};
    for (uint64_t e : entries) ++start[((e >> shift) & 0xff) + 1];
    if (std::find(start + 1, start + 257, entries.size()) != start + 257) continue;
    for (size_t b = 1; b < 257; ++b) start[b] += start[b - 1];
    for (uint64_t e : entries) spare[start[(e >> shift) & 0xff]++] = e;
    entries.swap(spare);
  }
}

// The message header of a saved store, unless another is given.
constexpr char kMessageTag[] = "ORV1";

// Bytes of a stream read at once: a stream's announced size is not trusted, so the buffer
// grows only with bytes that are really there.
constexpr size_t kReadChunk = size_t{1} << 20;

// The smallest message bytes that one entry of each list takes: a version (an empty text),
// a weight (key, percent, weight), a group (scale, reserved, count) and an item head
// (index, id, tag, columns, rows).
constexpr uint64_t kCountBytes = 9;
constexpr uint64_t kVersionBytes = 5;
constexpr uint64_t kWeightBytes = 3 * 9;
constexpr uint64_t kGroupBytes = 3 * 9;
constexpr uint64_t kItemHeadBytes = 4 * 9 + 13;
constexpr uint64_t kEntryBytes = 9;

// The bytes left in a stream that can tell, or -1.
std::streamoff bytesLeft(std::istream& in) {
  const std::istream::pos_type here = in.tellg();
  if (here == std::istream::pos_type(-1)) return -1;
  in.seekg(0, std::ios::end);
  const std::istream::pos_type end = in.tellg();
  in.seekg(here);
  return end == std::istream::pos_type(-1) ? -1 : end - here;
}

// Up to `length` bytes of a stream that cannot tell its size, fewer if it ends before: read
// in bounded chunks, so that a false length never allocates more than is really there.
MsgBytes readUpTo(std::istream& in, uint32_t length) {
  std::vector<MsgBytes> chunks;
  size_t total = 0;
  while (total < length) {
    const size_t wanted = std::min<size_t>(kReadChunk, length - total);
    MsgBytes chunk(wanted);
    in.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(wanted));
    const auto got = static_cast<size_t>(in.gcount());
    chunk.resize(got);
    total += got;
    chunks.push_back(std::move(chunk));
    if (got < wanted) break;
  }
  MsgBytes bytes;
  bytes.reserve(total);
  for (MsgBytes& chunk : chunks) {
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    MsgBytes().swap(chunk);
  }
  return bytes;
}

// Refuses a count whose entries could not all be in the message.
uint32_t boundedCount(uint32_t count, uint64_t entryBytes, uint64_t messageBytes) {
  if (count * entryBytes > messageBytes) throw std::string(kErrorInProtocol);
  return count;
}

}  // namespace

CSignatureDatabase::CSignatureDatabase() : CSignatureDatabase(kMessageTag) {}

CSignatureDatabase::CSignatureDatabase(const char* messageTag)
    : CMessageObject(messageTag), versions{kFeatureVersion} {
  setWeight(0, 0.5f);
  setWeight(1, 0.5f);
}

CSignatureDatabase::~CSignatureDatabase() = default;

void CSignatureDatabase::init(const std::vector<SFeatureGroupDef>& defs, uint32_t reserveCount) {
  clearAll();
  groups.resize(defs.size());
  for (size_t g = 0; g < defs.size(); ++g) groups[g].init(defs[g], reserveCount);
  setWeight(0, 50.0f);
  setWeight(1, 50.0f);
}

void CSignatureDatabase::requireKnownVersion(const std::string& version) const {
  if (std::find(versions.begin(), versions.end(), version) == versions.end()) {
    throw std::string(kWrongFeatureVersion);
  }
}

void CSignatureDatabase::addSignature(const CAudioSignMulti& signature, uint32_t idLow,
                                      uint32_t idHigh, uint32_t tag) {
  addFeatures(versionOf(signature), featuresOf(signature), idLow, idHigh, tag);
}

// The item goes into every group or into none: a failing group's add leaves its own list as
// it was, and the groups before it drop the item they took, so the lists stay in step.
void CSignatureDatabase::addFeatures(const std::string& version, const FeatureTiles& tiles,
                                     uint32_t idLow, uint32_t idHigh, uint32_t tag) {
  try {
    requireKnownVersion(version);
    if (groups.empty()) throw std::string(kAddWithoutInit);
    size_t added = 0;
    try {
      // Every group's tiles are found and asked for before the first vector is built: the
      // reads of a signature that is out of the cache then overlap instead of queueing.
      addedTiles.resize(groups.size());
      for (size_t g = 0; g < groups.size(); ++g) {
        addedTiles[g] = tiles(groups[g].featureName, groups[g].tileValues());
        prefetchFloats(addedTiles[g], groups[g].tileValues());
      }
      for (; added < groups.size(); ++added) {
        groups[added].add(addedTiles[added], idLow, idHigh, tag);
      }
    } catch (...) {
      // Even the group's own id check ends here: a caller sees only this text.
      for (size_t g = 0; g < added; ++g) groups[g].dropLast();
      throw std::string(kAddUnknownError);
    }
  } catch (const std::exception& e) {
    throw std::string(e.what());
  }
}

void CSignatureDatabase::removeSignature(uint32_t idLow, uint32_t idHigh) {
  bool found = false;
  uint32_t position = 0;
  for (CFeatureGroup& group : groups) group.remove(idLow, idHigh, found, position);
}

void CSignatureDatabase::clearAll() {
  for (CFeatureGroup& group : groups) {
    group.items.clear();
    group.vectors.clear();
    group.results.clear();
  }
  finalResults.clear();
  std::vector<float>().swap(scores);
  std::vector<uint64_t>().swap(rankEntries);
  std::vector<uint64_t>().swap(rankSpare);
}

uint32_t CSignatureDatabase::itemCount() const {
  if (groups.empty()) throw std::string(kNoDatabase);
  return static_cast<uint32_t>(groups[0].items.size());
}

const std::vector<SClassifyResult>& CSignatureDatabase::classifyFloat(
    const CAudioSignMulti& signature, int mode, DistanceFunction chosen, const SRankCut& cut) {
  return classifyFeatures(versionOf(signature), featuresOf(signature), mode, chosen, cut);
}

const std::vector<SClassifyResult>& CSignatureDatabase::classifyFeatures(
    const std::string& version, const FeatureTiles& tiles, int mode,
    DistanceFunction /*chosen*/, const SRankCut& cut) {
  try {
    requireKnownVersion(version);
    if (groups.empty()) throw std::string(kClassifyWithoutInit);
    if (groups[0].items.empty()) throw std::string(kClassifyNoItems);
    scoreAll(tiles, mode);
    rank(cut);
    return finalResults;
  } catch (const std::string&) {
    throw;
  } catch (...) {
    throw std::string(kClassifyUnknownError);
  }
}

// score_i = (((0 + s_0i) + s_1i) + s_2i) + s_3i, each addition rounded to float, groups in
// order, s_gi the share of group g. One pass over the stored vectors: every block is scored
// by all groups before the next is read.
void CSignatureDatabase::scoreAll(const FeatureTiles& tiles, int mode) {
  const size_t count = groups[0].items.size();
  std::vector<CGroupScan> scans;
  scans.reserve(groups.size());
  for (CFeatureGroup& group : groups) {
    if (group.items.empty()) throw std::string(kClassifyEmptyGroup);
    const float* query = tiles(group.featureName, group.tileValues());
    if (query == nullptr) throw std::string(kClassifyUnknownError);
    scans.emplace_back(group, query, mode, scanForm);
    // Groups out of step (only a damaged stream leaves them so) cannot be summed.
    if (group.items.size() != count) throw std::string(kClassifyUnknownError);
  }
  scores.resize(count);
  float shares[kBlockLanes];
  for (size_t start = 0; start < count; start += kBlockLanes) {
    const size_t lanes = std::min<size_t>(kBlockLanes, count - start);
    float* score = scores.data() + start;
    std::fill_n(score, lanes, 0.0f);
    for (CGroupScan& scan : scans) {
      scan.scoreBlock(start / kBlockLanes, lanes, shares);
      for (size_t j = 0; j < lanes; ++j) score[j] += shares[j];
    }
  }
}

// Entries (key << 32 | position) order like the full stable ranking, and are all distinct:
// the n smallest of them are the first n of that ranking.
void CSignatureDatabase::rank(const SRankCut& cut) {
  const size_t count = scores.size();
  const auto entryOf = [this](size_t i) { return uint64_t{orderKey(scores[i])} << 32 | i; };
  std::vector<uint64_t>& entries = rankEntries;
  entries.clear();
  if (cut.samePhotoOnly) {
    for (size_t i = 0; i < count; ++i) {
      if (static_cast<double>(scores[i]) <= kSamePhotoThreshold) entries.push_back(entryOf(i));
    }
    sortByKeyStably(entries, rankSpare);
  } else if (cut.maxResults != 0 && cut.maxResults < count) {
    const size_t wanted = cut.maxResults;
    if (wanted <= count / kFewDivisor) {
      // A few: the best so far in a heap whose top is the worst of them.
      entries.reserve(wanted);
      for (size_t i = 0; i < count; ++i) {
        const uint64_t entry = entryOf(i);
        if (entries.size() < wanted) {
          entries.push_back(entry);
          std::push_heap(entries.begin(), entries.end());
        } else if (entry < entries.front()) {
          std::pop_heap(entries.begin(), entries.end());
          entries.back() = entry;
          std::push_heap(entries.begin(), entries.end());
        }
      }
    } else {
      entries.resize(count);
      for (size_t i = 0; i < count; ++i) entries[i] = entryOf(i);
      std::nth_element(entries.begin(), entries.begin() + wanted, entries.end());
      entries.resize(wanted);
    }
    std::sort(entries.begin(), entries.end());
  } else {
    entries.resize(count);
    for (size_t i = 0; i < count; ++i) entries[i] = entryOf(i);
    sortByKeyStably(entries, rankSpare);
  }
  const CGroupItems& ids = groups[0].items;
  finalResults.resize(entries.size());
  for (size_t j = 0; j < entries.size(); ++j) {
    if (j + kRankAhead < entries.size()) {
      __builtin_prefetch(&ids[static_cast<uint32_t>(entries[j + kRankAhead])]);
    }
    const SGroupItem& item = ids[static_cast<uint32_t>(entries[j])];
    SClassifyResult& result = finalResults[j];
    result = SClassifyResult();
    result.idLow = item.idLow;
    result.idHigh = item.idHigh;
    result.score = scoreOfKey(static_cast<uint32_t>(entries[j] >> 32));
  }
}

// c = percent clamped to [0, 100]; s = (float)(c * 0.01); weight = s, or (float)(s * 0.2)
// for key 1 (the edge group enters at a fifth); scale = weightValue * groupWeight in float.
void CSignatureDatabase::setWeight(int32_t key, float percent) {
  float clamped = percent;
  if (clamped > 100.0f) clamped = 100.0f;
  if (clamped < 0.0f) clamped = 0.0f;
  const float s = static_cast<float>(static_cast<double>(clamped) * 0.01);
  SGroupWeight& entry = weights[key];
  entry.percent = percent;
  entry.weight = key == 1 ? static_cast<float>(static_cast<double>(s) * 0.2) : s;
  for (CFeatureGroup& group : groups) {
    const auto it = weights.find(group.weightKey);
    if (it == weights.end()) {
      std::cerr << kGroupNotExist << '\n';
      continue;
    }
    group.weightValue = it->second.weight;
    group.scale = group.weightValue * group.groupWeight;
  }
}

bool CSignatureDatabase::getWeight(int32_t key, float* percent) const {
  const auto it = weights.find(key);
  if (it == weights.end()) return false;
  *percent = it->second.percent;
  return true;
}

uint32_t CSignatureDatabase::countBelowThreshold(const std::vector<SClassifyResult>& ranked) {
  uint32_t count = 0;
  while (count < ranked.size() &&
         static_cast<double>(ranked[count].score) <= kSamePhotoThreshold) {
    ++count;
  }
  return count;
}

void CSignatureDatabase::prepare() {}

// Counts go through the unsigned slot, keys, item counts and tags through the signed one,
// indexes through the second unsigned one: on the wire all four 32-bit slots are alike.
void CSignatureDatabase::pack() {
  CMsgBase& out = *message;
  // The size is known: a buffer grown item by item would be copied again and again.
  if (auto* sending = dynamic_cast<CSendMsg*>(message.get())) sending->reserve(packedSize());
  out.put(static_cast<unsigned>(versions.size()));
  for (std::string& version : versions) out.putString(version);
  out.put(static_cast<unsigned>(weights.size()));
  for (auto& [key, weight] : weights) {
    out.put(int{key});
    out.put(weight.percent);
    out.put(weight.weight);
  }
  out.put(static_cast<unsigned>(groups.size()));
  for (CFeatureGroup& group : groups) {
    out.put(group.scale);
    out.put(unsigned{group.reserved});
    out.put(static_cast<int>(group.items.size()));
    const uint32_t columns = group.vectors.length();
    std::vector<float> vector(columns);
    for (size_t position = 0; position < group.items.size(); ++position) {
      const SGroupItem& item = group.items[position];
      out.put(MsgUInt32(item.index));
      out.put(static_cast<int64_t>(uint64_t{item.idHigh} << 32 | item.idLow));
      out.put(static_cast<int>(item.tag));
      out.put(unsigned{columns});
      out.put(1u);
      group.vectors.read(position, vector.data());
      out.putFloats(vector.data(), vector.size());
    }
  }
}

// Bytes of the message pack() writes: header and body length, the values, the end mark.
size_t CSignatureDatabase::packedSize() const {
  size_t bytes = 9 + kCountBytes;
  for (const std::string& version : versions) bytes += kVersionBytes + version.size();
  bytes += kCountBytes + weights.size() * kWeightBytes + kCountBytes;
  for (const CFeatureGroup& group : groups) {
    bytes += kGroupBytes;
    bytes += group.items.size() * (kItemHeadBytes + size_t{group.vectors.length()} * kEntryBytes);
  }
  return bytes + 1;
}

void CSignatureDatabase::unpack() {
  CMsgBase& in = *message;
  const uint64_t messageBytes = in.size();
  clearAll();

  versions.clear();
  const uint32_t versionCount = boundedCount(in.get(MsgUInt32{}), kVersionBytes, messageBytes);
  for (uint32_t v = 0; v < versionCount; ++v) {
    std::string version;
    versions.push_back(std::move(in.getString(version)));
  }

  const uint32_t weightCount = boundedCount(in.get(MsgUInt32{}), kWeightBytes, messageBytes);
  for (uint32_t w = 0; w < weightCount; ++w) {
    const int32_t key = in.get(int{});
    SGroupWeight& weight = weights[key];
    weight.percent = in.get(float{});
    weight.weight = in.get(float{});
  }

  // Only the groups this store was built with can take the vectors: a default group would
  // have no means writer and no distances to classify with.
  if (boundedCount(in.get(MsgUInt32{}), kGroupBytes, messageBytes) != groups.size()) {
    throw std::string(kErrorInProtocol);
  }
  for (CFeatureGroup& group : groups) {
    group.scale = in.get(float{});
    in.get(unsigned{});  // the reserved word: its value means nothing
    // Every stored vector has the shape makeVector gives a query: one row of this length.
    std::vector<float> vector(group.vectors.length());
    const uint32_t itemCount =
        boundedCount(static_cast<uint32_t>(in.get(int{})),
                     kItemHeadBytes + vector.size() * kEntryBytes, messageBytes);
    for (uint32_t position = 0; position < itemCount; ++position) {
      SGroupItem item;
      item.index = in.get(MsgUInt32{});
      const auto id = static_cast<uint64_t>(in.get(int64_t{}));
      item.idLow = static_cast<uint32_t>(id);
      item.idHigh = static_cast<uint32_t>(id >> 32);
      item.tag = static_cast<uint32_t>(in.get(int{}));
      const uint32_t itemColumns = in.get(unsigned{});
      const uint32_t itemRows = in.get(unsigned{});
      if (item.index != position || itemRows != 1 || itemColumns != vector.size()) {
        throw std::string(kErrorInProtocol);
      }
      in.getFloats(vector.data(), vector.size());
      group.append(item, vector.data());
    }
  }
}

uint32_t CSignatureDatabase::saveToStream(std::ostream& out) {
  try {
    const unsigned char* bytes = sendToBuffer();
    const uint32_t length = messageSize();
    // The value returned, length + 4, must fit as well.
    if (length > UINT32_MAX - 4) throw std::string(kErrorOStreaming);
    unsigned char head[4];
    storeBigEndian32(head, length);
    out.write(reinterpret_cast<const char*>(head), sizeof head);
    out.write(reinterpret_cast<const char*>(bytes), length);
    return length + 4;
  } catch (...) {
    throw std::string(kErrorOStreaming);
  }
}

uint32_t CSignatureDatabase::loadFromStream(std::istream& in) {
  uint32_t length = 0;
  try {
    // A stream shorter than the head announces the bytes it has, zeros after them.
    unsigned char head[4] = {};
    in.read(reinterpret_cast<char*>(head), sizeof head);
    length = loadBigEndian32(head);
    // Kept: a message with another header or a damaged one is not reported.
    const std::streamoff left = bytesLeft(in);
    if (left < 0) {
      receiveFromBuffer(readUpTo(in, length));
    } else {
      // A stream that knows its size is decoded while it is read, a chunk at a time, and
      // left after the message as if it had been read whole.
      const std::istream::pos_type start = in.tellg();
      const auto total = static_cast<size_t>(std::min<uint64_t>(length, static_cast<uint64_t>(left)));
      receiveFromSource(
          total,
          [&in](unsigned char* into, size_t count) {
            in.read(reinterpret_cast<char*>(into), static_cast<std::streamsize>(count));
            return static_cast<size_t>(in.gcount());
          },
          kReadChunk);
      in.seekg(start + static_cast<std::streamoff>(total));
    }
  } catch (...) {
    throw std::string(kErrorIStreaming);
  }
  // Kept: every load leaves both weights at 0.5, not at what the stream or the host had.
  setWeight(0, 0.5f);
  setWeight(1, 0.5f);
  return length + 4;
}
