#include "scenes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include <sys/resource.h>

#include <OpenSG/OSGGeoPropPtrs.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGTransform.h>

#include <morva/trees/kd_tree.h>

#include "model.h"

namespace morva_bench {

namespace {

constexpr const char* engine_file =
    "/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";

/// A copy of a tree with cores of its own, or with shared geometry.
::osg::NodePtr copyOf(const ::osg::NodePtr& source, bool own_cores) {
    const ::osg::NodePtr copy = ::osg::Node::create();
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(source->getCore());
    const ::osg::TransformPtr placed = ::osg::TransformPtr::dcast(source->getCore());
    if (geometry != ::osg::NullFC) {
        copy->setCore(own_cores ? geometry->clone() : geometry);
    } else if (placed != ::osg::NullFC) {
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        transform->setMatrix(placed->getMatrix());
        copy->setCore(transform);
    } else {
        copy->setCore(::osg::Group::create());
    }
    const ::osg::Char8* name = getName(source);
    if (name != nullptr)
        setName(copy, name);
    for (::osg::UInt32 i = 0; i < source->getNChildren(); ++i)
        copy->addChild(copyOf(source->getChild(i), own_cores));
    return copy;
}

/// A point of the sheet, its normal and its coordinates.
struct sheet_point {
    ::osg::Pnt3f position;
    ::osg::Vec3f normal;
    ::osg::Vec2f coordinates;
};

sheet_point sheetPoint(unsigned column, unsigned row) {
    const auto x = static_cast<float>(column);
    const auto z = static_cast<float>(row);
    ::osg::Vec3f normal(-0.5f * std::cos(0.05f * x), 1.f, 0.5f * std::sin(0.05f * z));
    normal.normalize();
    return {::osg::Pnt3f(x, 10.f * (std::sin(0.05f * x) + std::cos(0.05f * z)), z), normal,
            ::osg::Vec2f(0.01f * x, 0.01f * z)};
}

/// Column and row of a corner of a triangle; two triangles fill a square of the sheet.
struct sheet_corner {
    unsigned column, row;
};
sheet_corner cornerOf(unsigned triangle, unsigned corner, unsigned squares_a_row) {
    constexpr unsigned right[2][3] = {{0, 0, 1}, {1, 0, 1}};
    constexpr unsigned below[2][3] = {{0, 1, 0}, {0, 1, 1}};
    const unsigned square = triangle / 2, half = triangle % 2;
    return {square % squares_a_row + right[half][corner],
            square / squares_a_row + below[half][corner]};
}

/// The vertices of a sheet as the properties of a core.
class sheet_vertices {
  public:
    sheet_vertices(const ::osg::GeometryPtr& core, std::size_t count)
        : positions_(::osg::GeoPositions3f::create()), normals_(::osg::GeoNormals3f::create()),
          coordinates_(::osg::GeoTexCoords2f::create()) {
        positions_->editField().reserve(count);
        normals_->editField().reserve(count);
        coordinates_->editField().reserve(count);
        core->setPositions(positions_);
        core->setNormals(normals_);
        core->setTexCoords(coordinates_);
    }
    void add(const sheet_point& point) {
        positions_->editField().push_back(point.position);
        normals_->editField().push_back(point.normal);
        coordinates_->editField().push_back(point.coordinates);
    }

  private:
    ::osg::GeoPositions3fPtr positions_;
    ::osg::GeoNormals3fPtr normals_;
    ::osg::GeoTexCoords2fPtr coordinates_;
};

::osg::MaterialPtr sheetMaterial() {
    const ::osg::SimpleMaterialPtr material = ::osg::SimpleMaterial::create();
    material->setDiffuse(::osg::Color3f(0.6f, 0.7f, 0.8f));
    return material;
}

} // namespace

::osg::NodeRefPtr triangleGrid(unsigned triangles, bool indexed) {
    const auto columns = std::max(
        1U, static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(triangles) / 2.0))));
    const unsigned rows = (triangles + 2 * columns - 1) / (2 * columns);
    const auto types = ::osg::GeoPTypesUI8::create();
    types->editField().push_back(GL_TRIANGLES);
    const auto lengths = ::osg::GeoPLengthsUI32::create();
    lengths->editField().push_back(3 * triangles);
    const ::osg::GeometryPtr core = ::osg::Geometry::create();
    core->setTypes(types);
    core->setLengths(lengths);
    core->setMaterial(sheetMaterial());

    if (indexed) {
        sheet_vertices vertices(core, static_cast<std::size_t>(columns + 1) * (rows + 1));
        for (unsigned i = 0; i < (columns + 1) * (rows + 1); ++i)
            vertices.add(sheetPoint(i % (columns + 1), i / (columns + 1)));
        const auto indices = ::osg::GeoIndicesUI32::create();
        indices->editField().reserve(std::size_t{3} * triangles);
        for (unsigned i = 0; i < 3 * triangles; ++i) {
            const sheet_corner corner = cornerOf(i / 3, i % 3, columns);
            indices->editField().push_back(corner.row * (columns + 1) + corner.column);
        }
        core->setIndices(indices);
    } else {
        sheet_vertices vertices(core, std::size_t{3} * triangles);
        for (unsigned i = 0; i < 3 * triangles; ++i) {
            const sheet_corner corner = cornerOf(i / 3, i % 3, columns);
            vertices.add(sheetPoint(corner.column, corner.row));
        }
    }
    const ::osg::NodeRefPtr node(::osg::Node::create());
    node->setCore(core);
    return node;
}

::osg::NodeRefPtr engineGrid(unsigned count, bool own_cores) {
    const morva::host::model engine = morva::host::readModel(engine_file);
    const ::osg::NodeRefPtr root(::osg::Node::create());
    root->setCore(::osg::Group::create());
    const auto row = static_cast<unsigned>(std::ceil(std::sqrt(static_cast<double>(count))));
    for (unsigned i = 0; i < count; ++i) {
        ::osg::Matrix place;
        place.setTranslate(800.f * static_cast<float>(i % row), 800.f * static_cast<float>(i / row),
                           0.f);
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        transform->setMatrix(place);
        const ::osg::NodePtr node = ::osg::Node::create();
        node->setCore(transform);
        node->addChild(copyOf(engine.root.get(), own_cores));
        root->addChild(node);
    }
    return root;
}

morva::kd_build_setup treeSetup(unsigned cell, int straddle_mode) {
    return {cell, 100, straddle_mode, 1.f, 2.f, 0.95f, false};
}

sorted_sheet::sorted_sheet(unsigned triangles) {
    const ::osg::NodeRefPtr sheet = triangleGrid(triangles, true);
    morva::osg::extract(sheet.get(), geoset, false, false, false, true, false);
    morva::compile(geoset, tree, treeSetup(5000, 3), morva::kd_strategy_ObjMedian());
}

std::uint64_t peakBytes() {
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return 0;
    return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

} // namespace morva_bench
