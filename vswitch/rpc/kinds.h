// The kinds of argument of an OpEN call: what the C function takes, what the server's handler takes, and how
// each travels (see wire.h). Numbers are unsigned, of 32 bits where the kind does not say 64.
#ifndef PAVO_VSWITCH_RPC_KINDS_H
#define PAVO_VSWITCH_RPC_KINDS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <msgpack.hpp>
#include <string>

#include "platform/open_client.h"

namespace vswitch::rpc {

using Packer = msgpack::packer<msgpack::sbuffer>;

// Copies a string or bytes into the caller's buffer, cut to its capacity; a string is terminated.
inline void fillBuffer(open_buffdesc &buffer, const std::string &value, bool text) {
    if (buffer.pstart == nullptr || buffer.size == 0)
        return;
    const std::size_t room = buffer.size - (text ? 1 : 0);
    const std::size_t length = std::min(value.size(), room);
    std::memcpy(buffer.pstart, value.data(), length);
    if (text)
        buffer.pstart[length] = '\0';
    buffer.size = static_cast<std::uint32_t>(length + (text ? 1 : 0));
}

inline std::string bufferText(const open_buffdesc *buffer) {
    if (buffer == nullptr || buffer->pstart == nullptr)
        return {};
    return std::string(buffer->pstart, strnlen(buffer->pstart, buffer->size));
}

// A number, input.
struct In {
    using C = std::uint32_t;
    using Server = std::uint32_t;
    struct State {
        std::uint32_t value = 0;
        Server argument() { return value; }
        void unpack(const msgpack::object &object) { object.convert(value); }
    };
    static constexpr bool kGoesIn = true, kComesOut = false;
    static bool valid(C) { return true; }
    static void pack(Packer &packer, C value) { packer.pack(value); }
    static void store(C, const msgpack::object &) {}
    static void packResult(Packer &, const State &) {}
};

// A number, output.
struct Out {
    using C = std::uint32_t *;
    using Server = std::uint32_t &;
    struct State {
        std::uint32_t value = 0;
        Server argument() { return value; }
        void unpack(const msgpack::object &) {}
    };
    static constexpr bool kGoesIn = false, kComesOut = true;
    static bool valid(C pointer) { return pointer != nullptr; }
    static void pack(Packer &, C) {}
    static void store(C pointer, const msgpack::object &object) { object.convert(*pointer); }
    static void packResult(Packer &packer, const State &state) { packer.pack(state.value); }
};

// A number of 64 bits, output: a counter.
struct Out64 {
    using C = std::uint64_t *;
    using Server = std::uint64_t &;
    struct State {
        std::uint64_t value = 0;
        Server argument() { return value; }
        void unpack(const msgpack::object &) {}
    };
    static constexpr bool kGoesIn = false, kComesOut = true;
    static bool valid(C pointer) { return pointer != nullptr; }
    static void pack(Packer &, C) {}
    static void store(C pointer, const msgpack::object &object) { object.convert(*pointer); }
    static void packResult(Packer &packer, const State &state) { packer.pack(state.value); }
};

// A number, input and output.
struct InOut : Out {
    struct State : Out::State {
        void unpack(const msgpack::object &object) { object.convert(value); }
    };
    static constexpr bool kGoesIn = true;
    static void pack(Packer &packer, C pointer) { packer.pack(*pointer); }
};

// A string, input.
struct InText {
    using C = open_buffdesc *;
    using Server = const std::string &;
    struct State {
        std::string value;
        Server argument() { return value; }
        void unpack(const msgpack::object &object) { object.convert(value); }
    };
    static constexpr bool kGoesIn = true, kComesOut = false;
    static bool valid(C buffer) { return buffer != nullptr && buffer->pstart != nullptr; }
    static void pack(Packer &packer, C buffer) { packer.pack(bufferText(buffer)); }
    static void store(C, const msgpack::object &) {}
    static void packResult(Packer &, const State &) {}
};

// What the handler gets for an output buffer: the capacity that the caller has, and where to put the value.
struct Filled {
    std::uint32_t room = 0;
    std::string value;
};

// A string, output, in a buffer of the caller.
struct OutText {
    using C = open_buffdesc *;
    using Server = Filled &;
    struct State {
        Filled filled;
        Server argument() { return filled; }
        void unpack(const msgpack::object &object) { object.convert(filled.room); }
    };
    static constexpr bool kGoesIn = true, kComesOut = true;
    static bool valid(C buffer) { return buffer != nullptr && buffer->pstart != nullptr && buffer->size > 0; }
    static void pack(Packer &packer, C buffer) { packer.pack(buffer->size); }
    static void store(C buffer, const msgpack::object &object) {
        fillBuffer(*buffer, object.as<std::string>(), true);
    }
    static void packResult(Packer &packer, const State &state) { packer.pack(state.filled.value); }
};

// Bytes, output.
struct OutBytes : OutText {
    static void store(C buffer, const msgpack::object &object) {
        fillBuffer(*buffer, object.as<std::string>(), false);
    }
};

// A string, input and output.
struct InOutText : OutText {
    struct State : OutText::State {
        void unpack(const msgpack::object &object) {
            if (object.type != msgpack::type::ARRAY || object.via.array.size != 2)
                throw msgpack::type_error();
            object.via.array.ptr[0].convert(filled.room);
            object.via.array.ptr[1].convert(filled.value);
        }
    };
    static void pack(Packer &packer, C buffer) {
        packer.pack_array(2);
        packer.pack(buffer->size);
        packer.pack(bufferText(buffer));
    }
};

}  // namespace vswitch::rpc

#endif
