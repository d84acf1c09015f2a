// CMsgBase: the common table of operations of a sending and a receiving message, so that an
// object that persists itself holds one pointer and runs the same calls in both directions.
// Each typed slot passes one value through the message: a CSendMsg appends the value and
// returns it, a CReceiveMsg ignores the argument and returns the next value read. put() and
// get() are the two readable names of those slots.
#ifndef ORVANE_MESSAGE_CMSGBASE_H_
#define ORVANE_MESSAGE_CMSGBASE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

// Two more 32-bit integer types, so that the four 32-bit slots are four distinct overloads
// (unsigned int, MsgInt32, int, MsgUInt32, in slot order). All four travel alike.
enum MsgInt32 : int32_t {};
enum MsgUInt32 : uint32_t {};

class CMsgBase {
 public:
  CMsgBase() = default;
  CMsgBase(const CMsgBase&) = delete;
  CMsgBase& operator=(const CMsgBase&) = delete;

  // The slots, in this order.
  virtual ~CMsgBase();
  // Empties the message, keeping its storage.
  virtual void reset() = 0;
  virtual uint64_t pass(uint64_t value) = 0;
  virtual int64_t pass(int64_t value) = 0;
  virtual double pass(double value) = 0;
  virtual float pass(float value) = 0;
  virtual unsigned pass(unsigned value) = 0;
  virtual MsgInt32 pass(MsgInt32 value) = 0;
  virtual int pass(int value) = 0;
  virtual MsgUInt32 pass(MsgUInt32 value) = 0;
  virtual unsigned char pass(unsigned char value) = 0;
  virtual char pass(char value) = 0;
  virtual bool pass(bool value) = 0;
  virtual std::vector<unsigned char>& passBytes(std::vector<unsigned char>& bytes) = 0;
  virtual std::string& passString(std::string& text) = 0;
  // Sending: appends `length` bytes at `data` and returns `data`. Receiving: replaces the
  // block at `data` (released with delete[] when not null) by a new one the caller owns, and
  // returns it; at the end of the message it is null and `length` 0.
  virtual unsigned char* passBlob(unsigned char*& data, unsigned& length) = 0;
  // Sending: puts the body length and the five header bytes in front of the items.
  virtual void finish(const unsigned char* header) = 0;
  // Receiving: moves to the first item; 1 when the five header bytes equal `header`.
  virtual int checkHeader(const unsigned char* header) = 0;
  // Sending: appends the end mark.
  virtual void terminate() = 0;
  // Sending: a copy of the message that stays with this object until the next call; its
  // length is size().
  virtual const unsigned char* getBuffer() = 0;
  // Receiving: the message becomes a copy of `length` bytes at `data`.
  virtual void setBuffer(const unsigned char* data, unsigned length) = 0;
  // Bytes of the message.
  virtual unsigned size() const = 0;
  // `count` floats, each its own item exactly as the float slot passes it, in one call:
  // sending appends them; receiving overwrites them with the next values read.
  virtual void passFloats(float* values, std::size_t count) = 0;

  template <typename T>
  T put(T value) {
    static_assert(kIsSlotType<T>, "no message slot takes this type");
    return pass(value);
  }
  template <typename T>
  T get(T typeOnly) {
    static_assert(kIsSlotType<T>, "no message slot takes this type");
    return pass(typeOnly);
  }
  std::vector<unsigned char>& putBytes(std::vector<unsigned char>& bytes) {
    return passBytes(bytes);
  }
  std::vector<unsigned char>& getBytes(std::vector<unsigned char>& bytes) {
    return passBytes(bytes);
  }
  std::string& putString(std::string& text) { return passString(text); }
  std::string& getString(std::string& text) { return passString(text); }
  unsigned char* putBlob(unsigned char*& data, unsigned& length) { return passBlob(data, length); }
  void putFloats(float* values, std::size_t count) { passFloats(values, count); }
  void getFloats(float* values, std::size_t count) { passFloats(values, count); }
  unsigned char* getBlob(unsigned char*& data, unsigned& length) { return passBlob(data, length); }

 protected:
  // The block handed out by getBuffer.
  std::unique_ptr<unsigned char[]> scratch;

 private:
  // Exactly the slot types: anything else would reach a slot by an implicit conversion,
  // possibly of another width.
  template <typename T>
  static constexpr bool kIsSlotType =
      std::is_same_v<T, uint64_t> || std::is_same_v<T, int64_t> || std::is_same_v<T, double> ||
      std::is_same_v<T, float> || std::is_same_v<T, unsigned> || std::is_same_v<T, MsgInt32> ||
      std::is_same_v<T, int> || std::is_same_v<T, MsgUInt32> || std::is_same_v<T, unsigned char> ||
      std::is_same_v<T, char> || std::is_same_v<T, bool>;
};

#endif  // ORVANE_MESSAGE_CMSGBASE_H_
