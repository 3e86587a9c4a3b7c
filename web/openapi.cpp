#include <cctype>
#include <set>
#include <string_view>

#include "common/json.h"
#include "platform/version.h"
#include "web/routes.h"
#include "web/schemas.h"

namespace pavo {
namespace {

cJSON *refTo(const std::string &kind, const std::string &name) {
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "$ref", ("#/components/" + kind + "/" + name).c_str());
    return object;
}

// See Route::request.
cJSON *schemaOf(const std::string &schema) {
    if (schema.starts_with('{'))
        return cJSON_Parse(schema.c_str());
    if (!schema.ends_with("[]"))
        return refTo("schemas", schema);
    cJSON *const array = cJSON_CreateObject();
    cJSON_AddStringToObject(array, "type", "array");
    cJSON_AddItemToObject(array, "items", refTo("schemas", schema.substr(0, schema.size() - 2)));
    return array;
}

cJSON *jsonContent(cJSON *owner, cJSON *schema) {
    cJSON *const json =
        cJSON_AddObjectToObject(cJSON_AddObjectToObject(owner, "content"), "application/json");
    cJSON_AddItemToObject(json, "schema", schema);
    return json;
}

std::string methodOf(const Route &route) {
    std::string name = httpdMethodName(static_cast<std::uint32_t>(route.method));
    for (char &c : name)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

// "getProfileList".
std::string operationId(const Route &route) {
    std::string id = methodOf(route);
    bool isFirst = true;
    for (const char c : std::string_view(route.path).substr(std::string_view("/api/v2/").size())) {
        const bool isWord = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (isWord)
            id += isFirst ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        isFirst = !isWord;
    }
    return id;
}

// "profile" of "/api/v2/profile/list".
std::string tagOf(const Route &route) {
    const auto rest = std::string_view(route.path).substr(std::string_view("/api/v2/").size());
    return std::string(rest.substr(0, rest.find('/')));
}

// The envelope, with the data when the operation succeeded; or whole answers as they are.
cJSON *answerSchema(const Route &route) {
    const std::string envelope = "Envelope";
    if (route.answer == nullptr || route.answer == envelope)
        return refTo("schemas", envelope);
    cJSON *const schema = cJSON_CreateObject();
    cJSON *const parts = cJSON_AddArrayToObject(schema, route.key != nullptr ? "allOf" : "anyOf");
    cJSON_AddItemToArray(parts, refTo("schemas", envelope));
    if (route.key == nullptr) {
        cJSON_AddItemToArray(parts, schemaOf(route.answer));
        return schema;
    }
    cJSON *const own = cJSON_CreateObject();
    cJSON_AddItemToArray(parts, own);
    cJSON_AddItemToObject(cJSON_AddObjectToObject(own, "properties"), route.key, schemaOf(route.answer));
    return schema;
}

bool isStream(const Route &route) {
    return route.answer != nullptr && route.answer == std::string_view(kEventStream);
}

// The data of events; see web/event_ring.h.
constexpr const char *kStreamText =
    "Events until the session ends or the client goes; listening does not put the end of the session off. "
    "\"answer\": {\"name\"}. \"device\": {\"change\", \"old\", \"new\"}, change is joined, left or changed. "
    "\"link\": {\"ifNum\", \"old\", \"new\"}, up or down. \"missed\": there were events that are not known "
    "any "
    "more, read everything anew.";

void addParameters(cJSON *operation, const Route &route) {
    cJSON *const list = cJSON_AddArrayToObject(operation, "parameters");
    for (const Parameter &parameter : route.parameters) {
        cJSON *const item = cJSON_CreateObject();
        cJSON_AddItemToArray(list, item);
        cJSON_AddStringToObject(item, "name", parameter.name);
        cJSON_AddStringToObject(item, "in", "query");
        cJSON_AddBoolToObject(item, "required", parameter.required);
        cJSON_AddStringToObject(item, "description", parameter.what);
        cJSON_AddItemToObject(item, "schema", schemaOf(parameter.schema));
    }
    if (isStream(route))
        cJSON_AddItemToArray(list, refTo("parameters", "LastEventId"));
    else if (route.access != Access::Anyone)
        cJSON_AddItemToArray(list, refTo("parameters", "Refresh"));
}

std::string rightOf(const Route &route) {
    if (route.access == Access::Anyone)
        return "Needs no session.";
    if (route.access == Access::Administrator)
        return "For the user admin.";
    return route.method == HttpMethod::Get ? "For any user." : "For any user who may change something.";
}

std::string descriptionOf(const Route &route) {
    std::string text = rightOf(route);
    if (route.cached != nullptr)
        text += " At most " + std::to_string(route.maxAge.count()) +
                " s old, which the header Age tells; older only while the switch does not answer.";
    return text;
}

void addOperation(cJSON *path, const Route &route) {
    cJSON *const operation = cJSON_AddObjectToObject(path, methodOf(route).c_str());
    cJSON_AddStringToObject(operation, "operationId", operationId(route).c_str());
    cJSON_AddStringToObject(operation, "summary", route.summary);
    cJSON_AddStringToObject(operation, "description", descriptionOf(route).c_str());
    cJSON_AddItemToArray(cJSON_AddArrayToObject(operation, "tags"), cJSON_CreateString(tagOf(route).c_str()));
    cJSON *const security = cJSON_AddArrayToObject(operation, "security");
    if (route.access != Access::Anyone) {
        cJSON *const scheme = cJSON_CreateObject();
        cJSON_AddItemToArray(security, scheme);
        cJSON_AddArrayToObject(scheme, "session");
    }
    addParameters(operation, route);
    if (route.request != nullptr) {
        cJSON *const body = cJSON_AddObjectToObject(operation, "requestBody");
        cJSON_AddBoolToObject(body, "required", true);
        jsonContent(body, schemaOf(route.request));
    }
    cJSON *const responses = cJSON_AddObjectToObject(operation, "responses");
    cJSON *const answer = cJSON_AddObjectToObject(responses, "200");
    if (isStream(route)) {
        cJSON_AddStringToObject(answer, "description", kStreamText);
        cJSON *const stream =
            cJSON_AddObjectToObject(cJSON_AddObjectToObject(answer, "content"), kEventStream);
        cJSON_AddItemToObject(stream, "schema", schemaOf(R"({"type": "string"})"));
    } else {
        cJSON_AddStringToObject(answer, "description", "Done, or refused: \"resp\" tells.");
        jsonContent(answer, answerSchema(route));
    }
    if (route.access != Access::Anyone)
        cJSON_AddItemToObject(responses, "403", refTo("responses", "Forbidden"));
    cJSON_AddItemToObject(responses, "4XX", refTo("responses", "Refused"));
}

void addTags(cJSON *document) {
    std::set<std::string> tags;
    for (const Route &route : routes())
        tags.insert(tagOf(route));
    cJSON *const list = cJSON_AddArrayToObject(document, "tags");
    for (const auto &tag : tags) {
        cJSON *const item = cJSON_CreateObject();
        cJSON_AddItemToArray(list, item);
        cJSON_AddStringToObject(item, "name", tag.c_str());
        cJSON_AddStringToObject(item, "description", ("Everything below /api/v2/" + tag).c_str());
    }
}

constexpr const char *kInfo = R"({
"title": "pavo", "summary": "The device manager of a managed Ethernet switch for AV-over-IP.",
"description": "Log in by POST /api/v2/session and send the token in the header Session. A session ends two hours after its last request; a request with the header Refresh does not count. Answers with status 200 say in resp.status whether the operation succeeded. Within a query, a slash is written %2F.",
"contact": {"name": "The administrator of this switch"}, "license": {"name": "All rights reserved", "identifier": "LicenseRef-All-Rights-Reserved"}})";

// Spaces instead of the tabs that cJSON sets: some readers of YAML, which JSON is a part of, take no tabs. Within
// strings, a tab is an escape.
std::string withoutTabs(const std::string &json) {
    std::string text;
    for (const char c : json)
        if (c != '\t')
            text += c;
        else
            text += text.ends_with(':') ? " " : "  ";
    return text;
}

constexpr const char *kComponents = R"({
"securitySchemes": {"session": {"type": "apiKey", "in": "header", "name": "Session", "description": "The token of a session."}},
"parameters": {"Refresh": {"name": "Refresh", "in": "header", "required": false, "description": "A poll, which does not put the end of the session off.", "schema": {"type": "string"}},
"LastEventId": {"name": "Last-Event-ID", "in": "header", "required": false, "description": "The id of the last event that was received: those since then come first.", "schema": {"type": "string"}}},
"responses": {
"Forbidden": {"description": "No session, or one without the right to this."},
"Refused": {"description": "Not a request that the web server passes on."}}})";

}  // namespace

std::string openApiDocument() {
    const JsonPtr document(cJSON_CreateObject());
    cJSON_AddStringToObject(document.get(), "openapi", "3.1.0");
    JsonPtr info(cJSON_Parse(kInfo));
    cJSON_AddStringToObject(info.get(), "version", pavoVersion());
    addItem(document.get(), "info", std::move(info));
    JsonPtr server(cJSON_Parse(R"([{"url": "/", "description": "The switch."}])"));
    addItem(document.get(), "servers", std::move(server));
    addTags(document.get());
    cJSON *const paths = cJSON_AddObjectToObject(document.get(), "paths");
    for (const Route &route : routes()) {
        cJSON *path = cJSON_GetObjectItemCaseSensitive(paths, route.path);
        if (path == nullptr)
            path = cJSON_AddObjectToObject(paths, route.path);
        addOperation(path, route);
    }
    JsonPtr components(cJSON_Parse(kComponents));
    addItem(components.get(), "schemas", parseSchemas());
    addItem(document.get(), "components", std::move(components));
    return withoutTabs(printJson(document.get()));
}

}  // namespace pavo
