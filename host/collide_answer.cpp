#include "collide_answer.h"

#include <algorithm>
#include <cstdio>

#include "number_text.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::ordered_json;

/// Parts that the text names; JSON names all.
constexpr std::size_t most_named = 10;

std::string textOf(const contact& touch) {
    std::string text = "  a      " + validUtf8(touch.a->path) + "\n  b      " +
                       validUtf8(touch.b->path) + "\n  point ";
    for (::osg::UInt32 axis = 0; axis < 3; ++axis)
        text += " " + shortText(touch.point[axis]);
    return text + "\n";
}

std::string millisecondsOf(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", 1000.0 * seconds);
    return text;
}

std::string openText(const char* side, const std::vector<std::string>& paths) {
    if (paths.empty())
        return std::string();
    std::string text = std::string("open surfaces in ") + side +
                       ", where contacts can be missed: " + withCommas(paths.size()) + "\n";
    for (std::size_t i = 0; i < std::min(paths.size(), most_named); ++i)
        text += "  " + validUtf8(paths[i]) + "\n";
    if (paths.size() > most_named)
        text += "  and " + withCommas(paths.size() - most_named) + " more\n";
    return text;
}

ordered_json jsonOf(const named_part& part) {
    return {{"name", part.original_name.empty() ? ordered_json()
                                                : ordered_json(validUtf8(part.original_name))},
            {"path", validUtf8(part.path)}};
}

ordered_json jsonOf(const contact& touch) {
    ordered_json point = ordered_json::array();
    for (::osg::UInt32 axis = 0; axis < 3; ++axis)
        point.push_back(shortNumber(touch.point[axis]));
    return {{"a", jsonOf(*touch.a)}, {"b", jsonOf(*touch.b)}, {"point", point}};
}

ordered_json jsonOf(const std::vector<std::string>& paths) {
    ordered_json list = ordered_json::array();
    for (const std::string& path : paths)
        list.push_back(validUtf8(path));
    return list;
}

/// "contact", "2 contacts", "no contact", "no contact: B lies inside A".
std::string headOf(const collide_answer& answer) {
    if (answer.contacts.size() > 1)
        return withCommas(answer.contacts.size()) + " contacts";
    if (!answer.contacts.empty())
        return "contact";
    return std::string("no contact") + (answer.a_inside   ? ": A lies inside B"
                                        : answer.b_inside ? ": B lies inside A"
                                                          : "");
}

} // namespace

std::string textOf(const collide_answer& answer) {
    std::string text;
    if (answer.pose != 0)
        text = "pose " + std::to_string(answer.pose) + ", line " + std::to_string(answer.line) +
               ", " + millisecondsOf(answer.seconds) + ": ";
    text += headOf(answer) + "\n";
    for (const contact& touch : answer.contacts)
        text += textOf(touch);
    return text;
}

std::string openText(const collide_question& question) {
    return openText("A", question.a.open) + openText("B", question.b.open);
}

ordered_json jsonOf(const collide_question& question, const collide_answer& answer) {
    ordered_json json;
    if (answer.pose != 0) {
        json["pose"] = answer.pose;
        json["line"] = answer.line;
    }
    json["a"] = validUtf8(question.a.path);
    json["b"] = validUtf8(question.b.path);
    json["collided"] = !answer.contacts.empty();
    ordered_json contacts = ordered_json::array();
    for (const contact& touch : answer.contacts)
        contacts.push_back(jsonOf(touch));
    json["contacts"] = contacts;
    json["a_inside_b"] = answer.a_inside;
    json["b_inside_a"] = answer.b_inside;
    json["open_a"] = jsonOf(question.a.open);
    json["open_b"] = jsonOf(question.b.open);
    json["seconds"] = answer.seconds;
    return json;
}

} // namespace morva::host
