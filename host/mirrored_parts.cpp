#include "mirrored_parts.h"

#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>
#include <OpenSG/OSGTransform.h>

#include "geometry_view.h"

namespace morva::host {

namespace {

enum class handedness { kept, mirrored, flat };

/// Which of the three a matrix is. Rounding reaches the determinant with less than a millionth of
/// what its columns span at most.
handedness handednessOf(const ::osg::Matrix& matrix) {
    double c[3][3], most = 1.0;
    for (::osg::UInt32 column = 0; column < 3; ++column) {
        for (::osg::UInt32 row = 0; row < 3; ++row)
            c[column][row] = double{matrix[column][row]};
        most *= std::sqrt(c[column][0] * c[column][0] + c[column][1] * c[column][1] +
                          c[column][2] * c[column][2]);
    }
    const double determinant = c[0][0] * (c[1][1] * c[2][2] - c[1][2] * c[2][1]) +
                               c[0][1] * (c[1][2] * c[2][0] - c[1][0] * c[2][2]) +
                               c[0][2] * (c[1][0] * c[2][1] - c[1][1] * c[2][0]);
    if (!(std::abs(determinant) > 1e-6 * most)) // a NaN too
        return handedness::flat;
    return determinant < 0.0 ? handedness::mirrored : handedness::kept;
}

/// Negated; never -0.
float negated(float value) { return 0.0F - value; }

/// R * matrix, matrix * R or both.
::osg::Matrix reflected(::osg::Matrix matrix, bool left, bool right) {
    for (::osg::UInt32 i = 0; i < 4; ++i) {
        if (left)
            matrix[i][0] = negated(matrix[i][0]);
        if (right)
            matrix[0][i] = negated(matrix[0][i]);
    }
    return matrix;
}

/// Primitives over corners of another core.
struct turned_faces {
    std::vector<std::uint8_t> types;
    std::vector<std::uint32_t> lengths;
    std::vector<std::size_t> corners;
};

/// The primitives of a core with their faces turned round.
turned_faces turnedFaces(const geometry_view& view) {
    turned_faces turned;
    for (const primitive_run& run : view.runs) {
        const std::size_t before = turned.corners.size();
        const bool faces = run.type >= GL_TRIANGLES && run.type <= GL_POLYGON;
        if (faces)
            morva::osg::forEachTriangle(run, view.positions,
                                        [&](std::size_t a, std::size_t b, std::size_t c) {
                                            for (const std::size_t corner : {a, c, b})
                                                turned.corners.push_back(corner);
                                        });
        for (std::size_t i = 0; !faces && i < run.length; ++i)
            turned.corners.push_back(run.first + i);
        turned.types.push_back(static_cast<std::uint8_t>(faces ? GL_TRIANGLES : run.type));
        turned.lengths.push_back(static_cast<std::uint32_t>(turned.corners.size() - before));
    }
    return turned;
}

/// The indices of corners as a property; rows run with corners where there were none.
template <typename Indices>
::osg::GeoIndicesPtr indicesOf(const std::vector<std::size_t>& corners, const geometry_view& view) {
    const auto indices = Indices::create();
    const std::size_t stride = view.columns.stride();
    indices->editField().reserve(corners.size() * stride);
    for (const std::size_t corner : corners) {
        for (std::size_t slot = 0; slot < stride; ++slot)
            indices->addValue(view.columns.indexed()
                                  ? view.columns.indices()[corner * stride + slot]
                                  : static_cast<std::uint32_t>(corner));
    }
    return indices;
}

void giveFaces(const turned_faces& turned, const geometry_view& view,
               const ::osg::GeometryPtr& core) {
    const auto types = ::osg::GeoPTypesUI8::create();
    const auto lengths = ::osg::GeoPLengthsUI32::create();
    for (std::size_t i = 0; i < turned.types.size(); ++i) {
        types->push_back(turned.types[i]);
        lengths->push_back(turned.lengths[i]);
    }
    core->setTypes(types);
    core->setLengths(lengths);
    const bool narrow = view.columns.indexed() && !view.wide_indices;
    core->setIndices(narrow ? indicesOf<::osg::GeoIndicesUI16>(turned.corners, view)
                            : indicesOf<::osg::GeoIndicesUI32>(turned.corners, view));
    if (!view.columns.indexed())
        core->editMFIndexMapping()->clear();
}

template <typename Property> void reflectRows(const Property& property) {
    for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < property->size(); ++i) {
        auto value = property->getValue(i);
        value[0] = negated(value[0]);
        property->setValue(value, i);
    }
}

/// A copy with properties of its own, under the same name and with the same attributes.
::osg::GeometryPtr reflectedCopy(const ::osg::GeometryPtr& core) {
    const ::osg::GeometryPtr copy = core->clone();
    if (const ::osg::Char8* name = getName(core))
        setName(copy, name);
    const auto attributes = core->findAttachment(::osg::StringAttributeMap::getClassType());
    if (attributes != ::osg::NullFC)
        copy->addAttachment(attributes);
    const geometry_view view(core);
    beginEditCP(copy);
    reflectRows(copy->getPositions());
    reflectRows(copy->getNormals());
    if (!view.faulty) // else it stays undrawable
        giveFaces(turnedFaces(view), view, copy);
    endEditCP(copy);
    return copy;
}

/// A core like the one of a node, in a space that is reflected on either side.
class reflected_cores {
  public:
    /// Null where the core is right as it is.
    ::osg::NodeCorePtr of(const ::osg::NodeCorePtr& core, bool outside, bool inside) {
        ::osg::NodeCoreRefPtr& made =
            made_[{core.getFieldContainerId(), (outside ? 1 : 0) + (inside ? 2 : 0)}];
        if (made == ::osg::NullFC)
            made = ::osg::NodeCoreRefPtr(make(core, outside, inside));
        return made.get();
    }

  private:
    static ::osg::NodeCorePtr make(const ::osg::NodeCorePtr& core, bool outside, bool inside) {
        const auto geometry = ::osg::GeometryPtr::dcast(core);
        if (geometry != ::osg::NullFC)
            return reflectedCopy(geometry);
        const auto level = ::osg::DistanceLODPtr::dcast(core);
        if (level != ::osg::NullFC) {
            const ::osg::DistanceLODPtr copy = ::osg::DistanceLOD::create();
            const ::osg::Pnt3f& at = level->getCenter();
            beginEditCP(copy);
            copy->setCenter(::osg::Pnt3f(negated(at[0]), at[1], at[2]));
            for (const ::osg::Real32 range : level->getRange())
                copy->editMFRange()->push_back(range);
            endEditCP(copy);
            return named(core, copy);
        }
        const ::osg::TransformPtr copy = ::osg::Transform::create();
        beginEditCP(copy);
        copy->setMatrix(reflected(::osg::TransformPtr::dcast(core)->getMatrix(), outside, inside));
        endEditCP(copy);
        return named(core, copy);
    }

    static ::osg::NodeCorePtr named(const ::osg::NodeCorePtr& from, const ::osg::NodeCorePtr& to) {
        if (const ::osg::Char8* name = getName(from))
            setName(to, name);
        return to;
    }

    std::map<std::pair<::osg::UInt32, int>, ::osg::NodeCoreRefPtr> made_;
};

/// A node, and the space of its parent's inside.
struct step {
    ::osg::NodePtr node;
    bool reflected; ///< it is R times what it was
    bool flat;      ///< nothing below has sides
};

} // namespace

void uprightMirroredParts(const ::osg::NodePtr& root) {
    reflected_cores cores;
    std::vector<step> todo = {{root, false, false}};
    while (!todo.empty()) {
        const step at = todo.back();
        todo.pop_back();
        step inside = at;
        const ::osg::NodeCorePtr core = at.node->getCore();
        const auto transform = ::osg::TransformPtr::dcast(core);
        bool changes = at.reflected;
        if (transform != ::osg::NullFC) {
            const handedness own = handednessOf(transform->getMatrix());
            inside.flat = at.flat || own == handedness::flat;
            inside.reflected = !inside.flat && at.reflected != (own == handedness::mirrored);
            changes = at.reflected || inside.reflected;
        } else if (::osg::GeometryPtr::dcast(core) == ::osg::NullFC &&
                   ::osg::DistanceLODPtr::dcast(core) == ::osg::NullFC) {
            changes = false; // nothing in it has a place
        }
        if (changes) {
            beginEditCP(at.node, ::osg::Node::CoreFieldMask);
            at.node->setCore(cores.of(core, at.reflected, inside.reflected));
            endEditCP(at.node, ::osg::Node::CoreFieldMask);
            at.node->invalidateVolume();
        }
        for (::osg::UInt32 i = 0; i < at.node->getNChildren(); ++i)
            todo.push_back({at.node->getChild(i), inside.reflected, inside.flat});
    }
}

} // namespace morva::host
