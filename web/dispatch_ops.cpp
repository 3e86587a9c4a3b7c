#include "web/dispatch_ops.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include "common/log.h"
#include "common/text.h"

namespace pavo {
namespace {

constexpr std::size_t kPathMax = 1023;  // characters of a path; what is longer is cut

HttpdDir *childOf(HttpdDir &dir, std::string_view name) {
    for (HttpdDir *child = dir.firstChild.get(); child != nullptr; child = child->nextSibling.get())
        if (child->name == name)
            return child;
    auto made = std::make_unique<HttpdDir>();
    made->name = name;
    made->nextSibling = std::move(dir.firstChild);
    dir.firstChild = std::move(made);
    return dir.firstChild.get();
}

// Null when memory is exhausted; directories that are missing are made.
HttpdDir *findDir(HttpdTree &tree, std::string_view path) try {
    path = path.substr(0, kPathMax);
    HttpdDir *dir = tree.root.get();
    while (!path.empty()) {
        const auto end = std::min(path.find('/'), path.size());
        if (end > 0)
            dir = childOf(*dir, path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return dir;
} catch (const std::bad_alloc &) {
    return nullptr;
}

const HttpdCContent *findEntry(const HttpdDir &dir, const std::string &leaf, const char *method) {
    const HttpdCContent *entry = dir.contents.get();
    while (entry != nullptr &&
           (strcasecmp(httpdMethodName(entry->method), method) != 0 || entry->name != leaf))
        entry = entry->next.get();
    return entry;
}

bool mayCall(const HttpdTree &tree, const HttpdCContent &entry) {
    const char *const token = std::getenv("HTTP_SESSION");
    Session session{};
    return checkSessionX(token, std::getenv("HTTP_REFRESH"), entry, &session) == 0 &&
           (!tree.admits || tree.admits(token, session));
}

}  // namespace

std::unique_ptr<HttpdTree> httpdTreeCreate() try {
    auto tree = std::make_unique<HttpdTree>();
    tree->root = std::make_unique<HttpdDir>();
    return tree;
} catch (const std::bad_alloc &) {
    return nullptr;
}

int httpdAddCContent(HttpdTree &tree, const char *dirPath, const char *name, std::uint32_t method,
                     std::uint32_t access, HttpdHandler handler) {
    HttpdDir *const dir = findDir(tree, dirPath);
    if (dir == nullptr) {
        logError("[%s:%d] httpdAddCContent, dirPtr == NULL\n");
        return -1;
    }
    try {
        auto entry = std::make_unique<HttpdCContent>(HttpdCContent{name, method, access, handler, nullptr});
        entry->next = std::move(dir->contents);
        dir->contents = std::move(entry);
    } catch (const std::bad_alloc &) {
        logError("[%s:%d] httpdAddCContent, newEntry == NULL\n");
        return -1;
    }
    return 0;
}

void httpdProcessRequest(HttpdTree &tree) {
    const char *const requestUri = std::getenv("REQUEST_URI");
    if (requestUri == nullptr)
        return;
    const std::string uri = std::string(requestUri).substr(0, kPathMax);
    const auto slash = uri.rfind('/');
    if (slash == std::string::npos) {
        std::printf("Invalid request path '%s'\n", uri.c_str());
        return;
    }
    const std::string leaf = uri.substr(slash + 1, uri.find('?', slash + 1) - slash - 1);
    HttpdDir *const dir = findDir(tree, slash == 0 ? "/" : std::string_view(uri).substr(0, slash));
    const char *const method = std::getenv("REQUEST_METHOD");
    const HttpdCContent *const entry =
        dir != nullptr && method != nullptr ? findEntry(*dir, leaf, method) : nullptr;
    if (entry == nullptr) {
        logError("[%s:%d] method not found:%s\n%s\n%s\n", printable(requestUri),
                 printable(dir != nullptr ? dir->name : ""), printable(leaf));
        return;
    }
    if (entry->access != static_cast<std::uint32_t>(Access::Anyone) && !mayCall(tree, *entry)) {
        logError("[%s:%d] 403 Forbidden\n");
        std::fputs("Status:403\r\n\r\n", stdout);
        return;
    }
    if (isJsonUri(uri))
        std::fputs("Content-Type: application/json\r\n\r\n", stdout);
    entry->handler();
}

bool isJsonUri(std::string_view uri) {
    return uri.starts_with("/api/v2/");
}

int checkSessionX(const char *token, const char *refresh, const HttpdCContent &entry, Session *session) {
    const SessionNeed need{static_cast<Access>(entry.access), static_cast<HttpMethod>(entry.method),
                           refresh == nullptr ? SessionUse::Extend : SessionUse::Poll};
    auto found = checkSession(token == nullptr ? "" : token, need);
    if (!found)
        return -1;
    if (session != nullptr)
        *session = *std::move(found);
    return 0;
}

const char *httpdMethodName(std::uint32_t method) {
    static constexpr const char *kNames[] = {"GET", "POST", "DELETE", "PUT"};
    static char other[255];
    if (method < std::size(kNames))
        return kNames[method];
    std::snprintf(other, sizeof other, "Invalid method '%d'", static_cast<int>(method));
    return other;
}

}  // namespace pavo
