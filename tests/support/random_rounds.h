#pragma once

// Seeds and rounds of the random tests:
//
//     std::mt19937 rng(seedOf(7));
//     for (int round = 0; round < roundsOf(200); ++round)
//
// runs 200 rounds with the seed 7. With MORVA_SEED=N in the environment the seed is made of N and
// 7, with MORVA_ROUNDS=K (a whole number) there are K times as many rounds. A test that fails after
// it asked for a seed tells N.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace morva_test {

/// True once the running test has asked for a seed.
inline std::atomic<bool> seed_asked{false};

/// The number that a variable of the environment holds, or `otherwise` if it isn't set.
/// Throws std::invalid_argument if it holds anything else than digits.
inline std::uint32_t numberFrom(const char* variable, std::uint32_t otherwise) {
    const char* const text = std::getenv(variable);
    if (text == nullptr || *text == '\0')
        return otherwise;
    if (std::string(text).find_first_not_of("0123456789") != std::string::npos)
        throw std::invalid_argument(std::string(variable) + " is no number: " + text);
    return std::uint32_t(std::stoull(text));
}

/// The seed of a test that names `own`: that one, or one made of it and MORVA_SEED.
inline std::uint32_t seedOf(std::uint32_t own) {
    seed_asked = true;
    if (const char* const text = std::getenv("MORVA_SEED"); text == nullptr || *text == '\0')
        return own;
    std::uint32_t mixed = numberFrom("MORVA_SEED", 0) * 0x9E3779B1U + own;
    for (const unsigned shift : {16U, 13U, 16U})
        mixed = (mixed ^ mixed >> shift) * 0x85EBCA6BU;
    return mixed;
}

/// The rounds of a test that names `own`, times MORVA_ROUNDS.
template <class Count> Count roundsOf(Count own) {
    return own * static_cast<Count>(numberFrom("MORVA_ROUNDS", 1));
}

} // namespace morva_test
