#include "tests/support/test.h"

#include <morva/core/morva_math.h>
#include <morva/core/morva_twister.h>

namespace {

using morva::float3;
using morva::float_box;
using morva::float_triangle;

using flat_list = morva::geo_set_convertable<float_triangle, float_triangle>;

static_assert(sizeof(float3) == 3 * sizeof(float), "a vector is its components");
static_assert(sizeof(float_box) == 9 * sizeof(float), "a box is three points");
static_assert(sizeof(float_triangle) == 9 * sizeof(float), "a triangle is three points");
static_assert(sizeof(morva::math::transformation_matrix<float>) == 16 * sizeof(float), "16 values");

TEST(CalcBoundingBox, HoldsEveryCornerAndRepairsFlatAxesAroundZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        const char* rule;
        std::vector<float_triangle> triangles;
        float3 min, max;
    } rows[] = {
        {"every corner counts",
         {{{0, 9, 4}, {-3, 1, 5}, {2, 2, 6}}, {{1, 1, -7}, {8, 0, 1}, {0, -2, 2}}},
         {-3, -2, -7},
         {8, 9, 6}},
        {"flat in z", {{{0, 0, 5}, {10, 0, 5}, {0, 10, 5}}}, {0, 0, -0.5f}, {10, 10, 0.5f}},
        {"flat in two", {{{3, 3, 0}, {3, 3, 8}, {3, 3, 2}}}, {-0.4f, -0.02f, 0}, {0.4f, 0.02f, 8}},
        {"a single place", {{{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}}, {0, 0, 0}, {0, 0, 0}},
        {"thick enough", {{{0, 0, 0}, {1, 0, 2e-7f}, {0, 1, 0}}}, {0, 0, 0}, {1, 1, 2e-7f}},
        {"none", {}, {0, 0, 0}, {0, 0, 0}},
        {"nan is passed over", {{{0, 0, 0}, {nan, 1, 1}, {2, 2, 2}}}, {0, 0, 0}, {2, 2, 2}},
    };
    for (auto row : rows) {
        flat_list list;
        list.triangles = row.triangles.data();
        list.count = row.triangles.size();
        const float_box box = morva::calc_bounding_box<flat_list>(list);
        for (std::size_t a = 0; a < 3; ++a) {
            EXPECT_FLOAT_EQ(box.min[a], row.min[a]) << row.rule << ", axis " << a;
            EXPECT_FLOAT_EQ(box.max[a], row.max[a]) << row.rule << ", axis " << a;
            EXPECT_EQ(box.extent[a], box.max[a] - box.min[a]) << row.rule;
        }
    }
}

// ---- random numbers

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
    const unsigned long usual = 0xf2710812UL;
    Twister again(17), zero(3);
    again.rand();
    again.do_seed(4357);
    zero.do_seed(0);
    std::pair<Twister, unsigned long> rows[] = {
        {Twister(), usual}, {Twister(0), usual},
        {Twister(1), 1},    {Twister(0xfffffffffUL), ~0U},
        {again, 4357},      {zero, 0}}; // 0 is the usual one for the constructor alone
    for (auto& [twister, seed] : rows) {
        endless_twister twin(seed);
        int above_one = 0;
        for (int i = 0; i < 2000; ++i) {
            const float number = twister.rand();
            ASSERT_EQ(number, twin.next()) << "seed " << seed << ", number " << i;
            ASSERT_EQ(twister.state[twister.index - 1], twin.word) << "seed " << seed << ", " << i;
            above_one += number > 1.0f ? 1 : 0; // no step masks a word to 32 bits
        }
        EXPECT_GT(above_one, 1000);
    }
}

} // namespace
