// The packer of atlases beside a twin that takes every step as it comes, with one multimap, and
// restarts after each join. Its own program: it replaces the global allocation functions.

#include "../support/shortage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include <morva/textures/texturatlas.h>
#include <morva/textures/texturatlas_packing.h>

namespace morva {

void PrintTo(const texturinfo& size, std::ostream* out) {
    *out << size.width << " x " << size.height;
}

} // namespace morva

namespace {

using morva::texturatlas;
using morva::texturinfo;
using long_int = std::int64_t;

std::int32_t cut(long_int value) {
    return std::int32_t(std::clamp<long_int>(value, INT32_MIN, INT32_MAX));
}

long_int naiveColumns(long_int n, const std::vector<texturinfo>& sizes) {
    if (n < 0)
        return n;
    const auto root = long_int(std::sqrt(double(n)));
    if (root * root == n)
        return root;
    if (n < 11)
        return n == 2 ? 2 : n < 7 ? 3 : n < 9 ? 4 : 5;
    long_int best_waste = 100000, best_imbalance = 1000, result = 0;
    for (long_int d = 3; d <= n / 3; ++d) {
        const long_int r = (n + d - 1) / d, waste = r * d - n, imbalance = std::abs(r - d);
        if (waste < best_waste || (waste == best_waste && imbalance < best_imbalance))
            std::tie(result, best_waste, best_imbalance) = std::tuple(r, waste, imbalance);
    }
    if (sizes.empty())
        return result;
    const long_int w = sizes[0].width, h = sizes[0].height;
    if (h > 2 * w)
        return result + 1;
    if (result != 1)
        --result;
    return w <= 2 * h ? result + 1 : result;
}

/// Works on an atlas as it stands.
struct naive_packer {
    texturatlas& atlas;
    bool apart = false;

    void add(long_int w, long_int h, long_int x, long_int y) {
        atlas.freeSpaces.insert({{cut(w), cut(h)}, {cut(x), cut(y)}});
    }

    bool joinOnce() {
        auto& pool = atlas.freeSpaces;
        for (auto a = pool.begin(); a != pool.end(); ++a) {
            const auto [as, ap] = *a;
            for (auto b = pool.begin(); b != pool.end(); ++b) {
                const auto [bs, bp] = *b;
                texturinfo joined = as;
                if (bp.width == long_int{ap.width} + as.width && bp.height == ap.height &&
                    bs.height == as.height)
                    joined.width = cut(long_int{as.width} + bs.width);
                else if (bp.width == ap.width && bp.height == long_int{ap.height} + as.height &&
                         bs.width == as.width)
                    joined.height = cut(long_int{as.height} + bs.height);
                else
                    continue;
                const texturinfo at = ap, size = as;
                pool.erase(b);
                pool.erase(std::find_if(pool.begin(), pool.end(), [&](const auto& entry) {
                    return entry.first == size && entry.second == at;
                }));
                pool.insert({joined, at});
                return true;
            }
        }
        return false;
    }
    void combine() {
        do {
            for (auto i = atlas.freeSpaces.begin(); i != atlas.freeSpaces.end();)
                i = i->first.width == 0 || i->first.height == 0 ? atlas.freeSpaces.erase(i)
                                                                : std::next(i);
        } while (joinOnce());
    }

    static bool overlap(const texturinfo& s, const texturinfo& p, const texturinfo& t,
                        const texturinfo& q) {
        return std::min({s.width, s.height, t.width, t.height}) > 0 &&
               p.width < long_int{q.width} + t.width && q.width < long_int{p.width} + s.width &&
               p.height < long_int{q.height} + t.height && q.height < long_int{p.height} + s.height;
    }
    bool isTaken(const texturinfo& size, long_int x, long_int y) const {
        const texturinfo at{cut(x), cut(y)};
        return apart && std::any_of(atlas.placed.begin(), atlas.placed.end(), [&](const auto& p) {
                   return overlap(p.first, p.second, size, at);
               });
    }
    void put(const texturinfo& size, long_int x, long_int y) {
        atlas.placed.insert({size, {cut(x), cut(y)}});
    }

    long_int cursor = 0, row_y = 0, bottom = 0, W = 0;

    int fromPool(const texturinfo& s, int n) {
        auto& pool = atlas.freeSpaces;
        for (int done = 0;;) {
            if (done == n || pool.empty())
                return done;
            auto found = pool.lower_bound(s);
            if (found == pool.end() || !(found->first == s))
                found = std::find_if(pool.begin(), pool.end(), [&](const auto& entry) {
                    return entry.first.width >= s.width && entry.first.height >= s.height;
                });
            if (found == pool.end())
                return done;
            const auto [fs, fp] = *found;
            pool.erase(found);
            if (isTaken(s, fp.width, fp.height))
                continue;
            if (s.height < fs.height)
                add(s.width, long_int{fs.height} - s.height, fp.width,
                    long_int{fp.height} + s.height);
            if (s.width < fs.width)
                add(long_int{fs.width} - s.width, fs.height, long_int{fp.width} + s.width,
                    fp.height);
            put(s, fp.width, fp.height);
            ++done;
        }
    }

    void group(const texturinfo& s, int n) {
        const long_int w = s.width, h = s.height;
        int done = fromPool(s, n);
        const long_int start_x = cursor;
        long_int y = row_y;
        bool stacked = false, new_shelf = false;
        for (; done < n; ++done) {
            if (cursor + w <= W && !isTaken(s, cursor, y)) {
                put(s, cursor, y);
                cursor += w;
                continue;
            }
            if (W - cursor > 0)
                add(W - cursor, h, cursor, y);
            if (y + 2 * h < bottom && start_x + w < W && !isTaken(s, start_x, y + h)) {
                y += h;
                stacked = true;
                put(s, start_x, y);
                cursor = start_x + w;
                continue;
            }
            if (y + h < bottom)
                add(W - start_x, bottom - h - y, start_x, y + h);
            combine();
            new_shelf = true;
            y = bottom;
            bottom += h;
            put(s, 0, y);
            cursor = w;
        }
        const long_int rest = bottom - h - row_y;
        if (!new_shelf && start_x != 0 && rest >= 1 && y < bottom) {
            if (stacked) {
                if (y + h < bottom && W - cursor > 0)
                    add(W - cursor, bottom - y - h, start_x, y + h);
            } else {
                add(cursor - start_x, rest, start_x, row_y + h);
            }
        }
        row_y = y;
    }

    void calculate(unsigned m) {
        auto& counts = atlas.groupCounts;
        auto& sizes = atlas.groupSizes;
        if (atlas.items.empty())
            return;
        atlas.items.sort();
        long_int widest = atlas.items.front().width;
        for (auto item = atlas.items.rbegin(); item != atlas.items.rend(); ++item) {
            widest = std::max<long_int>(widest, item->width);
            if (item != atlas.items.rbegin() && sizes.back() == *item) {
                ++counts.back();
            } else {
                counts.push_back(1);
                sizes.push_back(*item);
            }
        }
        if (sizes.size() == 1)
            return grid(naiveColumns(counts[0], sizes));
        double sum = 0;
        for (std::size_t i = 1; i < sizes.size(); ++i) {
            const double ratio = counts[i] / ((double(sizes[0].width) / sizes[i].width) *
                                              (double(sizes[0].height) / sizes[i].height));
            sum += std::isfinite(ratio) ? ratio : 0;
        }
        const long_int e = long_int(std::clamp(sum + 0.5, -1e18, 1e18));
        const int n = cut(e + counts[0]); // takes seconds for the largest
        const long_int columns = n > 20000 ? atlas.calcItemsInRow(n) : naiveColumns(n, sizes);
        W = std::max(columns * sizes[0].width, widest);
        if (m >= 1 && m <= 8192)
            W = std::min<long_int>(W, m);
        bottom = sizes[0].height;
        for (std::size_t i = 0; i < sizes.size(); ++i)
            group(sizes[i], counts[i]);
        long_int right = 0;
        for (const auto& [size, place] : atlas.placed)
            right = std::max(right, long_int{place.width} + size.width);
        atlas.width = cut(right);
        atlas.height = cut(bottom);
    }
    void grid(long_int c) {
        long_int column = 0, at_x = 0, y = 0;
        for (auto item = atlas.items.rbegin(); item != atlas.items.rend(); ++item) {
            if (column == c)
                column = at_x = 0, y += item->height;
            ++column;
            put(*item, at_x, y);
            at_x += item->width;
        }
        atlas.width = cut(c * atlas.groupSizes[0].width);
        atlas.height = cut(y + atlas.groupSizes[0].height);
    }
};

auto all(const texturatlas& atlas) {
    return std::tie(atlas.width, atlas.height, atlas.items, atlas.groupCounts, atlas.groupSizes,
                    atlas.placed, atlas.freeSpaces);
}

int any(std::mt19937& rng, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng);
}

/// Sets with trouble, some of equal items; the last kind is rubbish.
constexpr int kinds = 7, stacks = 5, rubbish = 6;
std::list<texturinfo> anySet(std::mt19937& rng, int kind) {
    const texturinfo common{any(rng, 1, 40), any(rng, 1, 40)};
    const auto side = [&] {
        switch (kind) {
        case 0:
            return any(rng, 1, 64);
        case 1:
            return 1 << any(rng, 0, 7);
        case 2:
            return any(rng, 0, 6);
        case 3:
            return any(rng, 1, 4) * 16;
        case 4:
            return any(rng, 0, 9) == 0 ? any(rng, 100, 300) : any(rng, 1, 30);
        default:
            constexpr int odd[] = {0, -1, -7, 3, 100, INT32_MAX, INT32_MAX - 5, INT32_MIN};
            return any(rng, 0, 2) == 0 ? odd[any(rng, 0, 7)] : any(rng, 1, 20);
        }
    };
    std::list<texturinfo> items;
    for (int left = any(rng, 1, any(rng, 0, 9) == 0 ? 120 : 25); left > 0; --left)
        items.push_back(any(rng, 0, 9) == 0 ? common : texturinfo{side(), side()});
    if (any(rng, 0, 19) == 0)
        std::fill(items.begin(), items.end(), common);
    if (kind == stacks) { // lines on lines beside the first group
        items = {{any(rng, 5, 80), any(rng, 140, 280)}};
        for (int groups = any(rng, 6, 12); groups > 0; --groups)
            items.resize(items.size() + any(rng, 1, 9), {any(rng, 1, 17), any(rng, 1, 50)});
    }
    return items;
}

unsigned anyLimit(std::mt19937& rng) {
    constexpr unsigned limits[] = {0, 1, 20, 64, 100, 128, 280, 8192, 8193, UINT32_MAX};
    return limits[any(rng, 0, 9)];
}

bool hasOverlap(const texturatlas& atlas) {
    for (auto a = atlas.placed.begin(); a != atlas.placed.end(); ++a) {
        for (auto b = std::next(a); b != atlas.placed.end(); ++b) {
            if (naive_packer::overlap(a->first, a->second, b->first, b->second))
                return true;
        }
    }
    return false;
}

TEST(Packer, AgreesWithTheNaiveTwin) {
    std::mt19937 rng(71);
    int overlaps = 0;
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const int kind = any(rng, 0, kinds - 1);
        const bool apart = any(rng, 0, 1) == 1;
        const unsigned limit = anyLimit(rng);
        texturatlas ours;
        ours.items = anySet(rng, kind);
        texturatlas theirs = ours;
        const bool uncleared = !apart && any(rng, 0, 9) == 0;
        for (int runs = uncleared ? 2 : 1; runs > 0; --runs) {
            apart ? morva::pack(ours, limit, {true, 0}) : ours.calculate(limit);
            naive_packer{theirs, apart}.calculate(limit);
            ASSERT_EQ(all(ours), all(theirs));
            ours.combineFreeSpaces();
            naive_packer{theirs}.combine();
            ASSERT_EQ(ours.freeSpaces, theirs.freeSpaces);
        }
        if (kind != rubbish && apart) {
            ASSERT_FALSE(hasOverlap(ours));
        } else if (!apart && !uncleared && kind != rubbish) {
            overlaps += hasOverlap(ours) ? 1 : 0;
        }
    }
    EXPECT_GT(overlaps, 10) << "sets that keeping apart is for";
}

TEST(Packer, GivesItemsBordersAtMultiplesOfAPowerOfTwo) {
    std::mt19937 rng(72);
    for (int round = 0; round < 600; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const int padding = any(rng, 1, 64);
        long_int step = 1;
        while (step < padding)
            step *= 2;
        texturatlas ours, theirs;
        ours.items = anySet(rng, any(rng, 0, kinds - 2));
        const auto side = [&](long_int own) {
            return own <= 0 ? 0 : cut((own + 2 * padding + step - 1) / step * step);
        };
        for (const texturinfo& item : ours.items)
            theirs.items.push_back({side(item.width), side(item.height)});
        const std::list<texturinfo> before = ours.items;
        const unsigned limit = anyLimit(rng);
        morva::pack(ours, limit, {true, unsigned(padding)});
        naive_packer{theirs, true}.calculate(limit);
        EXPECT_EQ(std::tie(ours.width, ours.height, ours.freeSpaces, ours.groupSizes),
                  std::tie(theirs.width, theirs.height, theirs.freeSpaces, theirs.groupSizes));
        std::multimap<texturinfo, texturinfo> bordered;
        std::multiset<texturinfo> kept, asked(before.begin(), before.end());
        std::vector<std::tuple<int, int, int, int>> places[2];
        for (const auto& [size, place] : ours.placed) {
            kept.insert(size);
            places[0].emplace_back(side(size.width), side(size.height), place.width - padding,
                                   place.height - padding);
            EXPECT_TRUE((place.width - padding) % step == 0 &&
                        (place.height - padding) % step == 0);
        }
        for (const auto& [size, place] : theirs.placed)
            places[1].emplace_back(size.width, size.height, place.width, place.height);
        std::sort(places[0].begin(), places[0].end());
        std::sort(places[1].begin(), places[1].end());
        EXPECT_EQ(places[0], places[1]);
        EXPECT_TRUE(std::equal(kept.begin(), kept.end(), asked.begin(), asked.end()));
    }
}

TEST(Packer, KnowsHardCases) {
    using list = std::list<texturinfo>;
    const struct {
        const char* name;
        list items;
        unsigned limit;
        int width, height;
        std::multimap<texturinfo, texturinfo> some; ///< of the places
    } cases[] = {
        {"nothing keeps the sides", {}, 0, 1, 1, {}},
        {"seven: a short last row counts whole", list(7, {10, 3}), 0, 40, 6, {}},
        {"twelve wide ones have a column less", list(12, {64, 16}), 0, 192, 64, {}},
        {"one size ignores the limit", list(4, {64, 64}), 100, 128, 128, {}},
        {"a hole", {{50, 100}, {50, 60}, {50, 40}}, 0, 100, 100, {{{50, 40}, {50, 60}}}},
        {"wider than the limit", {{300, 20}, {10, 10}}, 64, 300, 40, {{{300, 20}, {0, 20}}}},
        {"no width", {{0, 9}, {0, 5}}, 0, 0, 9, {}},
        {"overflow", {{INT32_MAX, INT32_MAX}, {INT32_MAX, 5}}, 0, INT32_MAX, INT32_MAX, {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        texturatlas atlas;
        atlas.items = row.items;
        atlas.calculate(row.limit);
        EXPECT_EQ(std::tie(atlas.width, atlas.height), std::tie(row.width, row.height));
        EXPECT_EQ(atlas.placed.size(), row.items.size());
        for (const auto& [size, place] : row.some)
            EXPECT_EQ(atlas.placed.find(size)->second, place);
    }
}

TEST(CalcItemsInRow, AgreesWithTryingEachDivision) {
    for (const texturinfo& size : {texturinfo{8, 8}, {20, 8}, {16, 8}, {8, 16}, {8, 17}, {0, 0}}) {
        texturatlas atlas;
        for (int filled = 0; filled < 2; ++filled) {
            for (int n = -3; n < 1500; ++n)
                ASSERT_EQ(atlas.calcItemsInRow(n), naiveColumns(n, atlas.groupSizes)) << n;
            for (const int n : {99991, 1000003, 2000014})
                ASSERT_EQ(atlas.calcItemsInRow(n), naiveColumns(n, atlas.groupSizes)) << n;
            atlas.groupSizes = {size};
        }
        EXPECT_GT(atlas.calcItemsInRow(INT32_MAX), 46340);
    }
}

TEST(Packer, KeepsAllButTheOrderWhenMemoryRunsOut) {
    std::mt19937 rng(73);
    texturatlas before;
    before.items = anySet(rng, 4);
    while (before.items.size() < 30)
        before.items.splice(before.items.end(), anySet(rng, 4));
    before.calculate(64);
    ASSERT_GT(before.freeSpaces.size(), 1U);
    before.items.sort();
    morva_test::failInTurn(1, [&](const auto& starved) {
        texturatlas atlas = before;
        if (starved([&] { atlas.calculate(64); })) {
            EXPECT_EQ(all(atlas), all(before));
        }
        EXPECT_GE(atlas.placed.size(), before.placed.size());
    });
    morva_test::failInTurn(1, [&](const auto& starved) {
        texturatlas atlas = before;
        atlas.freeSpaces.insert({{1, 1}, {9000, 0}});
        atlas.freeSpaces.insert({{1, 1}, {9001, 0}});
        const texturatlas was = atlas;
        if (starved([&] { atlas.combineFreeSpaces(); })) {
            EXPECT_EQ(all(atlas), all(was));
        }
    });
}

} // namespace
