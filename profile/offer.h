// Which profile types this switch offers: some depend on its model, some on 802.1AS.
#ifndef PAVO_PROFILE_OFFER_H
#define PAVO_PROFILE_OFFER_H

#include <source_location>
#include <string_view>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo {

// Whether the SMPTE profile type is offered on a machine model; the second form on that of the switch, false
// when it cannot be read (logged).
bool smpteModelSupported(std::string_view model);
bool smpteModelSupported(Switch sw, Where where = std::source_location::current());

// What one switch offers, asked once.
class Offer {
  public:
    static Offer of(Switch sw, Where where = std::source_location::current());
    // The same; Failed when the machine model cannot be read (logged) instead of the offer of an unknown one.
    static Result<Offer> read(Switch sw, Where where = std::source_location::current());

    // Whether the template of that file name is one to show.
    bool hasTemplate(std::string_view file) const;

  private:
    static Offer ofModel(Switch sw, std::string_view model);

    bool avb_ = false;
    bool smpte_ = false;
    bool poly_ = false;
};

}  // namespace pavo

#endif
