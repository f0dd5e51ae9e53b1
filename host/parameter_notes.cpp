#include "parameter_notes.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <set>
#include <thread>

#include <morva/core/morva_osg_params.h>
#include <morva/driver/morva_osg_run_plan.h>

#include "parameter_effects.h"
#include "parameter_table.h"
#include "text.h"

namespace morva::host {

namespace {

/// The key and the value of one token; empty if it has not the form.
std::map<std::string, std::string> entryOf(const std::string& token) {
    std::vector<std::string> one = {token};
    std::map<std::string, std::string> entry;
    morva::osg::buildParameterMap(one, entry);
    return entry;
}

bool isInRange(const std::string& value, const parameter_row& row) {
    int number = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    return error == std::errc() && stop == end && number >= row.least && number <= row.most;
}

/// What is wrong with a value, as the end of a sentence; empty if nothing is.
std::string faultOf(const std::string& value, const parameter_row& row) {
    if (row.kind == value_kind::number && !isInRange(value, row))
        return "takes " + valuesOf(row);
    if (row.kind == value_kind::flag && value != "true" && value != "false" && value != "1" &&
        value != "0")
        return std::string("takes true or false, and counts as ") +
               (morva::osg::string2X<bool>(value) ? "true" : "false");
    return std::string();
}

std::string withoutBlanks(std::string text) {
    const auto isBlank = [](unsigned char letter) { return std::isspace(letter) != 0; };
    text.erase(std::remove_if(text.begin(), text.end(), isBlank), text.end());
    return text;
}

/// What is to be said of a key that a run reads; empty if it does what it says.
std::string noteOn(const std::string& key, const std::string& value,
                   const morva::osg::run_plan& plan) {
    const std::string why = whyWithoutEffect(key, plan);
    const parameter_row* const row = rowOf(key);
    return !why.empty() || row == nullptr ? why : faultOf(value, *row);
}

} // namespace

std::vector<std::string> parameterNotes(const std::string& parameters) {
    std::vector<std::string> notes;
    const morva::osg::run_plan plan = morva::osg::planOf(parameters);
    std::set<std::string> seen;
    for (const std::string& token : morva::osg::tokensOf(parameters, ",")) {
        const auto entry = entryOf(token);
        const std::string shown = "parameter '" + validUtf8(token) + "' ";
        if (entry.empty())
            notes.push_back(shown + "is not of the form key(value); it is ignored");
        else if (const auto& [key, value] = *entry.begin(); !morva::osg::isParameterKey(key))
            notes.push_back(shown + (morva::osg::isParameterKey(withoutBlanks(key))
                                         ? "has a blank in its key, which hides it; it is ignored"
                                         : "has an unknown key; it is ignored"));
        else if (!seen.insert(key).second)
            notes.push_back(shown + "repeats a key; the first one holds");
        else if (const std::string note = noteOn(key, value, plan); !note.empty())
            notes.push_back(shown + note);
    }
    return notes;
}

std::string withValue(const std::string& parameters, const std::string& key,
                      const std::string& value) {
    std::string text;
    bool found = false;
    for (const std::string& token : morva::osg::tokensOf(parameters, ",")) {
        const bool here = !found && entryOf(token).count(key) != 0; // the first one holds
        found = found || here;
        if (!text.empty())
            text += ",";
        if (here)
            text.append(key).append("(").append(value).append(")");
        else
            text += token;
    }
    return found ? text : parameters;
}

std::string withMapInRoot(const std::string& parameters) {
    if (parameters.empty())
        return parameters;
    std::string text = "idmapinroot(true)";
    for (const std::string& token : morva::osg::tokensOf(parameters, ",")) {
        const auto entry = entryOf(token);
        if (entry.count("idmap") == 0 && entry.count("idmapinroot") == 0)
            text += "," + token;
    }
    return text;
}

std::string withThreads(const std::string& parameters) {
    std::string text = parameters;
    if (text.empty() || morva::osg::parseOptTreeParams(text).count("numthreads") != 0)
        return parameters;
    return parameters + ",numthreads(" + std::to_string(std::thread::hardware_concurrency()) + ")";
}

} // namespace morva::host
