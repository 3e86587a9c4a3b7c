#include "profile/offer.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>

#include "store/profile_template.h"
#include "store/profile_types.h"
#include "swapi/features.h"
#include "swapi/models.h"

namespace pavo {
namespace {

bool polyModelSupported(std::string_view model) {
    // Its variants add to the name.
    return std::any_of(std::begin(kSwitchModels), std::end(kSwitchModels), [&](const SwitchModel &known) {
        return known.poly && model.find(known.machineModel) != std::string_view::npos;
    });
}

}  // namespace

bool smpteModelSupported(std::string_view model) {
    return std::any_of(std::begin(kSwitchModels), std::end(kSwitchModels),
                       [&](const SwitchModel &known) { return known.smpte && known.machineModel == model; });
}

bool smpteModelSupported(Switch sw, Where where) {
    return smpteModelSupported(std::string_view(readMachineModel(sw, where).value_or("")));
}

Offer Offer::of(Switch sw, Where where) {
    return ofModel(sw, readMachineModel(sw, where).value_or(""));
}

Result<Offer> Offer::read(Switch sw, Where where) {
    if (const auto model = readMachineModel(sw, where))
        return ofModel(sw, *model);
    return failed(ResultCode::Failed, "the machine model cannot be read");
}

Offer Offer::ofModel(Switch sw, std::string_view model) {
    Offer offer;
    std::int32_t supported = 0;
    offer.avb_ = featureSupportedGet(sw, FEATURE_DOT1AS, &supported) == 0 && supported != 0;
    offer.smpte_ = smpteModelSupported(model);
    offer.poly_ = polyModelSupported(model);
    return offer;
}

bool Offer::hasTemplate(std::string_view file) const {
    if (file == "." || file == "..")
        return false;
    for (const char *const type :
         {PROFILE_TYPE_NAME_AVB, PROFILE_TYPE_NAME_MILAN, PROFILE_TYPE_NAME_MILAN_DANTE})
        if (file == profileTemplateFileName(type))
            return avb_;
    if (file == profileTemplateFileName(PROFILE_TYPE_NAME_SMPTE))
        return smpte_;
    return file != PROFILE_TEMPLATE_FILE_POLY || poly_;
}

}  // namespace pavo
