// Prints what is made from the table of routes: "openapi", the OpenAPI document; "routes", the list for the web
// server.
#include <cstdio>
#include <exception>
#include <string_view>

#include "web/routes.h"

int main(int argc, char **argv) try {
    const std::string_view what = argc == 2 ? argv[1] : "";
    if (what != "openapi" && what != "routes") {
        std::fputs("usage: route_documents openapi|routes\n", stderr);
        return 2;
    }
    const std::string text = what == "openapi" ? pavo::openApiDocument() : pavo::routeList();
    const bool isPrinted = !text.empty() && std::puts(text.c_str()) >= 0 && std::fflush(stdout) == 0;
    return isPrinted ? 0 : 1;
} catch (const std::exception &e) {
    std::fprintf(stderr, "route_documents: %s\n", e.what());
    return 1;
}
