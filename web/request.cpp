#include "web/request.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <sstream>
#include <vector>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/response_ops.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/response_cache.h"
#include "store/writeback.h"
#include "swapi/switch_client.h"
#include "web/routes.h"
#include "web/schema_check.h"
#include "web/schemas.h"

namespace pavo {
namespace {

// The process serves one request, on one thread.
std::optional<SwitchClient> connection;

SwitchClient &connect() {
    if (!connection)
        connection.emplace("pavo_cgi");
    return *connection;
}

// --- reading

const char *variable(const char *name) {
    const char *const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::optional<unsigned> hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    const auto small = static_cast<char>(c | 0x20);
    return small >= 'a' && small <= 'f' ? std::optional(static_cast<unsigned>(small - 'a') + 10)
                                        : std::nullopt;
}

// Nothing for an escape that is none.
std::optional<std::string> decode(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i] == '+' ? ' ' : text[i];
            continue;
        }
        const auto high = i + 1 < text.size() ? hexDigit(text[i + 1]) : std::nullopt;
        const auto low = i + 2 < text.size() ? hexDigit(text[i + 2]) : std::nullopt;
        if (!high || !low)
            return std::nullopt;
        out += static_cast<char>(*high * 16 + *low);
        i += 2;
    }
    return out;
}

bool isPlainText(std::string_view text) {
    return isUtf8(text) && std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

// The whole body, before anything is done with it.
Result<std::string> readBody() {
    const std::string_view length = variable("CONTENT_LENGTH");
    if (length.empty())
        return std::string();
    const auto size = wholeNumber(length);
    if (!size || *size < 0)
        return failed(ResultCode::IllegalRequest, "the length of the body is no number");
    if (*size > static_cast<std::int64_t>(kBodyMax))
        return failed(ResultCode::IllegalRequest,
                      "the body has more than " + std::to_string(kBodyMax) + " bytes");
    std::string body(static_cast<std::size_t>(*size), '\0');
    if (const auto got = std::fread(body.data(), 1, body.size(), stdin); got != body.size())
        return failed(ResultCode::IllegalRequest, "the body ends after " + std::to_string(got) + " of " +
                                                      std::to_string(body.size()) + " bytes");
    if (body.find('\0') != std::string::npos)
        return failed(ResultCode::IllegalRequest, "the body has a zero in it");
    if (!isUtf8(body))
        return failed(ResultCode::IllegalRequest, "the body is not in UTF-8");
    return body;
}

// A zero that is escaped would end a text early.
bool hasEscapedZero(std::string_view json) {
    for (std::size_t i = json.find('\\'); i != std::string_view::npos; i = json.find('\\', i + 2))
        if (json.substr(i + 1, 5) == "u0000")
            return true;
    return false;
}

// What goes to an operation is JSON as a whole and fits the document, whatever the operation tolerates itself.
Result<> checkBody(const Route &route, const std::string &body) {
    if (route.request == nullptr)
        return {};
    if (hasEscapedZero(body))
        return failed(ResultCode::IllegalRequest, "the body has a zero in it");
    const JsonPtr json(cJSON_ParseWithOpts(body.c_str(), nullptr, true));
    if (json == nullptr)
        return failed(ResultCode::InvalidArgument, "the body is no JSON");
    const JsonPtr schemas = parseSchemas();
    if (auto wrong = schemaViolation(schemas.get(), member(schemas.get(), route.request), json.get());
        !wrong.empty())
        return failed(ResultCode::InvalidArgument, std::move(wrong));
    return {};
}

// A failure of the request itself is logged here; those of operations have been.
WebCall readCall(const Route &route) {
    auto query = parseQuery(variable("QUERY_STRING"));
    auto body = query ? readBody() : Result<std::string>(std::string());
    const auto checked = body ? checkBody(route, *body) : Result<>();
    if (!query || !body || !checked) {
        const Failure failure = !query ? query.error() : !body ? body.error() : checked.error();
        logError("[%s:%d] %s: %s\n", route.path, failure.reason);
        throw Failure(failure);
    }
    return {route, *std::move(query), *std::move(body)};
}

// --- answering

// Empty when memory runs out or the data are no JSON (logged).
std::string envelopeOf(const Route &route, const std::string &data) {
    if (route.key == nullptr && route.answer != nullptr)
        return data;
    char *text = nullptr;
    const bool isDone = responseJsonRreallocStr(codeOf(ResultCode::Success),
                                                data.empty() ? nullptr : route.key, data.c_str(), &text) == 0;
    return isDone ? TextPtr(text).get() : std::string();
}

// The answers that show what has changed, as far as somebody has asked for them before. The operation is done
// whether they can be made or not.
void writeBackChanges(const Route &route) {
    if (*route.changes == '\0' || !fileExists(platform::paths::kResponseCache))
        return;
    const auto cached = listCachedAnswers();
    if (!cached)
        return;
    std::istringstream names(route.changes);
    for (std::string name; names >> name;)
        if (std::ranges::find(*cached, name, &CachedAnswer::name) != cached->end())
            static_cast<void>(rest_db_writeback(connect().get().handle(), name.c_str()));
}

std::string answerOf(const Route &route) {
    const WebCall call = readCall(route);
    // The web server ends a handler whose client has gone; a change is carried to its end.
    if (route.method != HttpMethod::Get)
        std::signal(SIGTERM, SIG_IGN);
    std::string data;
    try {
        data = route.handle(call);
    } catch (const Failure &failure) {
        // Some of it may have been done.
        if (failure.code == ResultCode::Failed)
            writeBackChanges(route);
        throw;
    }
    const bool isEmpty = data.empty() && route.answer != nullptr;
    std::string text = isEmpty ? "" : envelopeOf(route, data);
    if (text.empty())
        throw Failure{ResultCode::InvalidPointer, ""};
    writeBackChanges(route);
    return text;
}

UserLevel levelOf(const std::string &name, std::uint32_t level) {
    if (name == kAdministrator)
        return UserLevel::Administrator;
    return level == OPEN_USER_LEVEL_ADMIN ? UserLevel::ReadWrite : UserLevel::ReadOnly;
}

}  // namespace

Result<std::map<std::string, std::string>> parseQuery(std::string_view query) {
    std::map<std::string, std::string> parameters;
    while (!query.empty()) {
        const auto end = std::min(query.find('&'), query.size());
        const auto part = query.substr(0, end);
        query.remove_prefix(std::min(end + 1, query.size()));
        const auto equals = std::min(part.find('='), part.size());
        const auto name = decode(part.substr(0, equals));
        const auto value = decode(part.substr(std::min(equals + 1, part.size())));
        if (!name || !value || !isPlainText(*name) || !isPlainText(*value))
            return failed(ResultCode::IllegalRequest, "the query " + quoteText(part) + " is not encoded");
        // Which of two would be meant, nobody knows.
        if (!part.empty() && !parameters.emplace(*name, *value).second)
            return failed(ResultCode::IllegalRequest,
                          "the parameter " + quoteText(*name) + " is there twice");
    }
    return parameters;
}

std::string plainUri(std::string_view uri) {
    std::string plain;
    const auto path = uri.substr(0, uri.find('?'));
    for (std::size_t i = 0; i < path.size(); ++i) {
        const auto byte = path[i] == '%' ? decode(path.substr(i, 3)) : std::nullopt;
        const bool isUnreserved = byte && byte->size() == 1 &&
                                  (std::isalnum(static_cast<unsigned char>((*byte)[0])) != 0 ||
                                   std::string_view("-._~").find((*byte)[0]) != std::string_view::npos);
        plain += isUnreserved ? (*byte)[0] : path[i];
        i += isUnreserved ? 2 : 0;
    }
    return plain.append(uri.substr(path.size()));
}

std::optional<std::string> WebCall::optionalText(const char *name) const {
    const auto found = query_.find(name);
    return found != query_.end() ? std::optional(found->second) : std::nullopt;
}

const std::string &WebCall::text(const char *name) const {
    const auto found = query_.find(name);
    if (found == query_.end()) {
        logError("[%s:%d] %s: no parameter %s\n", route_.path, name);
        throw Failure{ResultCode::InvalidArgument, "the parameter \"" + std::string(name) + "\" is missing"};
    }
    return found->second;
}

std::uint32_t WebCall::number(const char *name, std::uint32_t least, std::uint32_t most) const {
    const auto value = wholeNumber(text(name));
    if (!value || *value < least || *value > most) {
        const std::string range = std::to_string(least) + " to " + std::to_string(most);
        logError("[%s:%d] %s: %s is none of %s\n", route_.path, name, range);
        throw Failure{ResultCode::InvalidArgument,
                      "the parameter \"" + std::string(name) + "\" is not a number from " + range};
    }
    return static_cast<std::uint32_t>(*value);
}

std::uint32_t WebCall::number(const char *name, std::uint32_t least, std::uint32_t most,
                              std::uint32_t otherwise) const {
    return optionalText(name) ? number(name, least, most) : otherwise;
}

Switch WebCall::device() const {
    if (!connect().isConnected()) {
        logError("[%s:%d] %s: the switch cannot be reached\n", route_.path);
        throw Failure{ResultCode::Unreachable, "the switch does not answer"};
    }
    return connect().get();
}

Failure explained(const Route &route, Failure failure) {
    if (failure.reason.empty() && failure.code == ResultCode::InvalidArgument && route.request != nullptr)
        failure.reason = "see the schema " + std::string(route.request) + " in the answer of /api/v2/openapi";
    else if (failure.reason.empty() && failure.code == ResultCode::Failed)
        failure.reason = "the log tells why";
    return failure;
}

void serveRoute(const Route &route) {
    std::string text;
    try {
        text = answerOf(route);
    } catch (const Failure &failure) {
        text = failureEnvelope(explained(route, failure));
    } catch (const std::bad_alloc &) {
        logError("[%s:%d] %s: out of memory\n", route.path);
        text = failureEnvelope({ResultCode::InvalidPointer, ""});
    } catch (const std::exception &e) {
        logError("[%s:%d] %s: %s\n", route.path, e.what());
        text = failureEnvelope({ResultCode::Failed, ""});
    }
    if (!isJsonUri(variable("REQUEST_URI")))
        std::fputs("Content-Type: application/json\r\n\r\n", stdout);
    std::puts(text.c_str());
}

Result<std::optional<SwitchUser>> findSwitchUser(const std::string &name) {
    return readSwitchUser(connect().get(), name);
}

Result<std::optional<SwitchUser>> readSwitchUser(Switch sw, const std::string &name) {
    const auto size = sw.passwordSize();
    const auto password =
        size ? sw.userPassword(name, *size) : OpenResult<std::string>(std::unexpected(size.error()));
    // Asked also without a password, so that the time does not tell whether there is such a user.
    const auto level = sw.userLevel(name);
    if (password && level)
        return *level == OPEN_USER_LEVEL_BLOCKED
                   ? std::nullopt
                   : std::optional(SwitchUser{levelOf(name, *level), *password});
    const OpenError error = !password ? password.error() : level.error();
    // Parameter: what cannot be the name of a user.
    if (error == OpenError::NotFound || error == OpenError::Parameter)
        return std::nullopt;
    logError("[%s:%d] the users of the switch cannot be read (result = %d)\n", error);
    return failed(error == OpenError::Unreachable ? ResultCode::Unreachable : ResultCode::Failed,
                  "the users of the switch cannot be read");
}

void endRequest() {
    connection.reset();
}

}  // namespace pavo
