// Index rebuilding against a twin with ordered maps, on the index layouts and values that tell the
// two apart: signed zeros, neighbouring floats, NaN, other stored forms, missing properties.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>

#include "tests/support/whole_elements.h"

namespace {

/// Values by the bits of their components, so that -0 is not 0 and a NaN equals itself.
using words = std::vector<std::uint32_t>;

constexpr ::osg::UInt32 widths[5] = {3, 3, 3, 2, 2}; ///< components of a value, per property

/// What a geometry holds. Of the five properties first a 1 and then all values, or nothing where
/// there is none; behind them the indices, the mapping, the types and the lengths.
using contents = std::array<words, 9>;

template <typename Value> words bitsOf(const Value& value, ::osg::UInt32 width) {
    words out(width);
    for (::osg::UInt32 i = 0; i < width; ++i)
        out[i] = bits_of(value[i]);
    return out;
}

void append(words& to, const words& value) { to.insert(to.end(), value.begin(), value.end()); }

template <typename Property> words valuesOf(const Property& property, ::osg::UInt32 width) {
    words out(property != ::osg::NullFC ? 1 : 0, 1);
    for (::osg::UInt32 i = 0; !out.empty() && i < property->size(); ++i)
        append(out, bitsOf(property->getValue(i), width));
    return out;
}

template <typename Property> words numbersOf(const Property& property) {
    words out;
    for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < property->size(); ++i)
        out.push_back(property->getValue(i));
    return out;
}

contents contentsOf(const ::osg::GeometryPtr& g) {
    const auto& mapping = *g->getMFIndexMapping();
    return {valuesOf(g->getPositions(), widths[0]),
            valuesOf(g->getNormals(), widths[1]),
            valuesOf(g->getColors(), widths[2]),
            valuesOf(g->getTexCoords(), widths[3]),
            valuesOf(g->getTexCoords7(), widths[4]),
            numbersOf(g->getIndices()),
            words(mapping.begin(), mapping.end()),
            numbersOf(g->getTypes()),
            numbersOf(g->getLengths())};
}

std::uint32_t countOf(const contents& all, std::size_t property) {
    return std::uint32_t((all[property].size() - 1) / widths[property]);
}

float floatOf(std::uint32_t word) {
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

bool hasNan(const words& value) {
    return std::any_of(value.begin(), value.end(),
                       [](std::uint32_t word) { return std::isnan(floatOf(word)); });
}

/// Lexicographic by exact float comparison; only for values without NaN.
struct exactly_less {
    bool operator()(const words& a, const words& b) const {
        return std::lexicographical_compare(
            a.begin(), a.end(), b.begin(), b.end(),
            [](std::uint32_t x, std::uint32_t y) { return floatOf(x) < floatOf(y); });
    }
};

/// One index per property: each value is looked up in a map of its property's values so far.
contents naiveShared(const ::osg::GeometryPtr& geometry) {
    const std::uint32_t map_bits[5] = {1, 2, 4, 16, 2048};
    const contents source = contentsOf(geometry);
    contents out;
    std::uint32_t indexed = source[5].empty() || source[6].empty() ? ~0U : 0;
    for (const std::uint32_t bits : source[6])
        indexed |= bits;
    for (std::size_t i = 0; i < 5; ++i) {
        out[i].assign(source[i].empty() ? 0 : 1, 1);
        out[6].insert(out[6].end(), out[i].size(), map_bits[i]);
    }
    std::array<std::map<words, std::uint32_t, exactly_less>, 5> known;
    std::uint32_t corners = 0;
    for (auto it = geometry->beginTriangles(); !it.isAtEnd() && isWhole(it, 3); ++it) {
        for (::osg::Int32 k = 0; k < 3; ++k, ++corners) {
            words corner[5] = {source[0].empty() ? words() : bitsOf(it.getPosition(k), 3),
                               bitsOf(it.getNormal(k), 3), bitsOf(it.getColor(k), 3),
                               bitsOf(it.getTexCoords(k), 2), bitsOf(it.getTexCoords7(k), 2)};
            for (std::size_t i = 0; i < 5; ++i) {
                if (source[i].empty())
                    continue;
                if ((indexed & map_bits[i]) == 0)
                    corner[i].assign(widths[i], 0);
                const std::uint32_t next = countOf(out, i);
                out[5].push_back(
                    hasNan(corner[i]) ? next : known[i].emplace(corner[i], next).first->second);
                if (out[5].back() == next)
                    append(out[i], corner[i]);
            }
        }
    }
    out[7] = {4};
    out[8] = {corners};
    return out;
}

/// One common index, from the shared form: a map of the corners' indices.
contents naiveSingle(const contents& shared) {
    using corner = morva::osg::singleIndexStruct;
    std::int32_t corner::*const fields[5] = {&corner::position, &corner::normal, &corner::color,
                                             &corner::texCoord, &corner::texCoord7};
    contents out;
    for (std::size_t i = 0; i < 5; ++i)
        out[i].assign(shared[i].empty() ? 0 : 1, 1);
    std::map<corner, std::uint32_t> known;
    std::size_t at = 0;
    for (std::size_t left = shared[8][0]; left > 0; --left) {
        corner key;
        for (std::size_t i = 0; i < 5; ++i) {
            if (!shared[i].empty())
                key.*fields[i] = static_cast<std::int32_t>(shared[5][at++]);
        }
        const auto entered = known.emplace(key, std::uint32_t(known.size()));
        out[5].push_back(entered.first->second);
        for (std::size_t i = 0; entered.second && i < 5; ++i) {
            if (shared[i].empty())
                continue;
            const auto value = shared[i].begin() + 1 + key.*fields[i] * std::int64_t(widths[i]);
            out[i].insert(out[i].end(), value, value + widths[i]);
        }
    }
    out[7] = shared[7];
    out[8] = shared[8];
    return out;
}

/// Stored otherwise, and some without lengths: each primitive has all vertices then.
void storeOddly(const ::osg::GeometryPtr& geometry) {
    storeOtherwise(geometry);
    if (geometry->getLengths() != ::osg::NullFC && geometry->getLengths()->size() % 3 == 2)
        geometry->setLengths(::osg::NullFC);
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

/// Checks both functions on copies of a mesh. What else there is and who else has it stay alone.
void expectAsNaive(const mesh_data& mesh, bool otherwise = false) {
    const geometry_ref shared(geometryOf(mesh)), single(geometryOf(mesh)), other(geometryOf(mesh));
    const geometry_ref all(everyProperty(3));
    if (otherwise) {
        storeOddly(shared.get());
        storeOddly(single.get());
    }
    shared->setSecondaryColors(all->getSecondaryColors());
    other->setNormals(shared->getNormals());
    const contents expected = naiveShared(shared), before = contentsOf(other);
    morva::osg::createSharedIndex(shared);
    EXPECT_EQ(contentsOf(other), before);
    EXPECT_EQ(shared->getSecondaryColors(), all->getSecondaryColors());
    morva::osg::createSingleIndex(single);
    EXPECT_EQ(contentsOf(shared), expected);
    EXPECT_EQ(contentsOf(single), naiveSingle(expected));
    EXPECT_TRUE(hasUsualForms(shared) && hasUsualForms(single));
}

/// Any mesh, with some components replaced by values that are easily confused; a large one lets the
/// tables grow.
mesh_data randomMesh(std::mt19937& rng, bool large = false) {
    using limits = std::numeric_limits<float>;
    const auto spoil = [&](float& component) {
        const float trouble[] = {-0.0F,
                                 floatOf(bits_of(1.0F) + rng() % 3), // neighbours
                                 limits::quiet_NaN(),
                                 limits::infinity(),
                                 -limits::max(),
                                 limits::denorm_min()};
        if (rng() % 5 == 0)
            component = trouble[rng() % 6];
    };
    mesh_data mesh = large            ? soup(rng, 4000)
                     : rng() % 2 == 0 ? soup(rng, rng() % 30)
                                      : mixture(rng, rng() % 12);
    for (std::size_t i = 0; large && i < mesh.positions.size(); ++i)
        mesh.positions[i][0] = float(rng() % 50000); // many different, some twice
    mesh = withAttributes(std::move(mesh), rng);
    const bool spoilt = rng() % 2 == 0;
    for (std::size_t i = 0; spoilt && i < mesh.positions.size(); ++i) {
        spoil(mesh.positions[i][i % 3]);
        spoil(mesh.coordinates[i][i % 2]);
        spoil(mesh.ids[i]);
    }
    const auto lacking = [&](auto& list) { list.resize(rng() % 2 == 0 ? 0 : list.size()); };
    lacking(mesh.normals);
    lacking(mesh.colors);
    lacking(mesh.coordinates);
    lacking(mesh.ids);
    const unsigned layout = rng() % 4;
    if (layout == 0)
        return withIndex(std::move(mesh), rng);
    if (layout == 1)
        mesh = withIndexPerProperty(std::move(mesh), rng);
    if (!mesh.mapping.empty() && rng() % 2 == 0) // a property without an index
        mesh.mapping[rng() % mesh.mapping.size()] = ::osg::Geometry::MapEmpty;
    return mesh;
}

} // namespace

TEST(IndexRebuild, AgreesWithOrderedMaps) {
    std::mt19937 rng(seedOf(63));
    for (int round = 0; round < roundsOf(600); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        expectAsNaive(randomMesh(rng, round % 100 == 0), round % 4 == 0);
    }
}

TEST(IndexRebuild, AgreesOnOddPrimitivesAndIndices) {
    std::mt19937 rng(seedOf(70));
    const mesh_data four = withAttributes(soup(rng, 4), rng);
    std::vector<mesh_data> meshes(4, four);
    meshes[0].primitives = {{4, 4}, {4, 3}, {4, 2}, {4, 3}};
    meshes[1].primitives = {{4, 9}, {4, 9}};
    meshes[2].primitives = {{4, 10}, {4, 2}}; // the data just reaches for the rest
    meshes[3].primitives = {{4, 1}, {7, 9}, {4, 2}};
    mesh_data outside = cube(), of_nothing; // indices beyond the values
    outside.indices[0] = 4000000000U;
    outside.indices[5] = 77;
    outside.primitives = {{4, 36}, {4, 300}};
    of_nothing.primitives = {{4, 6}};
    of_nothing.indices = {0, 1, 2, 2, 1, 3};
    for (const mesh_data& mesh : {outside, of_nothing, mesh_data(), row(6, 1), row(5, 0), strip(2)})
        meshes.push_back(mesh);
    for (const mesh_data& mesh : meshes) {
        SCOPED_TRACE(&mesh - meshes.data());
        expectAsNaive(mesh);
    }
    morva::osg::createSharedIndex(::osg::NullFC);
    morva::osg::createSingleIndex(::osg::NullFC);
}

/// The indices with equal vertices joined: every pair is compared, byte by byte.
words naiveJoined(const ::osg::GeometryPtr& g) {
    const contents all = contentsOf(g);
    words mapping = all[6], indices = all[5];
    for (std::uint32_t i = 0; g->getIndices() == ::osg::NullFC && i < g->getPositions()->size();
         ++i)
        indices.push_back(i);
    if (mapping.empty() || g->getIndices() == ::osg::NullFC)
        mapping = {0x0FFF};
    const words old = indices;
    const auto same = [&](std::uint32_t bits, std::uint32_t a, std::uint32_t b) {
        bool compared = a == b;
        for (std::uint32_t bit = 1; bit < 4096; bit *= 2) {
            const auto* p = (bits & bit) != 0 ? g->getProperty(int(bit)) : nullptr;
            const std::uint32_t count = p != nullptr ? p->getSize() : 0;
            const std::size_t bytes = p != nullptr ? p->getDimension() * p->getFormatSize() : 0;
            if ((a < count) != (b < count) ||
                (a < count &&
                 std::memcmp(p->getData() + a * bytes, p->getData() + b * bytes, bytes) != 0))
                return false;
            compared = compared || a < count;
        }
        return compared;
    };
    for (std::size_t i = 0; i < old.size(); ++i) {
        std::size_t first = i % mapping.size();
        while (!same(mapping[i % mapping.size()], old[first], old[i]))
            first += mapping.size();
        indices[i] = old[first];
    }
    return indices;
}

TEST(IndexRebuild, JoinsAllEqualVerticesAndNothingElse) {
    std::mt19937 rng(seedOf(65));
    for (int round = 0; round < roundsOf(300); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const geometry_ref core(geometryOf(randomMesh(rng)));
        if (core->getPositions() == ::osg::NullFC)
            continue;
        if (round % 4 == 0)
            storeOddly(core);
        if (round % 5 == 0 && core->getTexCoords() != ::osg::NullFC) // shorter than the others
            core->getTexCoords()->resize(core->getTexCoords()->size() / 2);
        contents expected = contentsOf(core);
        expected[5] = naiveJoined(core);
        if (core->getIndices() == ::osg::NullFC)
            expected[6].clear();
        const geometry_ref other(core->clone());
        other->setIndices(core->getIndices());
        const contents before = contentsOf(other);
        morva::osg::joinEqualVertices(core);
        EXPECT_EQ(contentsOf(core), expected);
        EXPECT_EQ(contentsOf(other), before) << "an index that others have is left to them";
    }
    morva::osg::joinEqualVertices(::osg::NullFC);
    morva::osg::joinEqualVertices(geometry_ref(::osg::Geometry::create()));
}
