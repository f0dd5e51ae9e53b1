// From the elements of a cell to a scene of its own.

#include <morva/tools/morva_osg_model_cells.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_matrix.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/geosets/morva_osg_element_index.h>
#include <morva/tools/morva_osg_gathered_property.h>
#include <morva/tools/morva_osg_model_cell_contents.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// Normals below this length have no direction.
constexpr float shortest_normal = 1e-6F;

/// Where a row of a new property comes from.
struct row_source {
    UInt32 vertex[3];                  ///< the first one alone, or the corners of a cut triangle
    const piece_corner* cut = nullptr; ///< between these
};

/// The value of a column at a cut point, component by component. One that all corners share stays
/// exact.
void mix(const property_column& column, const cell_source& source, const row_source& row,
         float* to) {
    const float* values[3];
    for (int k = 0; k < 3; ++k) {
        const std::size_t at = column.row(source.corner_of[row.vertex[k]]);
        values[k] = at < column.rows ? column.at(at) : nullptr;
    }
    for (unsigned i = 0; i < column.width; ++i) {
        float corner[3];
        for (int k = 0; k < 3; ++k)
            corner[k] = values[k] != nullptr ? values[k][i] : 0.0F;
        const float* weight = row.cut->weight;
        to[i] = corner[0] == corner[1] && corner[1] == corner[2]
                    ? corner[0]
                    : corner[0] * weight[0] + corner[1] * weight[1] + corner[2] * weight[2];
    }
}

/// Whether a normal has a direction, and length 1 now.
bool makeUnit(float* normal) {
    const float length =
        std::sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
    if (!(length > shortest_normal))
        return false;
    for (int k = 0; k < 3; ++k)
        normal[k] /= length;
    return true;
}

/// Scales normals to length 1. Those of small triangles come out too short, or as nothing where
/// there is no area to go by: these look along z.
void repairNormals(const ::osg::GeometryPtr& core) {
    const auto normals = ::osg::GeoNormals3fPtr::dcast(core->getNormals());
    if (normals == ::osg::NullFC)
        return;
    for (::osg::Vec3f& normal : normals->editField()) {
        double square = 0.0;
        for (UInt32 k = 0; k < 3; ++k)
            square += double{normal[k]} * double{normal[k]};
        const double length = std::sqrt(square);
        if (length > 0.0) {
            for (UInt32 k = 0; k < 3; ++k)
                normal[k] = static_cast<float>(double{normal[k]} / length);
        } else {
            normal = ::osg::Vec3f(0.0F, 0.0F, 1.0F);
        }
    }
}

/// A cut point takes the values of the corner that it is nearest to by weight.
UInt32 heaviest(const row_source& row) {
    const float* weight = row.cut->weight;
    return row.vertex[std::max_element(weight, weight + 3) - weight];
}

/// The values of a property for all rows, end to end; zero where none leads there.
std::vector<float> gather(vertex_property which, const property_column& column,
                          const cell_source& source, const std::vector<row_source>& rows) {
    std::vector<float> values(rows.size() * column.width, 0.0F);
    float* to = values.data();
    for (const row_source& row : rows) {
        if (row.cut != nullptr && which == vertex_property::position) {
            std::copy_n(row.cut->local.getValues(), 3, to);
        } else {
            bool blended = row.cut != nullptr && which != vertex_property::texcoords7;
            if (blended)
                mix(column, source, row, to);
            if (blended && which == vertex_property::normal)
                blended = makeUnit(to); // between opposite ones there is no direction
            const UInt32 vertex = row.cut != nullptr ? heaviest(row) : row.vertex[0];
            const std::size_t at = column.row(source.corner_of[vertex]);
            if (!blended && at < column.rows)
                std::copy_n(column.at(at), column.width, to);
        }
        to += column.width;
    }
    return values;
}

/// The corners of a share as rows, one for each vertex, or for each corner.
class corner_list {
  public:
    /// number_of  per vertex of any core: scratch, all `no_number` between uses
    corner_list(const cell_source& source, bool shared, std::vector<UInt32>& number_of)
        : shared_(shared), number_of_(number_of) {
        if (shared_ && number_of_.size() < source.corner_of.size())
            number_of_.resize(source.corner_of.size(), no_number);
    }
    corner_list(const corner_list&) = delete;
    corner_list& operator=(const corner_list&) = delete;
    ~corner_list() {
        for (const row_source& row : rows_) {
            if (shared_)
                number_of_[row.vertex[0]] = no_number;
        }
    }

    void add(const UInt32* vertices, std::size_t corners) {
        for (std::size_t k = 0; k < corners; ++k)
            add(row_source{{vertices[k]}});
    }
    /// A polygon as a fan of triangles.
    void add(const UInt32* vertices, span<const piece_corner> outline) {
        for (std::size_t k = 1; k + 1 < outline.size(); ++k) {
            for (const piece_corner* corner : {&outline[0], &outline[k], &outline[k + 1]}) {
                if (corner->whole >= 0)
                    add(row_source{{vertices[corner->whole]}});
                else
                    add(row_source{{vertices[0], vertices[1], vertices[2]}, corner});
            }
        }
    }
    const std::vector<row_source>& rows() const { return rows_; }
    const std::vector<UInt32>& indices() const { return indices_; }
    std::size_t corners() const { return shared_ ? indices_.size() : rows_.size(); }

  private:
    static constexpr UInt32 no_number = std::numeric_limits<UInt32>::max();

    void add(const row_source& row) {
        if (!shared_)
            return rows_.push_back(row);
        UInt32& number = number_of_[row.vertex[0]];
        if (number == no_number) {
            number = static_cast<UInt32>(rows_.size());
            rows_.push_back(row);
        }
        indices_.push_back(number);
    }

    bool shared_;
    std::vector<UInt32>& number_of_;
    std::vector<row_source> rows_;
    std::vector<UInt32> indices_; ///< empty unless shared
};

template <typename Index>
void setIndex(const ::osg::GeometryPtr& geometry, const corner_list& from) {
    const auto index = Index::create();
    geometry->setIndices(index);
    index->resize(from.indices().size());
    for (std::size_t i = 0; i < from.indices().size(); ++i)
        index->setValue(from.indices()[i], static_cast<UInt32>(i));
}

/// Makes the cores of a cell.
class cell_scene_maker {
  public:
    cell_scene_maker(const cell_contents& contents, std::size_t cell)
        : contents_(contents), elements_(contents.cells[cell]) {}

    ::osg::NodePtr scene(const model_cell& cell) {
        fresh<::osg::NodePtr> root(newGroupNode());
        for (const cell_share& share : cell.shares) {
            const cell_part& part = contents_.parts[share.part];
            ::osg::NodePtr above = root.get();
            if (!isIdentity(part.to_world)) {
                fresh<::osg::NodePtr> transform(newTransformNode(part.to_world));
                addChildTo(above, transform.get());
                above = transform.release();
            }
            const bool anew = contents_.options.normals == cell_normals::recalc;
            const bool others = share.lines + share.points != 0;
            if (!anew || share.triangles == 0 || !others)
                addCore(share, {share.triangles, share.lines, share.points}, above);
            if (anew && share.triangles != 0 && others) {
                addCore(share, {share.triangles, 0, 0}, above);
                addCore(share, {0, share.lines, share.points}, above);
            }
        }
        return root.release();
    }

  private:
    /// Elements of the next share by kind, as they come in the lists of the cell.
    struct counts {
        std::uint64_t triangles, lines, points;
    };

    void addCore(const cell_share& share, const counts& taken, const ::osg::NodePtr& above) {
        const cell_part& part = contents_.parts[share.part];
        fresh<::osg::GeometryPtr> core(::osg::Geometry::create());
        fill(core.get(), part, taken);
        core->setMaterial(part.material.get());
        if (const ::osg::Char8* name = ::osg::getName(part.source->core.get()))
            ::osg::setName(core.get(), name);
        reportWhole(core.get());
        fresh<::osg::NodePtr> node(newNodeWith(core.get()));
        core.release();
        if (const ::osg::Char8* name = ::osg::getName(part.node.get()))
            ::osg::setName(node.get(), name);
        node->setTravMask(part.node->getTravMask());
        reportChange(node.get());
        addChildTo(above, node.get());
        node.release();
    }

    void fill(const ::osg::GeometryPtr& core, const cell_part& part, const counts& taken) {
        const bool cut = holdsCut(part, taken.triangles);
        const bool anew = contents_.options.normals == cell_normals::recalc && taken.triangles != 0;
        corner_list corners(*part.source, !cut && !anew, number_of_);
        const ::osg::GeoPTypesPtr types = ::osg::GeoPTypesUI8::create();
        core->setTypes(types);
        const ::osg::GeoPLengthsPtr lengths = ::osg::GeoPLengthsUI32::create();
        core->setLengths(lengths);
        const auto add = [&](cell_kind kind, std::uint64_t count, UInt32 type) {
            const std::size_t before = corners.corners();
            take(kind, count, part, corners);
            if (count == 0)
                return;
            types->addValue(type);
            lengths->addValue(static_cast<UInt32>(corners.corners() - before));
        };
        add(cell_triangle, taken.triangles, GL_TRIANGLES);
        add(cell_line, taken.lines, GL_LINES);
        add(cell_point, taken.points, GL_POINTS);
        setProperties(core, *part.source, corners, anew);
        if (cut || anew)
            indexVertices(core, anew);
        else if (corners.rows().size() < 0x10000)
            setIndex<::osg::GeoIndicesUI16>(core, corners);
        else
            setIndex<::osg::GeoIndicesUI32>(core, corners);
        if (anew) {
            calcCreaseNormals(core, crease_angle);
            repairNormals(core);
        }
    }

    /// Whether some of a share's triangles, which come next, are cut.
    bool holdsCut(const cell_part& part, std::uint64_t triangles) const {
        const std::vector<std::uint64_t>& all = elements_.of[cell_triangle];
        const std::uint64_t end = part.first[cell_triangle] + part.kept[cell_triangle].size();
        for (std::size_t i = taken_[cell_triangle]; triangles != 0 && i < all.size(); ++i) {
            if (contents_.triangles.originOf(all[i]) >= end)
                return false;
            if (!contents_.triangles.outlineOf(all[i]).empty())
                return true;
        }
        return false;
    }

    /// Takes the next elements of a kind, as many as make `count`.
    void take(cell_kind kind, std::uint64_t count, const cell_part& part, corner_list& corners) {
        const cell_triangles& triangles = contents_.triangles;
        while (count != 0) {
            const std::uint64_t element = elements_.of[kind][taken_[kind]++];
            if (kind != cell_triangle) {
                corners.add(part.verticesOf(kind, element), cornersOf(kind));
                --count;
                continue;
            }
            const UInt32* const vertices = part.verticesOf(kind, triangles.originOf(element));
            const span<const piece_corner> outline = triangles.outlineOf(element);
            if (outline.empty())
                corners.add(vertices, cornersOf(kind));
            else
                corners.add(vertices, outline);
            count -= triangles.trianglesOf(element);
        }
    }

    static void setProperties(const ::osg::GeometryPtr& core, const cell_source& source,
                              const corner_list& corners, bool anew) {
        source.columns.forEachPresent([&](vertex_property which, const property_column& column) {
            if (column.rows == 0 || (anew && which == vertex_property::normal))
                return;
            const auto made = gatheredProperty(core, which, column,
                                               gather(which, column, source, corners.rows()));
            setProperty(core, which, made.get());
        });
    }

    const cell_contents& contents_;
    const cell_elements& elements_;
    std::size_t taken_[cell_kinds] = {}; ///< so many of each list are in cores already
    std::vector<UInt32> number_of_;
};

} // namespace

::osg::NodePtr cellScene(const cell_division& division, std::size_t cell) {
    if (cell >= division.cells.size())
        throw std::out_of_range("there is no such cell");
    return cell_scene_maker(*division.contents, cell).scene(division.cells[cell]);
}

} // namespace morva::osg
