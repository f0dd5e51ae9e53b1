#pragma once

// The random numbers of the occlusion baker: a Mersenne Twister whose words are 64 bits wide.
//
//     Twister twister;               // always the same sequence
//     float value = twister.rand();  // 0 and up, without an upper limit of 1
//
// It recurs and tempers like MT19937, but no step masks a word to 32 bits, and the seeding is its
// own: bits above bit 31 live in the state from the start and come out of rand(), whose results
// are therefore not confined to the range 0 to 1. Baked light depends on exactly this sequence.
//
// One owner, no lock.
// Method: "Mersenne Twister: A 623-dimensionally equidistributed uniform pseudorandom number
// generator", Matsumoto and Nishimura, 1998.

#include <morva/core/morva_export.h>

#include <cstdint>

/// The generator. `state[index]` and what follows is still to be handed out.
struct MORVA_API Twister {
    unsigned long state[624] = {}; ///< words of 64 bits, of which all count
    std::int32_t index = 624;      ///< next word to hand out; 624: none is left

    /// Starts the default sequence.
    Twister();

    /// Starts the sequence of `seed`, of which the low 32 bits count; 0 is the default sequence.
    explicit Twister(unsigned long seed);

    /// Starts over with `seed`; here 0 is a seed like any other.
    void do_seed(unsigned long seed);

    /// The next number, 0 or above. The upper halves of the words outweigh the lower ones by far
    /// and do not depend on the seed, so that different seeds give nearly the same numbers.
    float rand();

  private:
    void regenerate();
};
