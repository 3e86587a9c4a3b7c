// The producers of store/producers.h about ports and LAGs; web/port_answers.h says what they answer.
#include <source_location>

#include "common/result.h"
#include "store/producers.h"
#include "web/answer_builder.h"
#include "web/port_answers.h"

namespace pavo {
namespace {

// Reads by read(switch) and makes the answer of it.
template <class Read, class Make>
std::int32_t answer(openapiClientHandle_t *client, char **json, const Where &where, Read read, Make make) {
    if (!canAnswer(client, json, where))
        return codeOf(ResultCode::InvalidArgument);
    const auto facts = read(Switch(client));
    return facts ? handOutText(make(*facts), json, where) : codeOf(facts);
}

std::int32_t answerPorts(openapiClientHandle_t *client, char **json, const FactsWanted &wanted,
                         const Where &where) {
    return answer(
        client, json, where, [&](Switch sw) { return readPortFacts(sw, wanted, where); }, portsAnswer);
}

std::int32_t answerLags(openapiClientHandle_t *client, char **json, const FactsWanted &wanted,
                        const Where &where) {
    return answer(
        client, json, where, [&](Switch sw) { return readLagFacts(sw, wanted, where); }, lagsAnswer);
}

}  // namespace

std::int32_t getPhyInfAllStatusFast(openapiClientHandle_t *client, char **json) {
    return answerPorts(client, json,
                       {.settings = true, .status = true, .counts = true, .hardware = true, .lag = true},
                       std::source_location::current());
}

std::int32_t getPortStatusListFast(openapiClientHandle_t *client, char **json) {
    return answerPorts(client, json, {.status = true, .lag = true}, std::source_location::current());
}

std::int32_t getPortsSettings(openapiClientHandle_t *client, char **json) {
    return answerPorts(client, json, {.settings = true, .hardware = true, .lag = true},
                       std::source_location::current());
}

std::int32_t interfacesStatusBuild(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    if (!canAnswer(client, json, where))
        return codeOf(ResultCode::InvalidArgument);
    const auto ports = readPortFacts(client, {.status = true, .counts = true, .lag = true}, where);
    if (!ports)
        return codeOf(ports);
    const auto lags = readLagFacts(client, {.status = true, .counts = true}, where);
    return lags ? handOutText(interfacesAnswer(*ports, *lags), json, where) : codeOf(lags);
}

std::int32_t getLagInfoList(openapiClientHandle_t *client, char **json) {
    return answerLags(client, json, {.status = true}, std::source_location::current());
}

std::int32_t getLagInfoListEx(openapiClientHandle_t *client, char **json) {
    return answerLags(client, json, {.settings = true, .status = true, .counts = true},
                      std::source_location::current());
}

std::int32_t getAutoLagCfg(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    return answer(client, json, where, [&](Switch sw) { return readAutoLag(sw, where); }, autoLagAnswer);
}

std::int32_t manualTrunkGet(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    return answer(client, json, where, [&](Switch) { return loadManualTrunks(where); }, manualTrunksAnswer);
}

std::int32_t switchTrunkModeGet(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    return answer(client, json, where, [&](Switch sw) { return readTrunkFacts(sw, where); }, trunksAnswer);
}

std::int32_t getPortMirroring(openapiClientHandle_t *client, std::int32_t detail, char **json) {
    const Where where = std::source_location::current();
    return answer(
        client, json, where, [&](Switch sw) { return readMirrorTable(sw, detail == 1, where); },
        mirrorsAnswer);
}

std::int32_t portHardwareInfoBuild(openapiClientHandle_t *client, char **json) {
    return answerPorts(client, json, {.hardware = true}, std::source_location::current());
}

std::int32_t fiberOpticsGet(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    return answer(client, json, where, [&](Switch sw) { return readSfpFacts(sw, where); }, opticsAnswer);
}

}  // namespace pavo
