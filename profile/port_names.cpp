#include "profile/port_names.h"

#include <charconv>
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

std::optional<IfNum> PortNames::ifNumOf(const std::string &name) {
    const bool lag = name.starts_with("lag ");
    const std::string digits = name.size() > 2 ? name.substr(lag ? 4 : 2) : "";
    std::uint32_t number = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if ((!lag && !name.starts_with("0/")) || read.ec != std::errc() ||
        read.ptr != digits.data() + digits.size())
        return std::nullopt;
    if (!lag)
        return IfNum(number);
    if (!lags_) {
        const auto numbering = sw_.lagNumbering();
        if (!numbering)
            return std::nullopt;
        lags_ = *numbering;
    }
    return lags_->interfaceOf(number);
}

}  // namespace pavo
