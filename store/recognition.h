// The vendors that detection recognises, in a file for the web interface: {"5": "harman", "6": "audac"}, the keys are
// interface numbers. A port with several devices has a key for each, in the order of the forwarding table.
#ifndef PAVO_STORE_RECOGNITION_H
#define PAVO_STORE_RECOGNITION_H

#include <source_location>
#include <span>
#include <string>
#include <vector>

#include "common/if_num.h"
#include "common/where.h"

namespace pavo {

struct RecognisedVendor {
    IfNum port;
    std::string vendor;

    bool operator==(const RecognisedVendor &) const = default;
};

// What does not make sense is passed over.
std::vector<RecognisedVendor> parseRecognition(const std::string &text);
// Empty when memory runs out.
std::string printRecognition(std::span<const RecognisedVendor> vendors);

// What the daemon has written last; nobody when there is no file. Any thread may call this.
std::vector<RecognisedVendor> readRecognition(Where where = std::source_location::current());

}  // namespace pavo

#endif
