// ParameterMap<T>: the settings of a feature object, a map from text keys to text
// (T = std::string) or unsigned (T = unsigned int) values, ordered by unsigned byte comparison
// of the keys. It has a stream form in two versions, which differ only in how a value's
// length is given, and a printed form. Readers never look outside the bytes they are given.
#ifndef ORVANE_FEATURE_PARAMETERMAP_H_
#define ORVANE_FEATURE_PARAMETERMAP_H_

#include <cstdint>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <type_traits>

#include "feature/ByteReader.h"
#include "vexl/ByteOrder.h"

template <typename T>
class ParameterMap : public std::map<std::string, T> {
  static_assert(std::is_same_v<T, std::string> || std::is_same_v<T, unsigned int>,
                "parameter values are text or unsigned");
  static constexpr bool kText = std::is_same_v<T, std::string>;

 public:
  using Base = std::map<std::string, T>;

  // The process-wide word that names the map's value type in a stream: "string" or "int".
  static const std::string& TypeWord() {
    static const std::string word(kText ? "string" : "int");
    return word;
  }

  // Inserts or replaces: a later value wins.
  void Set(const std::string& key, const T& value) { (*this)[key] = value; }
  typename Base::iterator Find(const std::string& key) { return this->find(key); }
  typename Base::const_iterator Find(const std::string& key) const { return this->find(key); }
  void Erase(typename Base::iterator position) { this->erase(position); }

  // Bytes of the stream form; 0 for an empty map, which writes nothing.
  uint32_t GetStreamSize() const {
    if (this->empty()) return 0;
    uint32_t size = static_cast<uint32_t>(TypeWord().size()) + 2;
    for (const auto& [key, value] : *this) {
      size += static_cast<uint32_t>(key.size()) + 2 + ValueBytes(value);
    }
    return size;
  }

  // Replaces the map by the one at buffer and returns the bytes consumed, or returns 0 with
  // the map unchanged if the bytes do not begin with this map's type word. Stream version 1
  // keeps text values in fixed 16-byte fields and numbers in fixed 4-byte fields; every other
  // version gives each value a length byte. A key that occurs twice keeps its first value.
  uint32_t ReadFromStream(const unsigned char* buffer, uint32_t size, int streamVersion) {
    const std::string& word = TypeWord();
    const uint32_t headerBytes = static_cast<uint32_t>(word.size()) + 1;
    const uint32_t seen = size < headerBytes ? size : headerBytes;
    if (seen > 0 && buffer[0] != word.size()) return 0;
    if (seen > 1 && std::memcmp(buffer + 1, word.data(), seen - 1) != 0) return 0;
    // Bytes that agree with the type word as far as they go but end within it are a cut
    // stream, not another map.
    ByteReader in(buffer, size);
    in.Skip(headerBytes);
    this->clear();
    const uint8_t count = in.U8();
    for (uint8_t i = 0; i < count; ++i) {
      const uint8_t keyBytes = in.U8();
      std::string key(reinterpret_cast<const char*>(in.Take(keyBytes)), keyBytes);
      this->emplace(std::move(key), ReadValue(in, streamVersion));
    }
    return in.Position();
  }

  // Writes the stream form and returns its size; buffer gets nothing for an empty map.
  // Counts longer than a byte are written as their low byte, the bytes themselves in full,
  // exactly as GetStreamSize counts them: the writer never passes the size it announced.
  // REQUIRES: buffer has room for GetStreamSize() bytes.
  uint32_t WriteToStream(unsigned char* buffer) const {
    if (this->empty()) return 0;
    unsigned char* out = buffer;
    out = PutCounted(out, TypeWord());
    *out++ = static_cast<unsigned char>(this->size());
    for (const auto& [key, value] : *this) {
      out = PutCounted(out, key);
      if constexpr (kText) {
        out = PutCounted(out, value);
      } else {
        *out++ = 4;
        storeBigEndian32(out, value);
        out += 4;
      }
    }
    return static_cast<uint32_t>(out - buffer);
  }

  // One header line "Parameter map <word>:", then a line "\t<key>\t = <value>" per entry;
  // nothing for an empty map.
  void Print(std::ostream& out) const {
    if (this->empty()) return;
    out << "Parameter map <" << TypeWord() << ">:\n";
    for (const auto& [key, value] : *this) out << '\t' << key << "\t = " << value << '\n';
  }

 private:
  static constexpr uint32_t kVersion1TextBytes = 16;

  static uint32_t ValueBytes(const T& value) {
    if constexpr (kText) {
      return static_cast<uint32_t>(value.size());
    } else {
      return 4;
    }
  }

  static T ReadValue(ByteReader& in, int streamVersion) {
    if constexpr (kText) {
      const uint32_t bytes = streamVersion == 1 ? kVersion1TextBytes : in.U8();
      // A short text in a version 1 field keeps its padding bytes.
      return std::string(reinterpret_cast<const char*>(in.Take(bytes)), bytes);
    } else {
      const uint32_t bytes = streamVersion == 1 ? 4 : in.U8();
      // The value is the first four bytes whatever the length byte says; the cursor moves by
      // the length byte.
      in.Need(bytes > 4 ? bytes : 4);
      const unsigned int value = loadBigEndian32(in.Here());
      in.Skip(bytes);
      return value;
    }
  }

  static unsigned char* PutCounted(unsigned char* out, const std::string& text) {
    *out++ = static_cast<unsigned char>(text.size());
    if (!text.empty()) std::memcpy(out, text.data(), text.size());
    return out + text.size();
  }
};

#endif  // ORVANE_FEATURE_PARAMETERMAP_H_
