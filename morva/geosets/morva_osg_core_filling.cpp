// What is in a new core: the rows of a run of sorted objects, at the output level.

#include <morva/geosets/morva_osg_core_filling.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_index_rebuild.h>
#include <morva/core/morva_osg_platform.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_span.h>
#include <morva/geosets/morva_osg_element_index.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>

namespace morva::osg {

namespace {

/// Most entries of a property that is stored in 16 bits.
constexpr std::size_t short_limit = 65534;

/// What the elements of a geoset are in a geometry.
template <typename G> struct element_form;
template <> struct element_form<osg_geoset> {
    static constexpr unsigned int corners = 3;
    static constexpr ::osg::UInt8 type = 4; ///< GL_TRIANGLES
};
template <> struct element_form<osg_line_geoset> {
    static constexpr unsigned int corners = 2;
    static constexpr ::osg::UInt8 type = 1; ///< GL_LINES
};
template <> struct element_form<osg_point_geoset> {
    static constexpr unsigned int corners = 1;
    static constexpr ::osg::UInt8 type = 0; ///< GL_POINTS
};

/// A run of sorted objects without those that the geoset does not have.
struct object_run {
    span<const std::uint64_t> objects; ///< in the tree's array, or in `kept`
    std::vector<std::uint64_t> kept;   ///< filled only if some were passed over
    unsigned int corners = 0;          ///< vertices of one object
};

template <typename T, typename G>
object_run validRun(const T& tree, const G& geoset, unsigned int first, unsigned int count) {
    object_run run;
    run.corners = element_form<G>::corners;
    run.objects = span<const std::uint64_t>(tree.indices, tree.index_count).subspan(first, count);
    const auto valid = [&](std::uint64_t object) { return object < geoset.size; };
    if (std::all_of(run.objects.begin(), run.objects.end(), valid))
        return run;

    for (std::size_t i = 0; i < run.objects.size(); ++i) {
        const std::uint64_t object = run.objects[i];
        if (valid(object)) {
            run.kept.push_back(object);
            continue;
        }
        say({"Index out of bounce.( Splitmodel )"});
        say({"I: ", std::to_string(first + i), " index: ", std::to_string(object),
             " num_objects: ", std::to_string(geoset.size)});
    }
    run.objects = run.kept;
    return run;
}

/// Copies the vertices of a run's objects; where the source is too short they read zero.
template <typename Row> void copyRows(span<const Row> source, const object_run& run, Row* out) {
    for (const std::uint64_t object : run.objects) {
        const std::size_t base = object * run.corners;
        for (std::size_t row = base; row < base + run.corners; ++row) {
            *out++ = row < source.size() ? source[row] : Row();
        }
    }
}

/// Fills a new property with the run's rows of `source`. `take` hands the property to the
/// geometry, which owns it from then on.
template <typename Concrete, typename Row, typename Take>
void rebuild(span<const Row> source, const object_run& run, const Take& take) {
    const Concrete made = Concrete::StoredObjectType::create();
    take(made);
    auto& rows = made->editField();
    rows.resize(run.objects.size() * run.corners);
    if (!rows.empty())
        copyRows(source, run, &rows[0]);
}

/// Gives `geometry` the run's rows of every property that the geoset's core has: coordinates of
/// one component as they are, all others in their usual forms.
void rebuildProperties(const ::osg::GeometryPtr& core, const object_run& run,
                       const ::osg::GeometryPtr& geometry) {
    for (const vertex_property which : all_properties) {
        withProperty(core, geometry, which, [&](const auto& source, const auto& take) {
            if (source == ::osg::NullFC && which != vertex_property::position)
                return;
            if constexpr (std::is_same_v<usual_form<decltype(source)>, ::osg::GeoTexCoords2fPtr>) {
                const auto single = ::osg::GeoTexCoords1fPtr::dcast(source);
                if (single != ::osg::NullFC)
                    return rebuild<::osg::GeoTexCoords1fPtr>(
                        span<const ::osg::Real32>(editSpan(single)), run, take);
            }
            const auto block = readBlock(source);
            rebuild<usual_form<decltype(source)>>(block.view(), run, take);
        });
    }
}

/// One primitive over all vertices; its length in 16 bits where it fits.
void setPrimitive(const ::osg::GeometryPtr& geometry, ::osg::UInt8 type, std::size_t vertices) {
    const ::osg::GeoPTypesPtr types = ::osg::GeoPTypesUI8::create();
    geometry->setTypes(types);
    types->addValue(type);
    ::osg::GeoPLengthsPtr lengths;
    if (vertices <= short_limit) {
        lengths = ::osg::GeoPLengthsUI16::create();
    } else {
        lengths = ::osg::GeoPLengthsUI32::create();
    }
    geometry->setLengths(lengths);
    lengths->addValue(static_cast<::osg::UInt32>(vertices));
}

/// Copies the values of `source` into a new property of the form `Concrete`, given to the
/// geometry by `take`.
template <typename Concrete, typename Ptr, typename Take>
void restore(const Ptr& source, const Take& take) {
    const ::osg::RefPtr<Ptr> kept(source);
    const auto block = readBlock(source);
    const Concrete made = Concrete::StoredObjectType::create();
    take(made);
    auto& field = made->editField();
    field.reserve(block.view().size());
    using value = std::decay_t<decltype(field[0])>;
    for (const ::osg::UInt32 entry : block.view())
        field.push_back(static_cast<value>(entry));
}

template <typename Ptr> bool fitsShort(const Ptr& property) {
    const auto block = readBlock(property);
    return std::all_of(block.view().begin(), block.view().end(),
                       [](::osg::UInt32 value) { return value <= 65535; });
}

/// Strips by the scene graph. Lengths are kept wide meanwhile: one strip stitched of many can be
/// longer than the triangles that it stands for.
void optimisePrimitives(const ::osg::GeometryPtr& geometry) {
    const bool was_short =
        ::osg::GeoPLengthsUI16Ptr::dcast(geometry->getLengths()) != ::osg::NullFC;
    restore<::osg::GeoPLengthsUI32Ptr>(geometry->getLengths(),
                                       [&](const auto& made) { geometry->setLengths(made); });
    joinEqualVertices(geometry);
    ::osg::createSingleIndex(geometry);
    morva::osg::createOptimizedPrimitives(geometry, 1, true, false, 16, false, true, false);
    if (!was_short || !fitsShort(geometry->getLengths()))
        return;
    restore<::osg::GeoPLengthsUI16Ptr>(geometry->getLengths(),
                                       [&](const auto& made) { geometry->setLengths(made); });
}

void calculateNormals(const ::osg::GeometryPtr& geometry) {
    geometry->setNormals(::osg::NullFC);
    joinEqualVertices(geometry);
    ::osg::createSingleIndex(geometry);
    calcCreaseNormals(geometry, crease_angle);
}

/// The index of the output levels 1 and 2 over all properties, in the forms of the functions that
/// handle five.
void indexAllProperties(const ::osg::GeometryPtr& geometry, bool per_property) {
    unindexVertices(geometry);
    indexVertices(geometry, per_property);
    restore<::osg::GeoPLengthsUI32Ptr>(geometry->getLengths(),
                                       [&](const auto& made) { geometry->setLengths(made); });
}

/// Brings triangles from the unindexed form to that of the output level.
void applyLevel(const ::osg::GeometryPtr& geometry, int opt, const osg_geoset*) {
    if ((opt == 1 || opt == 2) && hasFurtherProperties(geometry)) {
        indexAllProperties(geometry, opt == 2);
        return;
    }
    if (opt == 1)
        rebuildAsTriangles(geometry, triangle_index::common);
    if (opt == 2)
        rebuildAsTriangles(geometry, triangle_index::per_property);
    if (opt == 3)
        optimisePrimitives(geometry);
}

/// As for triangles. What rebuilds triangles drops lines and points, so they are indexed apart.
template <typename G> void applyLevel(const ::osg::GeometryPtr& geometry, int opt, const G*) {
    if (opt == 1)
        indexVertices(geometry, false);
    if (opt == 2)
        indexVertices(geometry, true);
    if (opt == 3) {
        joinEqualVertices(geometry);
        ::osg::createSingleIndex(geometry);
    }
}

/// Stores the indices in 16 bits if there are few; the values must fit, too: a strip can use
/// fewer indices than there are vertices.
void narrowIndices(const ::osg::GeometryPtr& geometry) {
    const ::osg::GeoIndicesPtr indices = geometry->getIndices();
    if (indices == ::osg::NullFC || indices->size() > short_limit || !fitsShort(indices))
        return;
    restore<::osg::GeoIndicesUI16Ptr>(indices,
                                      [&](const auto& made) { geometry->setIndices(made); });
}

} // namespace

template <typename T, typename G>
void fillCore(const ::osg::GeometryPtr& geometry, const T& tree, const G& geoset,
              unsigned int first, unsigned int count, int opt, bool calcnormals) {
    const object_run run = validRun(tree, geoset, first, count);
    constexpr bool triangles = element_form<G>::corners == 3;
    // A geoset without a core has nothing, as the new geometry has.
    const ::osg::GeometryPtr core =
        geoset.geometry == ::osg::NullFC ? geometry : geoset.geometry.get();
    const geometry_edit edit(geometry);
    rebuildProperties(core, run, geometry);
    setPrimitive(geometry, element_form<G>::type, run.objects.size() * run.corners);
    geometry->setMaterial(core->getMaterial());

    if (calcnormals && triangles)
        calculateNormals(geometry);
    if (opt < 0 || opt > 3) {
        say({"Splitmodel: OutputLevel ", std::to_string(opt), " not supported"});
    }
    applyLevel(geometry, opt, &geoset);
    narrowIndices(geometry);
}

#define MORVA_FILL_INSTANCE(G)                                                                     \
    template void fillCore(const ::osg::GeometryPtr&, const kd_tree<float>&, const G&,             \
                           unsigned int, unsigned int, int, bool)
MORVA_FILL_INSTANCE(osg_geoset);
MORVA_FILL_INSTANCE(osg_line_geoset);
MORVA_FILL_INSTANCE(osg_point_geoset);

} // namespace morva::osg
