#include "swapi/switch_client.h"

#include <unistd.h>

namespace pavo {

SwitchClient::SwitchClient(const std::string &name) {
    const auto clientName = name + "_" + std::to_string(getpid());
    registered_ = openapiClientRegister(clientName.c_str(), &handle_) == OPEN_E_NONE;
    connected_ = registered_ && get().checkConnectivity();
}

SwitchClient::~SwitchClient() {
    if (registered_)
        openapiClientTearDown(&handle_);
}

}  // namespace pavo
