#include "parameter_notes.h"

#include <map>
#include <set>
#include <thread>

#include <morva/core/morva_osg_params.h>

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

} // namespace

std::vector<std::string> parameterNotes(const std::string& parameters) {
    std::vector<std::string> notes;
    std::set<std::string> seen;
    for (const std::string& token : morva::osg::tokensOf(parameters, ",")) {
        const auto entry = entryOf(token);
        const std::string shown = "parameter '" + validUtf8(token) + "' ";
        if (entry.empty())
            notes.push_back(shown + "is not of the form key(value); it is ignored");
        else if (!morva::osg::isParameterKey(entry.begin()->first))
            notes.push_back(shown + "has an unknown key; it is ignored");
        else if (!seen.insert(entry.begin()->first).second)
            notes.push_back(shown + "repeats a key; the first one holds");
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
