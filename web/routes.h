// What the web interface offers: one row for each route. Registration, the OpenAPI document, the list by which
// the web server refuses what is not there, and the test of all routes are made from the rows.
#ifndef PAVO_WEB_ROUTES_H
#define PAVO_WEB_ROUTES_H

#include <chrono>
#include <span>
#include <string>

#include "web/dispatch_ops.h"
#include "web/request.h"

namespace pavo {

// Server-sent events in the place of an answer's schema.
inline constexpr const char *kEventStream = "text/event-stream";
inline constexpr const char *kEventsPath = "/api/v2/events";

// A parameter of the query string.
struct Parameter {
    const char *name;
    const char *schema;  // see Route
    bool required;
    const char *what;
};

struct Route {
    const char *path;
    HttpMethod method;
    Access access;
    // The data of the answer as JSON; empty for an answer that is only an envelope. Throws a Failure, which has
    // been logged.
    std::string (*handle)(const WebCall &call);
    // Schemas: the name of one in web/schemas.cpp, with "[]" behind it for an array of it, or JSON. Null: none.
    const char *request;  // of the body
    const char *key;      // of the data in the envelope; null with an `answer`: the data are the whole answer
    const char *answer;   // of the data; kEventStream for what is no JSON
    const char *summary;  // one sentence

    std::span<const Parameter> parameters = {};
    const char *cached = nullptr;  // name of the answer in store/writeback.def that this is
    const char *changes = "";  // names of cached answers, with blanks in between, that show what it changes
    // Of a cached answer: pavo_webd gives out none that is older, but has it produced anew.
    std::chrono::seconds maxAge{};
};

std::span<const Route> routes();

// Puts all rows into the tree; false (logged) when memory is exhausted.
bool registerRoutes(HttpdTree &tree);

// The OpenAPI 3.1 document, formatted; empty when memory runs out.
std::string openApiDocument();

// The paths that pavo_webd serves, a line each: cached answers and events.
std::string residentPaths();

// The rows as a table in Lua for the web server: return {["/api/v2/nice"] = "GET, PUT", ...}
std::string routeList();

}  // namespace pavo

#endif
