#include <morva/core/morva_twister.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

/// The generator as one endless sequence of words, without blocks: word n + 624 follows from the
/// words n, n + 1 and n + 397.
class endless_twister {
  public:
    explicit endless_twister(std::uint64_t seed) {
        words_.push_back(seed % 4294967296U);
        while (words_.size() < 624)
            words_.push_back(words_.back() * 69069U % 4294967296U);
        std::uint64_t s = 373737;
        for (std::size_t i = 1; i < 624; ++i) {
            words_[i] ^= s;
            const std::uint64_t t = s * 5531U + 81547U;
            s = (t >> 9) ^ (t << 19) ^ t;
        }
    }
    float next() {
        const std::size_t n = words_.size() - 624;
        const std::uint64_t mixed = (words_[n] & 0x80000000U) + (words_[n + 1] & 0x7fffffffU);
        std::uint64_t y = words_[n + 397] ^ (mixed / 2);
        if (words_[n + 1] % 2 == 1)
            y ^= 0x9908b0dfU;
        words_.push_back(y);
        word = y;
        y ^= y >> 11;
        y ^= (y << 7) & 0x9d2c5680U;
        y ^= (y << 15) & 0xefc60000U;
        y ^= y >> 18;
        return static_cast<float>(y) * 2.3283064e-10f;
    }

    std::uint64_t word =
        0; ///< behind the last number: seeds differ in the low bits that a float drops

  private:
    std::vector<std::uint64_t> words_;
};

TEST(Twister, FollowsTheEndlessSequenceOverSeveralBlocks) {
    for (const unsigned long seed : {0xf2710812UL, 1UL, 4357UL, 0xfffffffffUL}) {
        Twister twister(seed);
        endless_twister twin(seed);
        for (int i = 0; i < 2000; ++i) {
            ASSERT_EQ(twister.rand(), twin.next()) << "seed " << seed << ", number " << i;
            ASSERT_EQ(twister.state[twister.index - 1], twin.word) << "seed " << seed << ", " << i;
        }
    }
}

TEST(Twister, SeedZeroIsTheDefaultForTheConstructorOnly) {
    Twister none, zero(0), again(17), reseeded(3);
    again.rand();
    again.do_seed(0xf2710812UL);
    reseeded.do_seed(0);
    int above_one = 0;
    for (int i = 0; i < 700; ++i) {
        above_one += none.rand() > 1.0f ? 1 : 0; // no step masks a word to 32 bits
        zero.rand();
        again.rand();
        ASSERT_EQ(none.state[none.index - 1], zero.state[zero.index - 1]);
        ASSERT_EQ(none.state[none.index - 1], again.state[again.index - 1]);
    }
    EXPECT_GT(above_one, 350);
    EXPECT_NE(Twister().state[0], reseeded.state[0]);
}

} // namespace
