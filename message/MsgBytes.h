// MsgBytes: the byte buffer of a message. Its allocator leaves new bytes unwritten, so that
// making room for a large message costs no pass of zeros over it: every byte of a message
// is written before it is read.
#ifndef ORVANE_MESSAGE_MSGBYTES_H_
#define ORVANE_MESSAGE_MSGBYTES_H_

#include <memory>
#include <new>
#include <utility>
#include <vector>

template <typename T>
class DefaultInitAllocator : public std::allocator<T> {
 public:
  template <typename U>
  struct rebind {
    using other = DefaultInitAllocator<U>;
  };

  DefaultInitAllocator() = default;
  template <typename U>
  DefaultInitAllocator(const DefaultInitAllocator<U>&) noexcept {}

  // A value asked for without arguments is default-initialised: for bytes, not written.
  template <typename U>
  void construct(U* place) {
    ::new (static_cast<void*>(place)) U;
  }
  template <typename U, typename... Args>
  void construct(U* place, Args&&... args) {
    ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
  }
};

using MsgBytes = std::vector<unsigned char, DefaultInitAllocator<unsigned char>>;

#endif  // ORVANE_MESSAGE_MSGBYTES_H_
