// Prints what is made from the table of routes: "openapi", the OpenAPI document; "routes", the list for the web
// server; "resident", the paths that pavo_webd serves.
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "web/routes.h"

int main(int argc, char **argv) try {
    const std::string_view what = argc == 2 ? argv[1] : "";
    std::string text;
    if (what == "openapi") {
        text = pavo::openApiDocument();
    } else if (what == "routes") {
        text = pavo::routeList();
    } else if (what == "resident") {
        text = pavo::residentPaths();
    } else {
        std::fputs("usage: route_documents openapi|routes|resident\n", stderr);
        return 2;
    }
    const bool isPrinted = !text.empty() && std::puts(text.c_str()) >= 0 && std::fflush(stdout) == 0;
    return isPrinted ? 0 : 1;
} catch (const std::exception &e) {
    std::fprintf(stderr, "route_documents: %s\n", e.what());
    return 1;
}
