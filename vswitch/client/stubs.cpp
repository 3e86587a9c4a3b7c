// The client side of every OpEN call, generated from the table of calls.
#include <cstdio>
#include <cstring>
#include <string_view>
#include <tuple>

#include "platform/open_client.h"
#include "vswitch/client/transport.h"
#include "vswitch/rpc/kinds.h"
#include "vswitch/rpc/wire.h"

namespace {

using namespace vswitch::rpc;

// Replies may have passwords in them: strings are not copied, and the reply is wiped.
bool stayInPlace(msgpack::type::object_type, std::size_t, void *) {
    return true;
}

struct Wiped {
    std::string &text;
    ~Wiped() { explicit_bzero(text.data(), text.size()); }
};

// Marks a registered handle; the connections belong to the transport.
int registered;

template <class Kind>
void storeResult(typename Kind::C argument, const msgpack::object_array &reply, std::uint32_t &next) {
    if constexpr (Kind::kComesOut)
        Kind::store(argument, reply.ptr[next++]);
}

template <class... Kinds>
open_error_t call(const openapiClientHandle_t *client, const char *name, typename Kinds::C... arguments) try {
    if (client == nullptr || client->session != &registered || !(true && ... && Kinds::valid(arguments)))
        return OPEN_E_PARAM;
    thread_local msgpack::sbuffer request;
    thread_local std::string reply;
    request.clear();
    Packer packer(request);
    packer.pack_array((1u + ... + (Kinds::kGoesIn ? 1u : 0u)));
    packer.pack(name);
    (Kinds::pack(packer, arguments), ...);
    const bool isCheck = std::string_view(name) == "rpcclt_openapiConnectivityCheck";
    if (!vswitch::client::exchange(request.data(), request.size(), reply,
                                   isCheck ? vswitch::client::kCheckLimit : vswitch::client::kCallLimit))
        return OPEN_E_RPC;
    const Wiped wiped{reply};
    const auto unpacked = msgpack::unpack(reply.data(), reply.size(), stayInPlace);
    if (unpacked.get().type != msgpack::type::ARRAY || unpacked.get().via.array.size == 0)
        return OPEN_E_RPC;
    const auto &results = unpacked.get().via.array;
    const auto code = results.ptr[0].as<open_error_t>();
    if (code == OPEN_E_NONE) {
        if (results.size != (1u + ... + (Kinds::kComesOut ? 1u : 0u)))
            return OPEN_E_RPC;
        [[maybe_unused]] std::uint32_t next = 1;
        (storeResult<Kinds>(arguments, results, next), ...);
    }
    return code;
} catch (const std::exception &) {
    // What the other side sent is not a reply.
    return OPEN_E_RPC;
}

}  // namespace

open_error_t openapiClientRegister(const char *clientName, openapiClientHandle_t *client) {
    if (clientName == nullptr || client == nullptr)
        return OPEN_E_PARAM;
    std::snprintf(client->name, sizeof client->name, "%s", clientName);
    client->session = &registered;
    return OPEN_E_NONE;
}

open_error_t openapiClientTearDown(openapiClientHandle_t *client) {
    if (client == nullptr || client->session != &registered)
        return OPEN_E_PARAM;
    client->session = nullptr;
    vswitch::client::disconnect();
    return OPEN_E_NONE;
}

#define OPEN_PARAMETER(Kind, argument) Kind::C argument
#define OPEN_CALL(name, parameters, kinds, arguments) \
    OPEN_STUB(name, OPEN_LIST(kinds), OPEN_LIST(arguments), parameters)
#define OPEN_STUB(name, kinds, arguments, ...)                                    \
    open_error_t name(openapiClientHandle_t *client __VA_OPT__(, ) __VA_ARGS__) { \
        return OPEN_INVOKE(name, OPEN_LIST(kinds), arguments);                    \
    }
#define OPEN_INVOKE(name, kinds, ...) call<kinds>(client, #name __VA_OPT__(, ) __VA_ARGS__)
#include "vswitch/rpc/expand.h"
