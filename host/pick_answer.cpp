#include "pick_answer.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "number_text.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::ordered_json;

std::string shown(const std::string& name) { return name.empty() ? "-" : validUtf8(name); }

template <typename Three> std::string shown(const Three& numbers) {
    return shortText(numbers[0]) + " " + shortText(numbers[1]) + " " + shortText(numbers[2]);
}

template <typename Three> ordered_json listOf(const Three& numbers) {
    return {shortNumber(numbers[0]), shortNumber(numbers[1]), shortNumber(numbers[2])};
}

ordered_json nameOrNull(const std::string& name) {
    return name.empty() ? ordered_json() : ordered_json(validUtf8(name));
}

/// One line of the text: a title and what to say of a hit.
struct answer_line {
    const char* title;
    std::string (*textOf)(const pick_answer&);
};

const std::array<answer_line, 8> lines = {{
    {"part", [](const pick_answer& hit) { return shown(hit.part.name); }},
    {"path", [](const pick_answer& hit) { return shown(hit.part.path); }},
    {"core", [](const pick_answer& hit) { return shown(hit.part.core); }},
    {"point", [](const pick_answer& hit) { return shown(hit.point); }},
    {"normal", [](const pick_answer& hit) { return shown(hit.normal); }},
    {"distance", [](const pick_answer& hit) { return shortText(hit.distance); }},
    {"triangle", [](const pick_answer& hit) { return std::to_string(hit.triangle); }},
    {"side", [](const pick_answer& hit) { return std::string(hit.back_face ? "back" : "front"); }},
}};

std::string lineOf(const std::string& title, const std::string& text) {
    return title + std::string(title.size() < 9 ? 10 - title.size() : 1, ' ') + text + "\n";
}

std::string lineOf(const std::string& title, const std::string& left, const std::string& right) {
    return lineOf(title, left + std::string(left.size() < 39 ? 40 - left.size() : 1, ' ') + right);
}

/// "hit 2 of 3" where there are several, or nothing.
std::string headOf(std::size_t hit, std::size_t hits) {
    if (hits < 2)
        return std::string();
    return "hit " + std::to_string(hit + 1) + " of " + std::to_string(hits) + "\n";
}

ordered_json jsonOf(const pick_answer& hit) {
    ordered_json json = {{"name", nameOrNull(hit.part.name)}, {"path", nameOrNull(hit.part.path)}};
    if (!hit.part.core.empty())
        json["core"] = validUtf8(hit.part.core);
    json["point"] = listOf(hit.point);
    json["normal"] = listOf(hit.normal);
    json["distance"] = shortNumber(hit.distance);
    json["triangle"] = hit.triangle;
    json["back_face"] = hit.back_face;
    return json;
}

} // namespace

bool answer_pair::samePart() const {
    return std::equal(file.begin(), file.end(), result.begin(), result.end(),
                      [](const pick_answer& a, const pick_answer& b) {
                          return !a.part.path.empty() && a.part.path == b.part.path;
                      });
}

std::string textOf(const ray_answers& answers) {
    if (answers.empty())
        return "no hit\n";
    std::string text;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        text += headOf(i, answers.size());
        for (const answer_line& line : lines) {
            if (line.title != std::string("core") || !answers[i].part.core.empty())
                text += lineOf(line.title, line.textOf(answers[i]));
        }
    }
    return text;
}

std::string textOf(const answer_pair& answers) {
    const std::size_t hits = std::max(answers.file.size(), answers.result.size());
    if (hits == 0)
        return "no hit\n";
    std::string text;
    for (std::size_t i = 0; i < hits; ++i) {
        const auto in = [i](const ray_answers& list, const answer_line& line) {
            return i < list.size() ? line.textOf(list[i]) : std::string("no hit");
        };
        text += headOf(i, hits) + lineOf("", "in the file", "in the result");
        for (const answer_line& line : lines)
            text += lineOf(line.title, in(answers.file, line), in(answers.result, line));
    }
    return text + (answers.samePart() ? "the same part\n" : "not the same part\n");
}

ordered_json jsonOf(const ray_answers& answers, bool all) {
    if (answers.empty())
        return ordered_json();
    if (!all)
        return jsonOf(answers.front());
    ordered_json hits = ordered_json::array();
    for (const pick_answer& hit : answers)
        hits.push_back(jsonOf(hit));
    return {{"hits", hits}};
}

ordered_json jsonOf(const answer_pair& answers, bool all) {
    if (answers.file.empty() && answers.result.empty())
        return ordered_json();
    return {{"file", jsonOf(answers.file, all)},
            {"result", jsonOf(answers.result, all)},
            {"same_part", answers.samePart()}};
}

} // namespace morva::host
