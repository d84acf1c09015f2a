// orvane: photo identification library, public interface.
//
// USAGE
//   Build and link: the library installs liborvane.so, this header, a CMake package and
//   orvane.pc.
//     find_package(orvane CONFIG REQUIRED)
//     target_link_libraries(app PRIVATE orvane::orvane)
//   or: c++ app.cpp $(pkg-config --cflags --libs orvane)
//
//   The host's road:
//     CFIDExtractor extractor(1);                    // database type 1 is the only one
//     CFIDDatabase database(1, 0);                   // 0: reserve no room in advance
//     const CFIDContainer& sig =
//         extractor.extract(bgr, width, height, lineStep, 0, 0);
//     database.addSignature(sig, 42, 0);             // store under the host's id 42
//     const std::vector<CFIDMatch>& same = database.classify(sig, 0, 0);   // same photo
//     const std::vector<CFIDMatch>& near = database.classify(sig, 10, 1);  // 10 nearest
//     database.save(out);  database.load(in);
//     sig.write(out);      CFIDContainer copy;  copy.read(in);
//
//   Pixels are 8-bit blue, green, red triples, line after line, lineStep bytes apart.
//   `extract` returns a reference to the extractor's own container, which the next
//   `extract` overwrites: copy the container to keep a signature.
//
//   Scores are distances: 0 is identical, lower is closer. Mode 0 answers the stored
//   photos that count as the same photo (score at most 0.07); mode 1 the nearest ones.
//
//   WEIGHTS AFTER LOAD: `load` resets both group weights to 0.5. A host that uses other
//   weights must call `setWeight` again after every `load`; with the weights left at 0.5
//   the scores of a loaded database differ from those before the save.
//
//   Every failure reaches the host as an FID_Exception with a fixed text.
//
// DETERMINISM
//   Signatures and scores are the same bit for bit on every build: the library is compiled
//   without fused multiply-add and without fast-math, and it starts no threads.
//
// THREADS
//   One extractor and one database serve one thread at a time. Several extractors may run
//   in parallel once the first one has been constructed.
//
// The numbers beside the operations are the ordinals under which the original export
// table lists them; they stand as documentation.
#ifndef ORVANE_API_ORVANE_H_
#define ORVANE_API_ORVANE_H_

#include <exception>
#include <iosfwd>
#include <string>
#include <vector>

#define ORVANE_API __attribute__((visibility("default")))

class CAudioSignMulti;
class CExtractorEngine;
class CSignatureDatabase;

// The only exception type a host sees.
class ORVANE_API FID_Exception : public std::exception {
 public:
  FID_Exception() = default;
  explicit FID_Exception(const std::string& message);
  ~FID_Exception() override;
  // The message text; empty when none was set.
  const char* what() const noexcept override;

 private:
  std::string message_;
};

// The signature of one photo.
class ORVANE_API CFIDContainer {
 public:
  CFIDContainer();                                   // 2: holds no signature yet
  CFIDContainer(const CFIDContainer& other);         // 1: deep copy
  CFIDContainer& operator=(const CFIDContainer& other);  // 10: deep copy
  ~CFIDContainer();                                  // 7

  // 26: writes the signature stream. Returns 0.
  int write(std::ostream& out) const;
  // 23: drops the signature held, then reads one signature stream.
  std::istream& read(std::istream& in);
  // 20: the feature version of the signature ("V6").
  const std::string& getFeatureVersion();
  // 19: "Orvane.dll 0.2 000".
  static const std::string& getLibraryVersion();

 private:
  friend class CFIDExtractor;
  friend class CFIDDatabase;
  std::string versionText;
  CAudioSignMulti* sign;
};

class ORVANE_API CFIDExtractor {
 public:
  explicit CFIDExtractor(int databaseType);          // 6: only type 1 is supported
  // 5, 12: an extractor cannot be copied; these leave the object as it is.
  CFIDExtractor(const CFIDExtractor& other);
  CFIDExtractor& operator=(const CFIDExtractor& other);
  ~CFIDExtractor();                                  // 9

  // 16: computes the signature of a BGR photo. The two trailing words are ignored.
  // REQUIRES: pixels stays valid for the duration of the call.
  const CFIDContainer& extract(const unsigned char* pixels, int width, int height,
                               int lineStep, int reserved1, int reserved2);
  // 15: the same, for a host holding a non-const pixel pointer; the pixels are not changed.
  const CFIDContainer& extract(unsigned char* pixels, int width, int height, int lineStep,
                               int reserved1, int reserved2);
  // 17: extraction from an encoded photo stream; always throws "Not yet implemented".
  const CFIDContainer& extract(std::istream& encodedPhoto);

 private:
  int type;
  CFIDContainer* container;
  [[maybe_unused]] int unused;  // reserved word, never read
  CExtractorEngine* engine;
};

// One answer of CFIDDatabase::classify.
struct CFIDMatch {
  int id;             // the id given to addSignature
  unsigned reserved;  // not written by classify: never read it
  float score;        // lower is closer, 0 is identical
};

class ORVANE_API CFIDDatabase {
 public:
  // 4: only type 1 is supported; reserveCount signatures get room in advance.
  CFIDDatabase(int databaseType, unsigned reserveCount);
  // 3, 11: a database cannot be copied; the copy holds nothing usable.
  CFIDDatabase(const CFIDDatabase& other);
  CFIDDatabase& operator=(const CFIDDatabase& other);
  ~CFIDDatabase();                                   // 8

  const std::vector<std::string>& getVersions();     // 22: {"V6"}
  void clear();                                      // 14
  unsigned size();                                   // 18
  // 13: stores the signature under id (not 0). Ids are not checked for uniqueness.
  void addSignature(const CFIDContainer& signature, int id, unsigned tag);
  // 25: removes the signature stored under id.
  void removeSignature(int id);
  // 28: ranks the stored photos against the signature, closest first. Mode 0: those that
  // count as the same photo (maxResults ignored); mode 1 (or above): the maxResults nearest,
  // all of them when maxResults is 0. The result is overwritten by the next classify.
  const std::vector<CFIDMatch>& classify(const CFIDContainer& signature, unsigned maxResults,
                                         int mode);
  // 29: sets the weight of key 0 or 1; load resets both to 0.5.
  void setWeight(int key, float percent);
  // 21: true and *percent set when key has a weight.
  bool getWeight(int key, float* percent);
  // 27: writes the database stream.
  void save(std::ostream& out);
  // 24: replaces the stored signatures by those of a database stream; resets the weights.
  void load(std::istream& in);

 private:
  std::vector<std::string> versions;
  int type;
  std::vector<CFIDMatch>* results;
  CSignatureDatabase* store;
};

#endif  // ORVANE_API_ORVANE_H_
