// What routes do, see web/routes.h: each returns the data of its answer as JSON, empty for none, or throws a
// Failure. Requests go to the operations as they came; these refuse what they do not understand.
#ifndef PAVO_WEB_ROUTE_HANDLERS_H
#define PAVO_WEB_ROUTE_HANDLERS_H

#include <string>

#include "web/request.h"

namespace pavo::handlers {

// The answer that the row names as `cached`, as it is now.
std::string cachedAnswer(const WebCall &call);

std::string openSession(const WebCall &call);
std::string showSession(const WebCall &call);
std::string closeSession(const WebCall &call);
std::string openApi(const WebCall &call);

std::string profileTypes(const WebCall &call);
std::string createTemplate(const WebCall &call);
std::string editTemplate(const WebCall &call);
std::string deleteTemplate(const WebCall &call);
std::string showProfile(const WebCall &call);
std::string profileStatus(const WebCall &call);
std::string planProfile(const WebCall &call);
std::string applyProfile(const WebCall &call);
std::string deleteProfile(const WebCall &call);

std::string listVlans(const WebCall &call);
std::string createVlans(const WebCall &call);
std::string deleteVlans(const WebCall &call);
std::string showVlan(const WebCall &call);
std::string showVlanName(const WebCall &call);
std::string nameVlan(const WebCall &call);
std::string showProfileVlan(const WebCall &call);
std::string createNamedVlan(const WebCall &call);
std::string setParticipation(const WebCall &call);
std::string setAcceptFrames(const WebCall &call);
std::string setPvid(const WebCall &call);
std::string setTagging(const WebCall &call);
std::string showSwitchportMode(const WebCall &call);
std::string setSwitchportMode(const WebCall &call);

std::string setPortSpeed(const WebCall &call);
std::string setManagementAddress(const WebCall &call);

std::string neighbours(const WebCall &call);
std::string devices(const WebCall &call);
std::string vendor(const WebCall &call);
std::string multicastGroups(const WebCall &call);
std::string cacheMulticastGroups(const WebCall &call);
std::string setMulticastModes(const WebCall &call);
std::string setDenyList(const WebCall &call);
std::string removeMulticastRouter(const WebCall &call);
std::string nice(const WebCall &call);
std::string setNice(const WebCall &call);

// The resident program sends them; a process for each request cannot.
std::string events(const WebCall &call);

std::string logTail(const WebCall &call);
std::string logLevel(const WebCall &call);
std::string setLogLevel(const WebCall &call);
std::string listCache(const WebCall &call);
std::string readCache(const WebCall &call);
std::string refreshCache(const WebCall &call);
std::string deleteFromCache(const WebCall &call);

}  // namespace pavo::handlers

#endif
