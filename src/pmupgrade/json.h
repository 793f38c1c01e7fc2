// Reading JSON that may be anything: what is not there, or is of another kind, is empty.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

/// In the order in which it is written, as the other programs do.
using Json = nlohmann::ordered_json;

/// Null if the text is no JSON.
inline Json parseJson(const std::string& text)
{
    Json json = Json::parse(text, nullptr, false);
    return json.is_discarded() ? Json(nullptr) : json;
}

/// A member of an object; null if it is none, or has no such member.
inline const Json& memberOf(const Json& object, const char* name)
{
    static const Json NOTHING = nullptr;
    const auto found = object.is_object() ? object.find(name) : object.end();
    return object.is_object() && found != object.end() ? *found : NOTHING;
}

inline std::optional<std::string> textOf(const Json& object, const char* name)
{
    const Json& member = memberOf(object, name);
    return member.is_string() ? std::optional(member.get<std::string>()) : std::nullopt;
}

inline std::optional<double> numberOf(const Json& object, const char* name)
{
    const Json& member = memberOf(object, name);
    return member.is_number() ? std::optional(member.get<double>()) : std::nullopt;
}

inline std::optional<bool> flagOf(const Json& object, const char* name)
{
    const Json& member = memberOf(object, name);
    return member.is_boolean() ? std::optional(member.get<bool>()) : std::nullopt;
}

/// The text of an object, a member a line, whatever bytes are in it.
inline std::string textOfJson(const Json& json)
{
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}
