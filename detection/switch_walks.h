// Walks over the switch's tables, as the detection threads make them every cycle.
//
// A walk ends with the table, or when the switch does not advance: a thread must not hang on an answer.
#ifndef PAVO_DETECTION_SWITCH_WALKS_H
#define PAVO_DETECTION_SWITCH_WALKS_H

#include <array>
#include <cstdint>
#include <cstring>

#include "detection/profile_config.h"
#include "platform/open_client.h"

// visit(ifNum) for every LLDP-capable interface, ascending, until it returns false.
template <class Visit>
void lldpIntfForEach(openapiClientHandle_t *client, Visit visit) {
    std::uint32_t ifNum = 0;
    std::uint32_t next = 0;
    while (rpcclt_openapiLldpIntfNextGet(client, ifNum, &next) == OPEN_E_NONE && next > ifNum) {
        ifNum = next;
        if (!visit(ifNum))
            return;
    }
}

// visit(ifNum) for every LAG interface, ascending, until it returns false.
template <class Visit>
void lagForEach(openapiClientHandle_t *client, Visit visit) {
    std::uint32_t ifNum = 0;
    std::uint32_t next = 0;
    while (rpcclt_openapiIfNextGet(client, OPEN_INTF_TYPE_LAG, ifNum, &next) == OPEN_E_NONE && next > ifNum) {
        ifNum = next;
        if (!visit(ifNum))
            return;
    }
}

// visit(mac, ifNum) for every entry of the forwarding database. The MAC text is valid during the call.
template <class Visit>
void fdbForEach(openapiClientHandle_t *client, Visit visit) {
    char mac[100] = {};
    char lastMac[sizeof mac] = {};
    std::uint32_t vlanId = 0;
    std::uint32_t lastVlanId = 0;
    for (;;) {
        open_buffdesc macText{sizeof mac, mac};
        std::uint32_t ifNum = 0;
        std::uint32_t entryType = 0;
        if (rpcclt_openapiFdbEntryNextGet(client, &macText, &vlanId, &ifNum, &entryType) != OPEN_E_NONE)
            return;
        mac[sizeof mac - 1] = '\0';
        if (vlanId == lastVlanId && std::strcmp(mac, lastMac) == 0)
            return;
        std::memcpy(lastMac, mac, std::strlen(mac) + 1);
        lastVlanId = vlanId;
        visit(static_cast<const char *>(mac), ifNum);
    }
}

// Which ports are physical, for the time of one scan: a port is asked about once, unless the switch fails to
// answer.
class PhysicalPorts {
  public:
    explicit PhysicalPorts(openapiClientHandle_t *client) : client_(client) {}

    // False also when the switch does not answer. `ifNum` is below PORT_TABLE_SIZE.
    bool contains(std::uint32_t ifNum) {
        if (answers_[ifNum] == Answer::none) {
            std::uint32_t type = 0;
            if (openapiIfTypeGet(client_, ifNum, &type) != OPEN_E_NONE)
                return false;
            answers_[ifNum] = type == OPEN_INTF_TYPE_PHY ? Answer::physical : Answer::other;
        }
        return answers_[ifNum] == Answer::physical;
    }

  private:
    enum class Answer : std::uint8_t { none, physical, other };
    openapiClientHandle_t *client_;
    std::array<Answer, PORT_TABLE_SIZE> answers_{};
};

#endif
