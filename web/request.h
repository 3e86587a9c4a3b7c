// The request that this process serves, for the handlers of routes.
#ifndef PAVO_WEB_REQUEST_H
#define PAVO_WEB_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "common/result.h"
#include "swapi/switch.h"
#include "web/login.h"

namespace pavo {

struct Route;

// Bytes of a body; the longest one that an operation takes is a profile's.
inline constexpr std::size_t kBodyMax = 1 << 20;

// The value of a result, whose failure is thrown.
template <class T>
T orThrow(Result<T> result) {
    if (!result)
        throw std::move(result).error();
    if constexpr (!std::is_void_v<T>)
        return std::move(*result);
}

// The parameters of a query string ("name=Stage%201&lines=5"), decoded. IllegalRequest for an escape that is
// none, for control characters, for what is no UTF-8, and for a parameter that is there twice.
Result<std::map<std::string, std::string>> parseQuery(std::string_view query);

// One call of a route.
class WebCall {
  public:
    WebCall(const Route &route, std::map<std::string, std::string> query, std::string body)
        : route_(route), query_(std::move(query)), body_(std::move(body)) {}

    const Route &route() const { return route_; }
    const std::string &body() const { return body_; }

    // A parameter; those of the first kind throw InvalidArgument when it is missing, or no such number.
    const std::string &text(const char *name) const;
    std::uint32_t number(const char *name, std::uint32_t least, std::uint32_t most) const;
    std::uint32_t number(const char *name, std::uint32_t least, std::uint32_t most,
                         std::uint32_t otherwise) const;
    std::optional<std::string> optionalText(const char *name) const;

    // Throws Unreachable when it does not answer.
    Switch device() const;

  private:
    const Route &route_;
    std::map<std::string, std::string> query_;
    std::string body_;
};

// The URI with those escapes decoded in its path that nobody has to write ("/api/v2/%76lan/list"): the web server
// knows a route by the plain form, and hands on what the client has written.
std::string plainUri(std::string_view uri);

// The failure of a call, with a reason where the operation has refused without a word.
Failure explained(const Route &route, Failure failure);

// Runs a route's handler for the request in the environment and on standard input, and prints the answer.
void serveRoute(const Route &route);

// The users of the switch, for logging in; see web/login.h.
Result<std::optional<SwitchUser>> findSwitchUser(const std::string &name);
Result<std::optional<SwitchUser>> readSwitchUser(Switch sw, const std::string &name);

// Ends the connection to the switch that the request has made.
void endRequest();

}  // namespace pavo

#endif
