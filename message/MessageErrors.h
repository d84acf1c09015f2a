// The fixed failure texts of the message codec. Every failure of this layer is one of these
// texts thrown as a plain std::string by value.
#ifndef ORVANE_MESSAGE_MESSAGEERRORS_H_
#define ORVANE_MESSAGE_MESSAGEERRORS_H_

// An item's length disagrees with the span it occupies.
inline constexpr char kErrorInProtocol[] = "Error in Protocol";
// An item has a tag or a width that the reader does not take.
inline constexpr char kErrorInProtocolTag[] = "Error in Protocol !";
// A message would outgrow its 32-bit size; thrown as std::length_error.
inline constexpr char kMessageTooLarge[] = "message larger than 4 GiB";
inline constexpr char kSendSetBufferNotAllowed[] = "CSendMsg::setBuffer not allowed";
inline constexpr char kReceiveGetBufferNotAllowed[] = "CReceiveMsg::getBuffer not allowed";

#endif  // ORVANE_MESSAGE_MESSAGEERRORS_H_
