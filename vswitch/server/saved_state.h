// The configuration of the switch in a file, so that it comes back with it however it ended.
//
// What a request has changed is on disk before its reply goes out: written beside the file, renamed into
// place, file and folder synchronised. That holds for changes that are accepted and still pending, too: the
// file has the configuration as it is once they are in effect. The file is there whole or not at all; its
// first line has the length and a checksum of the rest, which is a script of CLI commands. While the file
// cannot be written, changes are answered all the same, the switch's log says so, and writing is tried again.
#ifndef PAVO_VSWITCH_SERVER_SAVED_STATE_H
#define PAVO_VSWITCH_SERVER_SAVED_STATE_H

#include <chrono>
#include <string>

#include "vswitch/server/server.h"

namespace vswitch {

class SavedState {
  public:
    // An empty path: nothing is kept.
    SavedState(Server &server, std::string path) : server_(server), path_(std::move(path)) {}

    // Applies what was kept; false when there is no file. What this switch refuses, one with fewer ports for
    // instance, is kept in `path`.refused. Throws std::runtime_error, with the reason, when the file cannot be
    // read or is damaged: it must not be mistaken for an empty one and overwritten. A script without a first
    // line of its own is taken if it is a whole running configuration.
    bool restore();

    // Writes the configuration when it differs from what the file has; to be called before a reply goes out,
    // and often. False when it could not be written.
    bool keep();

  private:
    std::string commands() const;
    bool replaceFile(const std::string &text) const;

    Server &server_;
    std::string path_, saved_;
    bool failing_ = false;
    std::chrono::steady_clock::time_point retryAt_{};
};

}  // namespace vswitch

#endif
