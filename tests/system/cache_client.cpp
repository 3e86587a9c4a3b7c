// One user of the response cache, for tests/system/cache_test.py: does what its arguments say, and has one
// producer.
//
//   create | write NAME TEXT | read NAME    prints the result, and the text
//   fill NAME BYTES                writes a text of that length
//   refresh NAME                   prints the result
//   lock NAME                      prints "locked" and holds it until standard input ends
//   alternate NAME BYTES COUNT     writes a text of a's and one of b's in turn
//   watch NAME BYTES               reads until standard input ends; prints how often what was seen
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "common/json.h"
#include "common/log.h"
#include "platform/paths.h"
#include "store/producers.h"
#include "store/response_cache_ops.h"
#include "store/writeback.h"

namespace {

// A line of its own in the record of what the producers did.
void note(const std::string &what) {
    const std::string line = what + " " + std::to_string(getpid()) + "\n";
    const int fd =
        open(platform::fsPath("/tmp/producers").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0 || write(fd, line.data(), line.size()) < 0)
        std::perror("producers");
    close(fd);
}

bool inputHasEnded() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) > 0;
}

void print(const std::string &text) {
    std::puts(text.c_str());
    std::fflush(stdout);
}

int readAnswer(const std::string &name, std::string &out) {
    char *text = nullptr;
    const int result = pavo::restapi_db_read(name.c_str(), &text);
    const pavo::TextPtr owned(text);
    out = text != nullptr ? text : "";
    return result;
}

void watch(const std::string &name, std::size_t size) {
    std::map<std::string, int> seen;
    print("watching");
    while (!inputHasEnded()) {
        std::string text;
        const int result = readAnswer(name, text);
        const bool whole = text.size() == size && text.find_first_not_of(text[0]) == std::string::npos;
        ++seen[result != 0 ? std::to_string(result) : whole ? text.substr(0, 1) : "torn"];
    }
    std::string out;
    for (const auto &[what, count] : seen)
        out += what + "=" + std::to_string(count) + " ";
    print(out);
}

int run(const std::vector<std::string> &words) {
    using namespace pavo;
    const std::string command = words.at(0);
    const std::string name = words.size() > 1 ? words[1] : "";
    const std::string last = words.size() > 2 ? words[2] : "";
    if (command == "create") {
        print(std::to_string(restapi_db_operation(REST_DB_CREATE, nullptr, nullptr)));
    } else if (command == "write") {
        print(std::to_string(restapi_db_operation(REST_DB_WRITE, name.c_str(), last.c_str())));
    } else if (command == "fill") {
        const std::string text(std::stoul(last), 'x');
        print(std::to_string(restapi_db_operation(REST_DB_WRITE, name.c_str(), text.c_str())));
    } else if (command == "read") {
        std::string text;
        const int result = readAnswer(name, text);
        print(std::to_string(result) + " " + text);
    } else if (command == "refresh") {
        openapiClientHandle_t client{};
        print(std::to_string(rest_db_writeback(&client, name.c_str())));
    } else if (command == "lock") {
        int fd = -1;
        if (rest_db_lock_acquire(name.c_str(), &fd) != 0)
            return 1;
        print("locked");
        while (!inputHasEnded())
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        rest_db_lock_release(fd);
    } else if (command == "alternate") {
        for (int i = 0; i < std::stoi(words.at(3)); ++i) {
            const std::string text(std::stoul(last), i % 2 == 0 ? 'a' : 'b');
            if (const int result = restapi_db_operation(REST_DB_WRITE, name.c_str(), text.c_str());
                result != REST_DB_WRITTEN)
                print(std::to_string(result));
        }
    } else if (command == "watch") {
        watch(name, std::stoul(last));
    } else {
        return 2;
    }
    return 0;
}

}  // namespace

namespace pavo {

// Takes as long as there is a file "/tmp/wait".
std::int32_t systemInfoGet(openapiClientHandle_t *, char **json) {
    note("begin");
    while (access(platform::fsPath("/tmp/wait").c_str(), F_OK) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    *json = strdup(("{\"by\":" + std::to_string(getpid()) + "}").c_str());
    note("end");
    return 0;
}

}  // namespace pavo

int main(int argc, char **argv) try {
    pavo::devmgrLogOpen(pavo::LOG_SINK_FILE, pavo::LOG_FACILITY_USER, "cache_client");
    const int status = run({argv + 1, argv + argc});
    pavo::devmgrLogClose();
    return status;
} catch (const std::exception &e) {
    std::fprintf(stderr, "cache_client: %s\n", e.what());
    return 2;
}
