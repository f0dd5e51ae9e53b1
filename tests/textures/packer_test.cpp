// The packer of atlases beside a twin that takes every step as it comes, with one multimap, and
// restarts after each join. Its own program: it replaces the global allocation functions.

#include "tests/support/random_rounds.h"
#include "tests/support/shortage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <list>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include <morva/textures/texturatlas.h>
#include <morva/textures/texturatlas_packing.h>

namespace {

using morva::texturatlas;
using morva::texturinfo;
using long_int = std::int64_t;
using morva_test::roundsOf;
using morva_test::seedOf;

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
                const texturinfo at = ap;
                pool.erase(a);
                pool.erase(b);
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

auto sides(const texturatlas& atlas) {
    return std::tie(atlas.width, atlas.height, atlas.groupCounts, atlas.groupSizes,
                    atlas.freeSpaces);
}
auto all(const texturatlas& atlas) {
    return std::tuple_cat(sides(atlas), std::tie(atlas.items, atlas.placed));
}

int any(std::mt19937& rng, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng);
}

/// Sets with trouble, some of equal items; the last kind is rubbish.
constexpr int kinds = 7, stacks = 5, rubbish = 6;
std::list<texturinfo> anySet(std::mt19937& rng, int kind) {
    const texturinfo common{any(rng, 1, 40), any(rng, 1, 40)};
    constexpr int odd[] = {0, -1, -7, 3, 100, INT32_MAX, INT32_MAX - 5, INT32_MIN};
    const auto side = [&] {
        const int sides[] = {any(rng, 1, 64),
                             1 << any(rng, 0, 7),
                             any(rng, 0, 6),
                             any(rng, 1, 4) * 16,
                             any(rng, 0, 9) == 0 ? any(rng, 100, 300) : any(rng, 1, 30),
                             0,
                             any(rng, 0, 2) == 0 ? odd[any(rng, 0, 7)] : any(rng, 1, 20)};
        return sides[kind];
    };
    std::list<texturinfo> items;
    for (int left = any(rng, 0, any(rng, 0, 9) == 0 ? 120 : 25); left > 0; --left)
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
    const auto& all = atlas.placed;
    for (auto a = all.begin(); a != all.end(); ++a) {
        if (std::any_of(std::next(a), all.end(), [a](const auto& b) {
                return naive_packer::overlap(a->first, a->second, b.first, b.second);
            }))
            return true;
    }
    return false;
}

TEST(Packer, AgreesWithTheNaiveTwin) {
    std::mt19937 rng(seedOf(71));
    int overlaps = 0;
    for (int round = 0; round < roundsOf(5000); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const int kind = any(rng, 0, kinds - 1);
        const bool apart = any(rng, 0, 1) == 1, uncleared = !apart && any(rng, 0, 9) == 0;
        const unsigned limit = anyLimit(rng);
        texturatlas ours;
        ours.items = anySet(rng, kind);
        texturatlas theirs = ours;
        const int padding = apart && kind != rubbish ? std::max(any(rng, -64, 64), 0) : 0;
        int step = 1;
        while (step < padding)
            step *= 2;
        const auto side = [&](long_int own) {
            return own <= 0 && padding > 0 ? 0 : cut((own + 2 * padding + step - 1) / step * step);
        };
        for (texturinfo& item : theirs.items)
            item = {side(item.width), side(item.height)};
        for (int runs = uncleared ? 2 : 1; runs > 0; --runs) {
            apart ? morva::pack(ours, limit, {true, unsigned(padding)}) : ours.calculate(limit);
            naive_packer{theirs, apart}.calculate(limit);
            if (padding == 0) {
                ASSERT_EQ(all(ours), all(theirs));
            } else {
                ASSERT_EQ(sides(ours), sides(theirs));
                using place_list = std::multiset<std::pair<texturinfo, texturinfo>>;
                place_list places, expected(theirs.placed.begin(), theirs.placed.end());
                std::list<texturinfo> kept;
                for (const auto& [size, at] : ours.placed) {
                    kept.push_back(size);
                    places.insert({{side(size.width), side(size.height)},
                                   {at.width - padding, at.height - padding}});
                }
                EXPECT_EQ(places, expected) << "equal ones in any order";
                EXPECT_EQ(kept, ours.items);
            }
            ours.combineFreeSpaces();
            naive_packer{theirs}.combine();
            ASSERT_EQ(ours.freeSpaces, theirs.freeSpaces);
        }
        if (kind != rubbish && !uncleared) {
            const bool overlap = hasOverlap(theirs);
            EXPECT_FALSE(apart && overlap);
            overlaps += overlap ? 1 : 0;
        }
    }
    EXPECT_GT(overlaps, 10) << "sets that keeping apart is for";
}

TEST(Packer, KeepsAllButTheOrderWhenMemoryRunsOut) {
    std::mt19937 rng(73);
    texturatlas before;
    while (before.items.size() < 30)
        before.items.splice(before.items.end(), anySet(rng, 4));
    before.calculate(64);
    before.freeSpaces.insert({{1, 1}, {9000, 0}});
    before.freeSpaces.insert({{1, 1}, {9001, 0}});
    before.items.sort();
    for (const bool pack : {true, false}) {
        morva_test::failInTurn(1, [&](const auto& starved) {
            texturatlas atlas = before;
            if (starved([&] { pack ? atlas.calculate(64) : atlas.combineFreeSpaces(); })) {
                EXPECT_EQ(all(atlas), all(before));
            }
        });
    }
}

} // namespace
