// How a call travels between a client and the virtual switch OS.
//
// A connection is a Unix stream socket (kSocketPath under PAVO_ROOT). Each message is a frame: its length as
// a 32-bit big-endian number, then that many bytes of MessagePack.
//
//   request: [name, argument, ...]   the arguments in the order of the C function, without the client handle.
//                                    A pointer that the call only fills is left out; a buffer that it fills
//                                    is sent as its capacity in bytes, one that it reads as its bytes, one
//                                    that it reads and fills as [capacity, bytes]
//   reply:   [code, result, ...]     the call's OPEN_E_ code; results follow in the order of the arguments,
//                                    only with OPEN_E_NONE: numbers, or the bytes for a buffer
//
// Strings are MessagePack strings without the terminating zero; they may hold any byte. A request is answered
// before the next one of the same connection is read. A malformed request, or one longer than kFrameMax, ends
// the connection. Two names exist besides the calls of platform/open_client.h: "vswitch.control", whose
// argument and result are one JSON string each (see server/control.h), and "l7proc.log" with severity,
// component, place and message.
#ifndef PAVO_VSWITCH_RPC_WIRE_H
#define PAVO_VSWITCH_RPC_WIRE_H

#include <cstddef>
#include <cstdint>

namespace vswitch::rpc {

inline constexpr const char *kSocketPath = "/tmp/vswitchd.sock";
inline constexpr std::size_t kFrameMax = 64u << 20;
inline constexpr std::size_t kLengthSize = 4;

inline void putLength(std::size_t length, unsigned char out[kLengthSize]) {
    for (std::size_t i = 0; i < kLengthSize; ++i)
        out[i] = static_cast<unsigned char>(length >> (8 * (kLengthSize - 1 - i)));
}

inline std::size_t getLength(const unsigned char in[kLengthSize]) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < kLengthSize; ++i)
        length = length << 8 | in[i];
    return length;
}

inline constexpr const char *kControlCall = "vswitch.control";
inline constexpr const char *kLogCall = "l7proc.log";

}  // namespace vswitch::rpc

#endif
