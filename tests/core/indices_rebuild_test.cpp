// Index rebuilding against a twin with ordered maps, on the index layouts and values that tell the
// two apart: signed zeros, neighbouring floats, NaN, unmapped and missing properties.

#include <morva/core/morva_osg_geometry_tools.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include <OpenSG/OSGTriangleIterator.h>
#include <gtest/gtest.h>

#include "tests/support/live_containers.h"
#include "tests/support/mesh_multiset.h"
#include "tests/support/scene_builders.h"

using namespace morva_test;

namespace {

/// A value by the bits of its components, so that -0 is not 0 and a NaN equals itself.
using bits = std::vector<std::uint32_t>;

template <typename Value> bits bitsOf(const Value& value, ::osg::UInt32 count) {
    bits out(count);
    for (::osg::UInt32 i = 0; i < count; ++i) {
        const float component = value[i];
        std::memcpy(&out[i], &component, sizeof component);
    }
    return out;
}

float floatOf(std::uint32_t word) {
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

/// What a rebuilt geometry holds; the five properties in their order.
struct rebuilt {
    std::array<bool, 5> present{};
    std::array<std::vector<bits>, 5> values;
    std::vector<std::uint32_t> indices;
    std::vector<std::uint16_t> mapping;
    std::vector<std::uint32_t> types, lengths;
};

template <typename Property>
void readValues(const Property& property, ::osg::UInt32 components, std::size_t place,
                rebuilt& out) {
    out.present[place] = property != ::osg::NullFC;
    for (::osg::UInt32 i = 0; out.present[place] && i < property->size(); ++i)
        out.values[place].push_back(bitsOf(property->getValue(i), components));
}

template <typename Property> std::vector<std::uint32_t> numbersOf(const Property& property) {
    std::vector<std::uint32_t> numbers;
    for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < property->size(); ++i)
        numbers.push_back(property->getValue(i));
    return numbers;
}

rebuilt contentsOf(const ::osg::GeometryPtr& geometry) {
    rebuilt out;
    readValues(geometry->getPositions(), 3, 0, out);
    readValues(geometry->getNormals(), 3, 1, out);
    readValues(geometry->getColors(), 3, 2, out);
    readValues(geometry->getTexCoords(), 2, 3, out);
    readValues(geometry->getTexCoords7(), 2, 4, out);
    out.indices = numbersOf(geometry->getIndices());
    out.types = numbersOf(geometry->getTypes());
    out.lengths = numbersOf(geometry->getLengths());
    for (::osg::UInt32 i = 0; i < geometry->getMFIndexMapping()->size(); ++i)
        out.mapping.push_back((*geometry->getMFIndexMapping())[i]);
    return out;
}

void expectSame(const rebuilt& expected, const rebuilt& actual) {
    EXPECT_EQ(expected.present, actual.present);
    for (std::size_t place = 0; place < 5; ++place)
        EXPECT_EQ(expected.values[place], actual.values[place]) << "property " << place;
    EXPECT_EQ(expected.indices, actual.indices);
    EXPECT_EQ(expected.mapping, actual.mapping);
    EXPECT_EQ(expected.types, actual.types);
    EXPECT_EQ(expected.lengths, actual.lengths);
}

/// Lexicographic by exact float comparison; only for values without NaN.
struct exactly_less {
    bool operator()(const bits& a, const bits& b) const {
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (floatOf(a[i]) < floatOf(b[i]))
                return true;
            if (floatOf(b[i]) < floatOf(a[i]))
                return false;
        }
        return false;
    }
};

bool hasNan(const bits& value) {
    for (const std::uint32_t word : value) {
        if (std::isnan(floatOf(word)))
            return true;
    }
    return false;
}

std::array<bits, 5> cornerValues(const ::osg::TriangleIterator& it, ::osg::Int32 k,
                                 const std::array<bool, 5>& present) {
    std::array<bits, 5> values;
    if (present[0])
        values[0] = bitsOf(it.getPosition(k), 3);
    if (present[1])
        values[1] = bitsOf(it.getNormal(k), 3);
    if (present[2])
        values[2] = bitsOf(it.getColor(k), 3);
    if (present[3])
        values[3] = bitsOf(it.getTexCoords(k), 2);
    if (present[4])
        values[4] = bitsOf(it.getTexCoords7(k), 2);
    return values;
}

/// One index per property: each value is looked up in a map of its property's values so far.
rebuilt naiveShared(const ::osg::GeometryPtr& geometry) {
    const std::uint16_t map_bits[5] = {1, 2, 4, 16, 2048};
    rebuilt out;
    out.present = contentsOf(geometry).present;
    for (std::size_t place = 0; place < 5; ++place) {
        if (out.present[place])
            out.mapping.push_back(map_bits[place]);
    }
    std::array<std::map<bits, std::uint32_t, exactly_less>, 5> known;
    std::uint32_t corners = 0;
    for (auto it = geometry->beginTriangles(); it != geometry->endTriangles(); ++it) {
        for (::osg::Int32 k = 0; k < 3; ++k, ++corners) {
            const std::array<bits, 5> values = cornerValues(it, k, out.present);
            for (std::size_t place = 0; place < 5; ++place) {
                if (!out.present[place])
                    continue;
                const bits& value = values[place];
                const auto next = static_cast<std::uint32_t>(out.values[place].size());
                const bool alone = hasNan(value);
                const std::uint32_t number =
                    alone ? next : known[place].emplace(value, next).first->second;
                out.indices.push_back(number);
                if (number == next)
                    out.values[place].push_back(value);
            }
        }
    }
    out.types = {4};
    out.lengths = {corners};
    return out;
}

/// One common index, from the shared form: a map of index tuples.
rebuilt naiveSingle(const ::osg::GeometryPtr& geometry) {
    const rebuilt shared = naiveShared(geometry);
    rebuilt out;
    out.present = shared.present;
    out.types = shared.types;
    out.lengths = shared.lengths;
    const std::size_t width = shared.mapping.size();
    std::map<std::vector<std::uint32_t>, std::uint32_t> known;
    for (std::size_t corner = 0; corner < shared.lengths[0]; ++corner) {
        const auto begin = shared.indices.begin() + static_cast<std::ptrdiff_t>(corner * width);
        const std::vector<std::uint32_t> tuple(begin, begin + static_cast<std::ptrdiff_t>(width));
        const auto next = static_cast<std::uint32_t>(known.size());
        const auto entered = known.emplace(tuple, next);
        out.indices.push_back(entered.first->second);
        if (!entered.second)
            continue;
        std::size_t slot = 0;
        for (std::size_t place = 0; place < 5; ++place) {
            if (out.present[place])
                out.values[place].push_back(shared.values[place][tuple[slot++]]);
        }
    }
    return out;
}

/// Checks both functions on copies of a mesh.
void expectAsNaive(const mesh_data& mesh) {
    const geometry_ref shared(geometryOf(mesh)), single(geometryOf(mesh));
    const rebuilt expected_shared = naiveShared(shared), expected_single = naiveSingle(single);
    morva::osg::createSharedIndex(shared);
    expectSame(expected_shared, contentsOf(shared));
    morva::osg::createSingleIndex(single);
    expectSame(expected_single, contentsOf(single));
}

/// Replaces some components by values that are easily confused.
void spoil(mesh_data& mesh, std::mt19937& rng) {
    const float one = 1.0F;
    const float trouble[] = {-0.0F,
                             std::nextafter(one, 2.0F),
                             std::numeric_limits<float>::quiet_NaN(),
                             std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::denorm_min(),
                             -std::numeric_limits<float>::max()};
    for (::osg::Pnt3f& position : mesh.positions) {
        if (rng() % 4 == 0)
            position[rng() % 3] = trouble[rng() % 6];
    }
    for (::osg::Vec2f& coordinate : mesh.coordinates) {
        if (rng() % 4 == 0)
            coordinate[rng() % 2] = trouble[rng() % 6];
    }
    for (float& id : mesh.ids)
        id = rng() % 5 == 0 ? -0.0F : id;
}

mesh_data randomMesh(std::mt19937& rng) {
    mesh_data mesh = rng() % 2 == 0 ? soup(rng, rng() % 30) : mixture(rng, rng() % 12);
    if (rng() % 2 == 0)
        mesh = withNormals(std::move(mesh), rng);
    if (rng() % 2 == 0)
        mesh = withColors(std::move(mesh), rng);
    if (rng() % 2 == 0)
        mesh = withCoordinates(std::move(mesh), rng);
    if (rng() % 2 == 0)
        mesh = withIds(std::move(mesh), 4);
    if (rng() % 2 == 0)
        spoil(mesh, rng);
    switch (rng() % 4) {
    case 0:
        return withIndex(std::move(mesh), rng);
    case 1:
        return withIndexPerProperty(std::move(mesh), rng);
    default:
        return mesh;
    }
}

mesh_data twoPoints(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b) {
    mesh_data mesh;
    mesh.primitives = {{4, 3}};
    mesh.positions = {a, b, {5, 5, 5}};
    return mesh;
}

} // namespace

TEST(IndexRebuildOracle, AgreesWithOrderedMaps) {
    std::mt19937 rng(63);
    for (int round = 0; round < 600; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        expectAsNaive(randomMesh(rng));
    }
}

TEST(IndexRebuildOracle, AgreesWhenTheTablesGrow) {
    std::mt19937 rng(64);
    mesh_data mesh = soup(rng, 4000);
    for (::osg::Pnt3f& position : mesh.positions)
        position[0] = static_cast<float>(rng() % 50000); // many different, some twice
    expectAsNaive(withAttributes(mesh, rng));
}

TEST(IndexRebuildOracle, AgreesOnValuesThatDifferInTheLastBitsOnly) {
    std::mt19937 rng(65);
    mesh_data mesh = soup(rng, 500);
    float next = 1.0F;
    for (::osg::Pnt3f& position : mesh.positions) {
        position = ::osg::Pnt3f(next, 1.0F, 1.0F);
        if (rng() % 3 != 0)
            next = std::nextafter(next, 2.0F);
    }
    expectAsNaive(mesh);
}

TEST(IndexRebuildOracle, AgreesWhereVerticesAreLeftOver) {
    std::mt19937 rng(70);
    mesh_data mesh = withAttributes(soup(rng, 4), rng);
    for (const auto& primitives :
         {std::vector<std::pair<unsigned, unsigned>>{{4, 4}, {4, 3}, {4, 2}, {4, 3}},
          {{4, 3}, {0, 2}, {4, 3}},
          {{4, 9}, {4, 9}},
          {{4, 0}, {4, 6}}}) {
        mesh.primitives = primitives;
        expectAsNaive(mesh);
    }
}

TEST(CreateSharedIndex, GivesACubeEightPositionsAndSixNormals) {
    const geometry_ref geometry(geometryOf(cube()));
    morva::osg::createSharedIndex(geometry);
    const rebuilt shared = contentsOf(geometry);
    EXPECT_EQ(shared.values[0].size(), 8U);
    EXPECT_EQ(shared.values[1].size(), 6U);
    EXPECT_EQ(shared.indices.size(), 72U);

    morva::osg::createSingleIndex(geometry);
    const rebuilt single = contentsOf(geometry);
    EXPECT_EQ(single.values[0].size(), 24U);
    EXPECT_EQ(single.values[1].size(), 24U);
    EXPECT_EQ(single.indices.size(), 36U);
    EXPECT_TRUE(single.mapping.empty());
}

TEST(CreateSharedIndex, KeepsTheTriangles) {
    std::mt19937 rng(66);
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const node_ref node(
            meshNode(withIndexPerProperty(withAttributes(mixture(rng, 8), rng), rng)));
        mesh_choice choice;
        choice.ids = true;
        const world_mesh before = worldMesh(node, choice);
        morva::osg::createSharedIndex(coreOf(node));
        EXPECT_EQ(firstDifference(before, worldMesh(node, choice)), "");
        morva::osg::createSingleIndex(coreOf(node));
        EXPECT_EQ(firstDifference(before, worldMesh(node, choice)), "");
    }
}

struct pair_case {
    const char* name;
    ::osg::Pnt3f a, b;
    std::size_t positions; ///< that remain of a, b and a third one
};

class PairsOfValues : public testing::TestWithParam<pair_case> {};

TEST_P(PairsOfValues, JoinOnlyWhenNoComponentDiffers) {
    const geometry_ref geometry(geometryOf(twoPoints(GetParam().a, GetParam().b)));
    morva::osg::createSharedIndex(geometry);
    const rebuilt shared = contentsOf(geometry);
    ASSERT_EQ(shared.values[0].size(), GetParam().positions);
    // What was met first is what is stored, signed zeros included.
    EXPECT_EQ(shared.values[0][0], bitsOf(GetParam().a, 3));
}

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    , PairsOfValues,
    testing::Values(pair_case{"equal", {1, 2, 3}, {1, 2, 3}, 2},
                    pair_case{"negative_zero_second", {0, 0, 0}, {-0.0F, 0, 0}, 2},
                    pair_case{"negative_zero_first", {0, -0.0F, 0}, {0, 0, 0}, 2},
                    pair_case{"smallest_step", {1, 2, 3}, {1, 2, std::nextafter(3.0F, 4.0F)}, 3},
                    pair_case{"smallest_positive", {0, 0, 0}, {0, 0, 1e-45F}, 3},
                    pair_case{"components_swapped", {1, 2, 3}, {2, 1, 3}, 3},
                    pair_case{"nan_twice", {nan_value, 0, 0}, {nan_value, 0, 0}, 3},
                    pair_case{"infinite", {HUGE_VALF, 0, 0}, {HUGE_VALF, 0, 0}, 2},
                    pair_case{"infinite_of_two_signs", {HUGE_VALF, 0, 0}, {-HUGE_VALF, 0, 0}, 3}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(CreateSharedIndex, ANanUsedTwiceByItsIndexStaysTwo) {
    mesh_data mesh = twoPoints({nan_value, 0, 0}, {1, 1, 1});
    mesh.primitives = {{4, 6}};
    mesh.indices = {0, 1, 2, 0, 1, 2};
    const geometry_ref geometry(geometryOf(mesh));
    morva::osg::createSharedIndex(geometry);
    EXPECT_EQ(contentsOf(geometry).indices, (std::vector<std::uint32_t>{0, 1, 2, 3, 1, 2}));
}

TEST(CreateSharedIndex, ReadsEveryStoredFormAndWritesTheUsualOnes) {
    std::mt19937 rng(67);
    const geometry_ref geometry(geometryOf(withIds(soup(rng, 2))));
    const ::osg::GeoColors4fPtr colors = ::osg::GeoColors4f::create();
    for (int i = 0; i < 6; ++i) // differ in alpha alone
        colors->editField().push_back(::osg::Color4f(1, 0.5F, 0, 0.1F * static_cast<float>(i)));
    geometry->setColors(colors);
    morva::osg::createSharedIndex(geometry);
    EXPECT_EQ(geometry->getColors()->size(), 1U);
    EXPECT_NE(::osg::GeoColors3fPtr::dcast(geometry->getColors()), ::osg::NullFC);
    const auto ids = ::osg::GeoTexCoords2fPtr::dcast(geometry->getTexCoords7());
    ASSERT_NE(ids, ::osg::NullFC);
    ASSERT_EQ(ids->size(), 2U);
    EXPECT_EQ(ids->editField()[1][0], 1.0F);
    EXPECT_EQ(ids->editField()[1][1], 0.0F);
}

TEST(CreateSharedIndex, LeavesWhatItDoesNotHandleInPlaceAndUnmapped) {
    std::mt19937 rng(68);
    mesh_data mesh = soup(rng, 3);
    mesh.secondary.resize(9);
    const geometry_ref geometry(geometryOf(mesh));
    const ::osg::GeoTexCoords2fPtr other = ::osg::GeoTexCoords2f::create();
    geometry->setTexCoords3(other);
    const ::osg::GeoColorsPtr secondary = geometry->getSecondaryColors();
    morva::osg::createSharedIndex(geometry);
    EXPECT_EQ(geometry->getSecondaryColors(), secondary);
    EXPECT_EQ(geometry->getTexCoords3(), other);
    EXPECT_EQ(contentsOf(geometry).mapping, (std::vector<std::uint16_t>{1}));
}

TEST(CreateSharedIndex, LeavesASharedPropertyOfAnotherGeometryAlone) {
    const geometry_ref first(geometryOf(cube())), second(geometryOf(cube()));
    second->setPositions(first->getPositions());
    second->setIndices(first->getIndices());
    const rebuilt before = contentsOf(second);
    morva::osg::createSingleIndex(first);
    expectSame(before, contentsOf(second));
}

TEST(CreateSharedIndex, MakesARunOfNothingWhereThereAreNoTriangles) {
    for (const mesh_data& mesh : {mesh_data(), row(6, 1), row(5, 0), strip(2)}) {
        const geometry_ref shared(geometryOf(mesh)), single(geometryOf(mesh));
        const bool placed = shared->getPositions() != ::osg::NullFC;
        morva::osg::createSharedIndex(shared);
        morva::osg::createSingleIndex(single);
        for (const geometry_ref& geometry : {shared, single}) {
            const rebuilt out = contentsOf(geometry);
            EXPECT_EQ(out.types, (std::vector<std::uint32_t>{4}));
            EXPECT_EQ(out.lengths, (std::vector<std::uint32_t>{0}));
            EXPECT_TRUE(out.indices.empty());
            EXPECT_EQ(out.present[0], placed);
            EXPECT_TRUE(out.values[0].empty());
        }
    }
    morva::osg::createSharedIndex(::osg::NullFC);
    morva::osg::createSingleIndex(::osg::NullFC);
}

TEST(CreateSharedIndex, CountsCornersOfAGeometryWithoutAnyProperty) {
    mesh_data mesh;
    mesh.primitives = {{4, 6}};
    mesh.indices = {0, 1, 2, 2, 1, 3};
    const geometry_ref shared(geometryOf(mesh)), single(geometryOf(mesh));
    morva::osg::createSharedIndex(shared);
    EXPECT_TRUE(contentsOf(shared).indices.empty());
    EXPECT_EQ(contentsOf(shared).lengths, (std::vector<std::uint32_t>{6}));
    // Every corner has the one tuple that has nothing in it.
    morva::osg::createSingleIndex(single);
    EXPECT_EQ(contentsOf(single).indices, std::vector<std::uint32_t>(6, 0));
}

TEST(CreateSharedIndex, SurvivesIndicesBeyondTheValues) {
    mesh_data mesh = cube();
    mesh.indices[0] = 4000000000U;
    mesh.indices[5] = 77;
    mesh.primitives = {{4, 36}, {4, 300}};
    expectAsNaive(mesh);
}

TEST(CreateSharedIndex, LeavesNoContainersBehind) {
    const unsigned int before = liveContainers();
    {
        std::mt19937 rng(69);
        const geometry_ref geometry(geometryOf(withAttributes(soup(rng, 20), rng)));
        const unsigned int built = liveContainers();
        morva::osg::createSharedIndex(geometry);
        EXPECT_EQ(liveContainers(), built + 1); // the index is new
        morva::osg::createSingleIndex(geometry);
        EXPECT_EQ(liveContainers(), built + 1);
    }
    EXPECT_EQ(liveContainers(), before);
}
