// pavo_cgi: serves one request of the web interface, run by the web server.
#include <csignal>
#include <cstdio>
#include <exception>

#include "common/log.h"
#include "web/routes.h"

namespace pavo {
namespace {

bool serve() {
    const auto tree = httpdTreeCreate();
    if (tree == nullptr || !registerRoutes(*tree))
        return false;
    tree->admits = [](const std::string &token, const Session &session) {
        return isStillTheUser(token, session, findSwitchUser);
    };
    httpdProcessRequest(*tree);
    endRequest();
    return std::fflush(stdout) == 0;
}

}  // namespace
}  // namespace pavo

int main() try {
    // A client that has gone does not end an operation.
    std::signal(SIGPIPE, SIG_IGN);
    pavo::devmgrLogOpen(pavo::LOG_SINK_FILE, pavo::LOG_FACILITY_USER, "pavo_cgi");
    const bool isServed = pavo::serve();
    pavo::devmgrLogClose();
    return isServed ? 0 : 1;
} catch (const std::exception &e) {
    std::fprintf(stderr, "pavo_cgi: %s\n", e.what());
    return 1;
}
