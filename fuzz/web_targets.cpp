// What reads requests of the web interface: dispatch, sessions, queries, bodies.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/text.h"
#include "fuzz/support.h"
#include "fuzz/targets.h"
#include "platform/paths.h"
#include "web/routes.h"

namespace fuzz {
namespace {

using namespace pavo;
namespace paths = platform::paths;

constexpr const char *kAdminSession = "admin\n99000\nadminsession";

std::string sessionPath(const std::string &token) {
    return std::string(paths::kSessionDir) + "/" + token;
}

// Standard input and output of one request, in memory.
class Streams {
  public:
    explicit Streams(std::string &body) {
        stdin = fmemopen(body.data(), body.size(), "r");
        stdout = open_memstream(&text_, &size_);
    }
    ~Streams() {
        std::fclose(stdin);
        std::fclose(stdout);
        std::free(text_);
        stdin = in_;
        stdout = out_;
    }
    Streams(const Streams &) = delete;
    Streams &operator=(const Streams &) = delete;

    std::string printed() {
        std::fflush(stdout);
        return {text_, size_};
    }

  private:
    std::FILE *in_ = stdin;
    std::FILE *out_ = stdout;
    char *text_ = nullptr;
    std::size_t size_ = 0;
};

std::string answerTo(const std::string &method, const std::string &uri, const std::string &token,
                     std::string body) {
    setenv("REQUEST_METHOD", method.c_str(), 1);
    setenv("REQUEST_URI", uri.c_str(), 1);
    setenv("QUERY_STRING", uri.substr(std::min(uri.find('?'), uri.size() - 1) + 1).c_str(), 1);
    setenv("HTTP_SESSION", token.c_str(), 1);
    setenv("CONTENT_LENGTH", std::to_string(body.size()).c_str(), 1);
    Streams streams(body);
    const auto tree = httpdTreeCreate();
    require(tree != nullptr && registerRoutes(*tree), "routes can be registered");
    httpdProcessRequest(*tree);
    return streams.printed();
}

}  // namespace

// METHOD~URI~TOKEN~SESSION FILE~BODY, the file under the name "filesession".
void serveWebRequest(std::string_view input) {
    auto parts = partsOf(input, '~', 5);
    parts.resize(5);
    const std::string method(parts[0]), uri = "/" + std::string(parts[1]), token(parts[2]);
    SwitchRig rig;
    removeFiles(paths::kSessionDir);
    removeFiles(paths::kLogFile);
    mkdir(platform::fsPath(paths::kSessionDir).c_str(), S_IRWXU);
    writeFile(sessionPath("adminsession").c_str(), kAdminSession);
    writeFile(sessionPath("filesession").c_str(), parts[3]);
    writeFile("/tmp/outside", "admin\n0\n../outside");

    const std::string printed = answerTo(method, uri, token, std::string(parts[4]));
    endRequest();
    const std::string_view header = "Content-Type: application/json\r\n\r\n";
    require(
        printed.empty() || printed == "Status:403\r\n\r\n" ||
            (printed.starts_with(header) && isStrictJson(std::string_view(printed).substr(header.size()))),
        "an answer is nothing, a refusal or one JSON value", printed);
    require(readFile("/tmp/outside") == "admin\n0\n../outside", "no token leads out of the folder");
    const std::string admin = readFile(sessionPath("adminsession").c_str());
    require(admin == kAdminSession || token == "adminsession", "a session is used by its token alone", admin);
    restoreTemplates();
}

}  // namespace fuzz
