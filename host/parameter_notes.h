#pragma once

// The parameter string as a text: what the library will not do with it, and changes to it. Bad
// parameters are no errors to the library; the host at least says so.

#include <string>
#include <vector>

namespace morva::host {

/// One sentence per token that does not do what it says: not of the form key(value), repeated, with
/// a key that nobody reads or that has no effect beside the others, or with a value that the key
/// does not take.
std::vector<std::string> parameterNotes(const std::string& parameters);

/// The same parameters with another value for a key that is in lower case here; as they are
/// without the key.
std::string withValue(const std::string& parameters, const std::string& key,
                      const std::string& value);

/// The same parameters without the ID map's file and with the ID map in the root; empty parameters,
/// which ask for no run, stay empty.
std::string withMapInRoot(const std::string& parameters);

/// The parameters of a run: with as many threads as there are processors, unless they name the
/// key. Empty parameters, which ask for no run, stay empty.
std::string withThreads(const std::string& parameters);

} // namespace morva::host
