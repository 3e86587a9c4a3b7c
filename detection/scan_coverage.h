// What a scan of the switch could see and what it could not: a read that failed is no absence.
#ifndef PAVO_DETECTION_SCAN_COVERAGE_H
#define PAVO_DETECTION_SCAN_COVERAGE_H

#include "common/if_num.h"

namespace pavo {

struct ScanCoverage {
    bool isWhole = true;  // false: a table could not be read to its end
    PortSet unread;       // ports that could not be looked at

    // Whether a device on that port would have been seen; IfNum(): on whatever port.
    bool covers(IfNum port) const { return isWhole && (port ? !unread.contains(port) : unread.empty()); }
};

}  // namespace pavo

#endif
