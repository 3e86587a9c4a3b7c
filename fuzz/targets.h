// The fuzz targets: one for each kind of text or bytes that comes from outside. A target gives its input to
// every parser of that kind, and checks what has to hold of any input: besides not to crash, that what is
// printed is read back, that sizes are kept, that answers parse in a strict parser.
//
// A target is a function and a row of kTargets. Its seeds are the files of fuzz/corpus/NAME: small ones from
// tests and from what the virtual switch prints, and every input that has ever found something. They are run
// by libFuzzer (fuzzer.cpp, ./fuzz.sh) and as a test (replay.cpp).
//
// Targets run one at a time, under a private root and on the manual clock. Each run starts from the same state.
#ifndef PAVO_FUZZ_TARGETS_H
#define PAVO_FUZZ_TARGETS_H

#include <string_view>

namespace fuzz {

// What the program reads.
void readStrings(std::string_view input);
void readShowCaptures(std::string_view input);
void readRunningConfig(std::string_view input);
void readStoredFiles(std::string_view input);
void readProfileRequest(std::string_view input);
void readTelnetReply(std::string_view input);
void readDeltaFile(std::string_view input);

// What its operations do with it, on a virtual switch.
void operateProfiles(std::string_view input);
void operateTemplates(std::string_view input);
void operateVlans(std::string_view input);
void detectNeighbours(std::string_view input);
void serveWebRequest(std::string_view input);

// What the virtual switch reads.
void runSwitchScript(std::string_view input);
void serveFrames(std::string_view input);
void serveControl(std::string_view input);
void restoreSavedState(std::string_view input);
void takeReadings(std::string_view input);
void hearIgmpFrames(std::string_view input);
void readOpenFlow(std::string_view input);
void serveTelnet(std::string_view input);

struct Target {
    std::string_view name;
    void (*run)(std::string_view input);
};

inline constexpr Target kTargets[] = {
    {"strings", readStrings},
    {"show_captures", readShowCaptures},
    {"running_config", readRunningConfig},
    {"stored_files", readStoredFiles},
    {"profile_request", readProfileRequest},
    {"telnet_reply", readTelnetReply},
    {"delta_file", readDeltaFile},
    {"profiles", operateProfiles},
    {"templates", operateTemplates},
    {"vlans", operateVlans},
    {"neighbours", detectNeighbours},
    {"web_request", serveWebRequest},
    {"switch_script", runSwitchScript},
    {"switch_wire", serveFrames},
    {"switch_control", serveControl},
    {"switch_state", restoreSavedState},
    {"switch_readings", takeReadings},
    {"switch_igmp", hearIgmpFrames},
    {"switch_openflow", readOpenFlow},
    {"switch_telnet", serveTelnet},
};

}  // namespace fuzz

#endif
