// The report on the devices that the families know (store/device_states.h): each family's thread says after each
// look whom it knows, and what has changed goes into the file.
//
// Any thread may call these. A report that cannot be written (logged) is taken away, so that nobody goes by an old one,
// and written with the next change, or a minute later. So is one that somebody has deleted. Detection does not depend
// on it.
#ifndef PAVO_DETECTION_DEVICE_REPORT_H
#define PAVO_DETECTION_DEVICE_REPORT_H

#include <source_location>
#include <string>
#include <vector>

#include "common/where.h"
#include "store/device_states.h"

namespace pavo {

// Replaces what was reported of that family; with nobody, the family has none.
void reportDevices(const std::string &family, std::vector<DeviceState> devices,
                   Where where = std::source_location::current());

// Writes a report without devices, in place of what an earlier daemon has left.
void beginDeviceReport(Where where = std::source_location::current());

}  // namespace pavo

#endif
