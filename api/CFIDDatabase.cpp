// The exported database: the store of group vectors behind a type check, with every
// failure turned into an FID_Exception and the ranked list cut into CFIDMatch records.
#include "orvane.h"

#include <istream>
#include <ostream>

#include "api/ExportedFailures.h"
#include "database/CSignatureDatabase.h"
#include "database/DistanceFunctions.h"
#include "database/SFeatureGroupDef.h"
#include "signature/CAudioSignMulti.h"

namespace {
constexpr char kFeatureVersion[] = "V6";
constexpr char kMessageTag[] = "ORV1";
}  // namespace

CFIDDatabase::CFIDDatabase(int databaseType, unsigned reserveCount)
    : versions{kFeatureVersion}, type(0), results(nullptr), store(nullptr) {
  checkDatabaseType(databaseType);
  type = 1;
  results = new std::vector<CFIDMatch>();
  store = new CSignatureDatabase(kMessageTag);
  try {
    std::vector<SFeatureGroupDef> definitions;
    buildFeatureGroupDefs(definitions);
    store->init(definitions, reserveCount);
  } catch (...) {
    delete store;
    delete results;
    rethrowAsFIDException();
  }
}

// A database cannot be copied. The copy holds no store: its operations refuse or do
// nothing, and destroying it is harmless.
CFIDDatabase::CFIDDatabase(const CFIDDatabase&) : type(0), results(nullptr), store(nullptr) {}

CFIDDatabase& CFIDDatabase::operator=(const CFIDDatabase&) { return *this; }

CFIDDatabase::~CFIDDatabase() {
  delete results;
  delete store;
}

const std::vector<std::string>& CFIDDatabase::getVersions() { return versions; }

void CFIDDatabase::clear() {
  if (store == nullptr) throw FID_Exception("Error clearing database");
  try {
    store->clearAll();
  } catch (...) {
    throw FID_Exception("Error clearing database");
  }
}

unsigned CFIDDatabase::size() {
  if (store == nullptr) throw FID_Exception("No database initialized");
  try {
    return store->itemCount();
  } catch (...) {
    rethrowAsFIDException();
  }
}

void CFIDDatabase::addSignature(const CFIDContainer& signature, int id, unsigned tag) {
  if (type != 1) return;
  try {
    store->addSignature(*signature.sign, static_cast<unsigned>(id), 0, tag);
  } catch (...) {
    rethrowAsFIDException();
  }
}

void CFIDDatabase::removeSignature(int id) {
  if (type != 1) return;
  try {
    store->removeSignature(static_cast<unsigned>(id), 0);
  } catch (...) {
    rethrowAsFIDException();
  }
}

const std::vector<CFIDMatch>& CFIDDatabase::classify(const CFIDContainer& signature,
                                                      unsigned maxResults, int mode) {
  if (type != 1) throw FID_Exception(kNotYetImplemented);
  // The store ranks by each group's own distance table; the function chosen here is handed
  // down unused, as the store's interface carries it.
  int effectiveMode = mode;
  DistanceFunction distance = distanceFunctionOfKind(kWindowedCumulativeDifference);
  if (mode >= 1) {
    effectiveMode = 1;
    distance = distanceFunctionOfKind(kMeanAbsoluteDifference);
  } else if (mode == 0) {
    distance = distanceFunctionOfKind(kRootMeanSquareDifference);
  }
  try {
    // Only what the host reads is ranked: the leading maxResults, or in mode 0 the scores
    // up to the threshold.
    SRankCut cut;
    cut.maxResults = maxResults;
    cut.samePhotoOnly = effectiveMode == 0;
    const std::vector<SClassifyResult>& ranked =
        store->classifyFloat(*signature.sign, effectiveMode, distance, cut);
    size_t count = ranked.size();
    if (maxResults > 0 && maxResults < count) count = maxResults;
    // Mode 0 answers the same photo: the leading results up to the fixed threshold.
    if (effectiveMode == 0) count = CSignatureDatabase::countBelowThreshold(ranked);
    results->resize(count);
    for (size_t i = 0; i < count; ++i) {
      (*results)[i].id = static_cast<int>(ranked[i].idLow);
      (*results)[i].score = ranked[i].score;
    }
  } catch (...) {
    rethrowAsFIDException();
  }
  return *results;
}

void CFIDDatabase::setWeight(int key, float percent) {
  if (type != 1) return;
  store->setWeight(key, percent);
}

bool CFIDDatabase::getWeight(int key, float* percent) {
  if (store == nullptr) return false;
  return store->getWeight(key, percent);
}

void CFIDDatabase::save(std::ostream& out) {
  if (store == nullptr) throw FID_Exception("Cant Save Database");
  try {
    store->saveToStream(out);
  } catch (...) {
    throw FID_Exception("Cant Save Database");
  }
}

void CFIDDatabase::load(std::istream& in) {
  if (store == nullptr) throw FID_Exception("Cant Load Database");
  try {
    store->loadFromStream(in);
  } catch (...) {
    throw FID_Exception("Cant Load Database");
  }
}
