// A registration with the switch OS for as long as it lives. Belongs to one thread; the Switch it gives out
// may be used by any.
#ifndef PAVO_SWAPI_SWITCH_CLIENT_H
#define PAVO_SWAPI_SWITCH_CLIENT_H

#include <string>

#include "swapi/switch.h"

namespace pavo {

class SwitchClient {
  public:
    // Registers as "NAME_PID" and asks once whether the switch OS answers.
    explicit SwitchClient(const std::string &name);
    ~SwitchClient();
    SwitchClient(const SwitchClient &) = delete;
    SwitchClient &operator=(const SwitchClient &) = delete;

    bool isConnected() const { return connected_; }
    Switch get() { return &handle_; }

  private:
    openapiClientHandle_t handle_{};
    bool registered_ = false;
    bool connected_ = false;
};

}  // namespace pavo

#endif
