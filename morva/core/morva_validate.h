#pragma once

// Checks of our own invariants at run time. With the build switch MORVA_VALIDATE assert() is on,
// and the stages ask the validators of their structures what is broken:
//
//     validate("kd-tree", [&] { return broken_rule_of(tree, geoset, setup); });
//
// A validator gives the first rule that does not hold, in words, or an empty text; it is compiled
// in any build, for whoever wants to ask. Without the switch nothing is asked. Input is never
// validated: what may come from outside has its own errors.

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

namespace morva {

#ifdef MORVA_VALIDATE
constexpr bool validating = true;
#else
constexpr bool validating = false;
#endif

/// Ends the program with a line on standard error if `broken_rule()`, which gives a text, names a
/// rule; does nothing, and calls nothing, without the switch. Where memory runs out for a check it
/// is left out.
template <typename BrokenRule>
void validate([[maybe_unused]] const char* what, [[maybe_unused]] const BrokenRule& broken_rule) {
    if constexpr (validating) {
        try {
            const std::string rule = broken_rule();
            if (rule.empty())
                return;
            std::fprintf(stderr, "%s: broken rule: %s\n", what, rule.c_str());
        } catch (const std::bad_alloc&) {
            return;
        }
        std::abort();
    }
}

} // namespace morva
