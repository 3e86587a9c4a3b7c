#include "store/hosts_ops.h"

#include "common/text.h"

namespace pavo {
namespace {

const char *orEmpty(const char *text) {
    return text != nullptr ? text : "";
}

}  // namespace

int hostTableCreate() {
    return codeOf(createHostTable());
}

int macToHostReplace(const char *mac, const char *hostName) {
    return codeOf(replaceHost(orEmpty(mac), orEmpty(hostName)));
}

int hostSelectByMac(const char *mac, char hostName[HOST_NAME_SIZE]) {
    const auto match = findHost(orEmpty(mac));
    if (!match || match->rows == 0)
        return 0;
    if (hostName != nullptr)
        copyText(*reinterpret_cast<char(*)[HOST_NAME_SIZE]>(hostName), match->name);
    return match->rows;
}

int hostDeleteByMac(const char *mac) {
    const auto done = deleteHost(orEmpty(mac));
    return done || done.error().opened ? codeOf(done) : 0;  // no database: nothing left to delete
}

}  // namespace pavo
