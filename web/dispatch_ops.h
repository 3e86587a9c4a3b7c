// Requests of the web server, which runs a handler program for each: a tree of URL directories with their
// contents, the call that routes the process's request to its handler, and the check of its session.
//
// The request is in the environment (REQUEST_URI, REQUEST_METHOD, HTTP_SESSION, HTTP_REFRESH), the answer is
// what is printed on standard output. One thread.
#ifndef PAVO_WEB_DISPATCH_OPS_H
#define PAVO_WEB_DISPATCH_OPS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "web/sessions.h"

namespace pavo {

// Writes the whole answer to standard output.
using HttpdHandler = void (*)();

// One leaf of the tree.
struct HttpdCContent {
    std::string name;
    std::uint32_t method;  // HttpMethod
    std::uint32_t access;  // Access
    HttpdHandler handler;
    std::unique_ptr<HttpdCContent> next;
};

// One directory: a component of the path, empty for the root. New elements are at the head of their list.
struct HttpdDir {
    std::string name;
    std::unique_ptr<HttpdDir> firstChild, nextSibling;
    std::unique_ptr<HttpdCContent> contents;
};

struct HttpdTree {
    std::unique_ptr<HttpdDir> root;
    // Asked after the check of the session: whether its user may still have it. Optional.
    std::function<bool(const std::string &token, const Session &session)> admits{};
};

// A tree with its root; null when memory is exhausted.
std::unique_ptr<HttpdTree> httpdTreeCreate();

// Puts an entry at the head of the contents of `dirPath`, whose missing directories are made; of two entries
// with the same name and method, the later one is found. 0; -1 (logged) when memory is exhausted.
int httpdAddCContent(HttpdTree &tree, const char *dirPath, const char *name, std::uint32_t method,
                     std::uint32_t access, HttpdHandler handler);

// Routes the request of this process. The leaf is what follows the last '/' of the URI, without the query
// string, so a '/' within the query has to be percent-encoded. Directories that the URI names are made. What
// is not there gives no output at all, a refused session the header of a 403 alone. URIs that begin with
// "/api/v2/" get the header of a JSON answer before their handler runs.
void httpdProcessRequest(HttpdTree &tree);

// Whether that header comes before the handler for this URI; it is not told by where the entry is, as a path
// can be written in several ways.
bool isJsonUri(std::string_view uri);

// checkSession() for an entry: 0 when the request may proceed, else -1. Null pointers: the request has no
// such header. `session` is filled in when it may.
int checkSessionX(const char *token, const char *refresh, const HttpdCContent &entry,
                  Session *session = nullptr);

// "GET", "POST", "DELETE", "PUT"; for another number a text that is overwritten by the next such call.
const char *httpdMethodName(std::uint32_t method);

}  // namespace pavo

#endif
