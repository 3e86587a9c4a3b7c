// How a call travels between a client and the virtual switch OS.
//
// A connection is a Unix stream socket (kSocketPath under PAVO_ROOT). Each message is a frame: its length as
// a 32-bit big-endian number, then that many bytes of MessagePack.
//
//   request: [name, argument, ...]   the arguments in the order of the C function, the client handle left
//   out; of a
//                                    pointer that the call only fills: nothing; of a buffer it fills: its
//                                    room in bytes; of a buffer it reads: the bytes; of a buffer it reads and
//                                    fills: [room, bytes]
//   reply:   [code, result, ...]     code is the call's OPEN_E_ code; the results follow in argument order
//   only when
//                                    it is OPEN_E_NONE: numbers, bytes for a buffer
//
// Texts are MessagePack strings without their terminating zero; they hold any byte. One request is answered
// before the next of the same connection is read. A malformed request, or one longer than kFrameMax, ends the
// connection. Beside the calls of platform/open_client.h two more names exist: "vswitch.control" with one
// JSON text and a JSON text as result (see server/control.h), and "l7proc.log" with severity, component,
// place and text.
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
