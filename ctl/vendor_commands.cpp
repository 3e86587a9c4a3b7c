#include "ctl/vendor_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "common/mac.h"
#include "common/text.h"
#include "store/vendors.h"

namespace pavo::ctl {
namespace {

// "00-1b-92" as "00:1B:92". Throws CLI::ValidationError.
std::string prefixOf(const std::string &address) {
    std::string text = address;
    std::ranges::replace(text, '-', ':');
    std::ranges::transform(text, text.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    const bool isPrefix = text.size() == OUI_PREFIX_LENGTH;
    if (!Mac::parse(isPrefix ? text + ":00:00:00" : text))
        throw CLI::ValidationError("mac",
                                   quoteText(address) + " is not a MAC address or its first three octets");
    return text.substr(0, OUI_PREFIX_LENGTH);
}

}  // namespace

void showVendor(const Output &output, const std::string &address) {
    const std::string prefix = prefixOf(address);
    const auto match = findVendor(prefix);
    if (!match)
        throw Failure{ResultCode::Failed, "the vendor database cannot be read"};
    if (match->rows == 0)
        throw Failure{ResultCode::NotExist, "no vendor has registered " + prefix};
    if (!output.json) {
        std::puts(printable(match->vendor).c_str());
        return;
    }
    const JsonPtr answer(cJSON_CreateObject());
    cJSON_AddStringToObject(answer.get(), "prefix", prefix.c_str());
    cJSON_AddStringToObject(answer.get(), "vendor", wellFormed(match->vendor).c_str());
    printEnvelope(ResultCode::Success, "vendor", printJson(answer.get()).c_str());
}

}  // namespace pavo::ctl
