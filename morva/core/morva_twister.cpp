#include <morva/core/morva_twister.h>

namespace {

static_assert(sizeof(unsigned long) == 8, "words of 64 bits");

constexpr int word_count = 624;
constexpr int shift_words = 397;
constexpr unsigned long default_seed = 0xf2710812UL;
constexpr unsigned long low_word = 0xffffffffUL;
constexpr unsigned long upper_mask = 0x80000000UL;
constexpr unsigned long lower_mask = 0x7fffffffUL;

} // namespace

Twister::Twister() { do_seed(default_seed); }

Twister::Twister(unsigned long seed) { do_seed(seed == 0 ? default_seed : seed); }

void Twister::do_seed(unsigned long seed) {
    state[0] = seed & low_word;
    for (int i = 1; i < word_count; ++i)
        state[i] = (state[i - 1] * 69069U) & low_word;

    // The scramble runs in 64 bits and fills the upper halves too; word 0 stays.
    unsigned long scramble = 373737;
    for (int i = 1; i < word_count; ++i) {
        state[i] ^= scramble;
        const unsigned long t = scramble * 5531U + 81547U;
        scramble = (t >> 9) ^ (t << 19) ^ t;
    }
    index = word_count;
}

void Twister::regenerate() {
    static constexpr unsigned long mag01[2] = {0, 0x9908b0dfUL};
    // In ascending order: words from 227 on already see the new values of the block's start.
    for (int k = 0; k < word_count; ++k) {
        const unsigned long next = state[(k + 1) % word_count];
        const unsigned long u = (next & lower_mask) | (state[k] & upper_mask);
        state[k] = (u >> 1) ^ state[(k + shift_words) % word_count] ^ mag01[next & 1];
    }
    index = 0;
}

float Twister::rand() {
    if (index >= word_count)
        regenerate();
    unsigned long y = state[index++];
    y ^= y >> 11;
    y ^= (y << 7) & 0x9d2c5680UL;
    y ^= (y << 15) & 0xefc60000UL;
    y ^= y >> 18;
    return static_cast<float>(y) * 2.3283064e-10f;
}
