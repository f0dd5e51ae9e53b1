// Index rebuilding against a twin with ordered maps, on the index layouts and values that tell the
// two apart: signed zeros, neighbouring floats, NaN, other stored forms, missing properties.

#include <morva/core/morva_osg_geometry_tools.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include <OpenSG/OSGTriangleIterator.h>

#include "tests/support/live_containers.h"
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

bool hasNan(const bits& value) {
    return std::any_of(value.begin(), value.end(),
                       [](std::uint32_t word) { return std::isnan(floatOf(word)); });
}

/// Lexicographic by exact float comparison; only for values without NaN.
struct exactly_less {
    bool operator()(const bits& a, const bits& b) const {
        return std::lexicographical_compare(
            a.begin(), a.end(), b.begin(), b.end(),
            [](std::uint32_t x, std::uint32_t y) { return floatOf(x) < floatOf(y); });
    }
};

/// What a rebuilt geometry holds; the five properties in their order.
struct rebuilt {
    std::array<bool, 5> present{};
    std::array<std::vector<bits>, 5> values;
    std::vector<std::uint32_t> indices, mapping, types = {4}, lengths;
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
    EXPECT_EQ(expected.values, actual.values);
    EXPECT_EQ(expected.indices, actual.indices);
    EXPECT_EQ(expected.mapping, actual.mapping);
    EXPECT_EQ(expected.types, actual.types);
    EXPECT_EQ(expected.lengths, actual.lengths);
}

/// One index per property: each value is looked up in a map of its property's values so far.
rebuilt naiveShared(const ::osg::GeometryPtr& geometry) {
    const std::uint32_t map_bits[5] = {1, 2, 4, 16, 2048};
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
            const bits corner[5] = {out.present[0] ? bitsOf(it.getPosition(k), 3) : bits(),
                                    bitsOf(it.getNormal(k), 3), bitsOf(it.getColor(k), 3),
                                    bitsOf(it.getTexCoords(k), 2), bitsOf(it.getTexCoords7(k), 2)};
            for (std::size_t place = 0; place < 5; ++place) {
                if (!out.present[place])
                    continue;
                const auto next = static_cast<std::uint32_t>(out.values[place].size());
                const std::uint32_t number =
                    hasNan(corner[place]) ? next
                                          : known[place].emplace(corner[place], next).first->second;
                out.indices.push_back(number);
                if (number == next)
                    out.values[place].push_back(corner[place]);
            }
        }
    }
    out.lengths = {corners};
    return out;
}

/// One common index, from the shared form: a map of the corners' indices.
rebuilt naiveSingle(const rebuilt& shared) {
    using morva::osg::singleIndexStruct;
    std::int32_t singleIndexStruct::*const fields[5] = {
        &singleIndexStruct::position, &singleIndexStruct::normal, &singleIndexStruct::color,
        &singleIndexStruct::texCoord, &singleIndexStruct::texCoord7};
    rebuilt out;
    out.present = shared.present;
    out.lengths = shared.lengths;
    std::map<singleIndexStruct, std::uint32_t> known;
    std::size_t at = 0;
    for (std::size_t corner = 0; corner < shared.lengths[0]; ++corner) {
        singleIndexStruct key;
        for (std::size_t place = 0; place < 5; ++place) {
            if (shared.present[place])
                key.*fields[place] = static_cast<std::int32_t>(shared.indices[at++]);
        }
        const auto entered = known.emplace(key, static_cast<std::uint32_t>(known.size()));
        out.indices.push_back(entered.first->second);
        for (std::size_t place = 0; entered.second && place < 5; ++place) {
            if (shared.present[place])
                out.values[place].push_back(
                    shared.values[place][static_cast<std::size_t>(key.*fields[place])]);
        }
    }
    return out;
}

/// Replaces each property that there is by one of another form with the same values.
void storeOtherwise(const ::osg::GeometryPtr& geometry) {
    const auto other = [](const auto& from, auto create) {
        decltype(create()) to;
        if (from != ::osg::NullFC)
            to = create();
        for (::osg::UInt32 i = 0; to != ::osg::NullFC && i < from->size(); ++i)
            to->addValue(from->getValue(i));
        return to;
    };
    geometry->setPositions(other(geometry->getPositions(), &::osg::GeoPositions3d::create));
    geometry->setNormals(other(geometry->getNormals(), &::osg::GeoNormals3b::create));
    geometry->setColors(other(geometry->getColors(), &::osg::GeoColors4ub::create));
    geometry->setTexCoords(other(geometry->getTexCoords(), &::osg::GeoTexCoords3f::create));
    geometry->setIndices(other(geometry->getIndices(), &::osg::GeoIndicesUI16::create));
    geometry->setTypes(other(geometry->getTypes(), &::osg::GeoPTypesUI32::create));
    geometry->setLengths(other(geometry->getLengths(), &::osg::GeoPLengthsUI16::create));
}

/// Whether every property that there is has the form that rebuilding makes.
bool hasUsualForms(const ::osg::GeometryPtr& g) {
    const auto is = [](const auto& property, auto form) {
        return property == ::osg::NullFC || decltype(form)::dcast(property) != ::osg::NullFC;
    };
    return is(g->getPositions(), ::osg::GeoPositions3fPtr()) &&
           is(g->getNormals(), ::osg::GeoNormals3fPtr()) &&
           is(g->getColors(), ::osg::GeoColors3fPtr()) &&
           is(g->getTexCoords(), ::osg::GeoTexCoords2fPtr()) &&
           is(g->getTexCoords7(), ::osg::GeoTexCoords2fPtr()) &&
           is(g->getIndices(), ::osg::GeoIndicesUI32Ptr()) &&
           is(g->getTypes(), ::osg::GeoPTypesUI8Ptr()) &&
           is(g->getLengths(), ::osg::GeoPLengthsUI32Ptr());
}

/// Checks both functions on copies of a mesh, and returns what the first one made.
rebuilt expectAsNaive(const mesh_data& mesh, bool otherwise = false) {
    const geometry_ref shared(geometryOf(mesh)), single(geometryOf(mesh));
    if (otherwise) {
        storeOtherwise(shared.get());
        storeOtherwise(single.get());
    }
    const rebuilt expected = naiveShared(shared);
    morva::osg::createSharedIndex(shared);
    morva::osg::createSingleIndex(single);
    const rebuilt made = contentsOf(shared);
    expectSame(expected, made);
    expectSame(naiveSingle(expected), contentsOf(single));
    EXPECT_TRUE(hasUsualForms(shared) && hasUsualForms(single));
    return made;
}

/// Replaces some components by values that are easily confused.
void spoil(mesh_data& mesh, std::mt19937& rng) {
    using limits = std::numeric_limits<float>;
    const float trouble[] = {-0.0F,
                             std::nextafter(1.0F, 2.0F),
                             limits::quiet_NaN(),
                             limits::infinity(),
                             limits::denorm_min(),
                             -limits::max()};
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

mesh_data trianglesOf(std::vector<::osg::Pnt3f> positions) {
    mesh_data mesh;
    mesh.primitives = {{4, static_cast<unsigned>(positions.size())}};
    mesh.positions = std::move(positions);
    return mesh;
}

class IndexRebuild : public no_strays {};

} // namespace

TEST_F(IndexRebuild, AgreesWithOrderedMaps) {
    std::mt19937 rng(63);
    for (int round = 0; round < 600; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        expectAsNaive(randomMesh(rng), round % 4 == 0);
    }
}

TEST_F(IndexRebuild, AgreesWhenTheTablesGrowAndOnNeighbouringFloats) {
    std::mt19937 rng(64);
    mesh_data scattered = soup(rng, 4000), close = soup(rng, 500);
    for (::osg::Pnt3f& position : scattered.positions)
        position[0] = static_cast<float>(rng() % 50000); // many different, some twice
    expectAsNaive(withAttributes(scattered, rng));
    float next = 1.0F;
    for (::osg::Pnt3f& position : close.positions) {
        position = ::osg::Pnt3f(next, 1.0F, 1.0F);
        if (rng() % 3 != 0)
            next = std::nextafter(next, 2.0F);
    }
    expectAsNaive(close);
}

TEST_F(IndexRebuild, AgreesOnOddPrimitivesAndIndices) {
    std::mt19937 rng(70);
    std::vector<mesh_data> meshes = {mesh_data(), row(6, 1), row(5, 0), strip(2)};
    const mesh_data four = withAttributes(soup(rng, 4), rng);
    for (const auto& primitives :
         {std::vector<std::pair<unsigned, unsigned>>{{4, 4}, {4, 3}, {4, 2}, {4, 3}},
          {{4, 3}, {0, 2}, {4, 3}},
          {{4, 9}, {4, 9}},
          {{4, 0}, {4, 6}}}) {
        meshes.push_back(four);
        meshes.back().primitives = primitives;
    }
    meshes.push_back(cube()); // indices beyond the values
    meshes.back().indices[0] = 4000000000U;
    meshes.back().indices[5] = 77;
    meshes.back().primitives = {{4, 36}, {4, 300}};
    meshes.emplace_back(); // corners of nothing
    meshes.back().primitives = {{4, 6}};
    meshes.back().indices = {0, 1, 2, 2, 1, 3};
    for (const mesh_data& mesh : meshes) {
        SCOPED_TRACE(&mesh - meshes.data());
        expectAsNaive(mesh);
    }
    morva::osg::createSharedIndex(::osg::NullFC);
    morva::osg::createSingleIndex(::osg::NullFC);
}

TEST_F(IndexRebuild, GivesACubeEightPositionsAndSixNormals) {
    const geometry_ref geometry(geometryOf(cube()));
    const unsigned int built = liveContainers();
    for (const bool single : {false, true}) {
        (single ? morva::osg::createSingleIndex : morva::osg::createSharedIndex)(geometry);
        const rebuilt made = contentsOf(geometry);
        EXPECT_EQ(made.values[0].size(), single ? 24U : 8U);
        EXPECT_EQ(made.values[1].size(), single ? 24U : 6U);
        EXPECT_EQ(made.indices.size(), single ? 36U : 72U);
        EXPECT_EQ(made.mapping.empty(), single);
        EXPECT_EQ(liveContainers(), built); // what was replaced is gone
    }
}

TEST_F(IndexRebuild, JoinsValuesOnlyWhenNoComponentDiffers) {
    const float nan_value = std::numeric_limits<float>::quiet_NaN();
    const struct {
        const char* rule;
        ::osg::Pnt3f a, b;
        std::size_t positions; ///< that remain of a, b and a third one
    } rows[] = {{"equal", {1, 2, 3}, {1, 2, 3}, 2},
                {"negative zero second", {0, 0, 0}, {-0.0F, 0, 0}, 2},
                {"negative zero first", {0, -0.0F, 0}, {0, 0, 0}, 2},
                {"smallest step", {1, 2, 3}, {1, 2, std::nextafter(3.0F, 4.0F)}, 3},
                {"components swapped", {1, 2, 3}, {2, 1, 3}, 3},
                {"nan twice", {nan_value, 0, 0}, {nan_value, 0, 0}, 3}};
    for (const auto& row : rows) {
        const rebuilt made = expectAsNaive(trianglesOf({row.a, row.b, {5, 5, 5}}));
        ASSERT_EQ(made.values[0].size(), row.positions) << row.rule;
        EXPECT_EQ(made.values[0][0], bitsOf(row.a, 3)) << row.rule; // the first met stays
    }
}

TEST_F(IndexRebuild, LeavesOtherPropertiesAndOtherGeometriesAlone) {
    const geometry_ref first(geometryOf(cube())), second(geometryOf(cube()));
    const ::osg::GeoTexCoords2fPtr coordinates = ::osg::GeoTexCoords2f::create();
    const ::osg::GeoColors3fPtr secondary = ::osg::GeoColors3f::create();
    first->setTexCoords3(coordinates);
    first->setSecondaryColors(secondary);
    second->setPositions(first->getPositions());
    second->setIndices(first->getIndices());
    const rebuilt before = contentsOf(second);
    morva::osg::createSharedIndex(first);
    expectSame(before, contentsOf(second));
    EXPECT_EQ(first->getSecondaryColors(), secondary);
    EXPECT_EQ(first->getTexCoords3(), coordinates);
    EXPECT_EQ(contentsOf(first).mapping, (std::vector<std::uint32_t>{1, 2}));
}
