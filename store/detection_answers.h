// What the web interface asks of device detection. As with producers (store/producers.h), the folder that
// answers is not one that the asking folder may use: a program that calls these links detection.
//
// Any thread may call them. Failures are logged.
#ifndef PAVO_STORE_DETECTION_ANSWERS_H
#define PAVO_STORE_DETECTION_ANSWERS_H

#include <string>

#include "common/result.h"
#include "platform/open_client.h"

namespace pavo {

// The devices that the daemon knows and those that nobody looks after, as JSON:
//   [{"family", "address", "vendor"?, "ifNum"?, "vlanId"?, "state", "missed"?, "missedMax"?, "reason"?}, ...]
// Failed without a daemon, while it has not reported anything, and when the forwarding table cannot be read to
// its end.
Result<std::string> devicesAnswer(openapiClientHandle_t *client);

// {"enabled": bool, "factoryDefault": bool}: whether a Nice device may make a profile, and whether there is
// none yet.
Result<std::string> niceAnswer();
Result<> setNiceEnabled(bool enabled);

}  // namespace pavo

#endif
