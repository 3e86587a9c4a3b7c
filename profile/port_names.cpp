#include "profile/port_names.h"

#include <cstdint>

namespace pavo {

OpenResult<std::string> PortNames::find(IfNum ifNum) {
    if (const auto known = names_.find(ifNum); known != names_.end())
        return known->second;
    const auto type = sw_.interfaceType(ifNum);
    if (!type)
        return std::unexpected(type.error());
    std::string name;
    if (*type == static_cast<std::uint32_t>(IfType::Port)) {
        name = portCliName(ifNum);
    } else if (*type == static_cast<std::uint32_t>(IfType::Lag)) {
        if (!lags_) {
            const auto numbering = sw_.lagNumbering();
            if (!numbering)
                return std::unexpected(numbering.error());
            lags_ = *numbering;
        }
        name = lagCliName(lags_->numberOf(ifNum));
    } else {
        return std::unexpected(OpenError::NotFound);
    }
    return names_.emplace(ifNum, std::move(name)).first->second;
}

}  // namespace pavo
