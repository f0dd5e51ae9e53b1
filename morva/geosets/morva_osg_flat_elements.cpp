#include <morva/geosets/morva_osg_flat_elements.h>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_property_index.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::osg {

namespace {

const ::osg::Color3f white(1.0F, 1.0F, 1.0F);
const ::osg::Vec3f upward(0.0F, 1.0F, 0.0F);

/// Value of a block at an index that may be -1 or lead nowhere: then zero.
template <typename Value> Value valueAt(const property_block<Value>& block, ::osg::Int32 index) {
    const auto values = block.view();
    if (index < 0 || static_cast<std::size_t>(index) >= values.size())
        return Value();
    return values[static_cast<std::size_t>(index)];
}

/// First row of a property in its usual stored form, or null for another form.
template <typename Concrete, typename Ptr> auto firstRow(const Ptr& property) {
    const Concrete stored = Concrete::dcast(property);
    using row = std::decay_t<decltype(stored->editField()[0])>;
    if (stored == ::osg::NullFC || stored->editField().empty())
        return static_cast<row*>(nullptr);
    return &stored->editField()[0];
}

/// Prepares the rows of one property: the target's own, or new ones if the source has values.
template <typename Concrete, typename Value, typename Ptr>
void prepareRows(field_rows<Value, Ptr>& rows, const Ptr& own, bool in_source, std::size_t vertices,
                 const Value& fill) {
    if (own != ::osg::NullFC) {
        rows.property = own;
        rows.rows = firstRow<Concrete>(own);
    } else if (in_source) {
        const Concrete made = Concrete::StoredObjectType::create();
        rows.property = made;
        made->editField().resize(vertices, fill);
        rows.rows = firstRow<Concrete>(made);
    }
}

template <typename Ptr> std::size_t rowsOf(const ::osg::RefPtr<Ptr>& property, std::size_t most) {
    return property == ::osg::NullFC ? most : std::min<std::size_t>(most, property->size());
}

} // namespace

index_reader::index_reader(const ::osg::GeometryPtr& geometry)
    : position(hasIndex(geometry, ::osg::Geometry::MapPosition)),
      normal(hasIndex(geometry, ::osg::Geometry::MapNormal)),
      color(hasIndex(geometry, ::osg::Geometry::MapColor)),
      secondary(hasIndex(geometry, ::osg::Geometry::MapSecondaryColor)),
      id(hasIndex(geometry, ::osg::Geometry::MapTexCoords7)) {}

vertex_indices index_reader::operator()(const ::osg::PrimitiveIterator& it,
                                        ::osg::UInt32 which) const {
    const auto vertex = static_cast<::osg::Int32>(which);
    vertex_indices indices;
    if (position)
        indices.position = it.getPositionIndex(vertex);
    if (normal)
        indices.normal = it.getNormalIndex(vertex);
    if (color)
        indices.color = it.getColorIndex(vertex);
    if (secondary)
        indices.secondary = it.getSecondaryColorIndex(vertex);
    if (id)
        indices.id = it.getTexCoordsIndex7(vertex);
    return indices;
}

vertex_budget::vertex_budget(const ::osg::GeometryPtr& geometry) {
    if (geometry->getIndices() != ::osg::NullFC) {
        const std::size_t per_vertex =
            std::max<std::size_t>(1, geometry->getMFIndexMapping()->size());
        left = geometry->getIndices()->size() / per_vertex;
    } else if (geometry->getPositions() != ::osg::NullFC) {
        left = geometry->getPositions()->size();
    }
}

source_fields::source_fields(const ::osg::GeometryPtr& geometry)
    : positions(readBlock(geometry->getPositions())), normals(readBlock(geometry->getNormals())),
      colors(readBlock(geometry->getColors())),
      secondary(readBlock(geometry->getSecondaryColors())),
      ids(readBlock(geometry->getTexCoords7())),
      has_normals(geometry->getNormals() != ::osg::NullFC),
      has_colors(geometry->getColors() != ::osg::NullFC),
      has_secondary(geometry->getSecondaryColors() != ::osg::NullFC),
      has_ids(geometry->getTexCoords7() != ::osg::NullFC) {}

target_fields::target_fields(const ::osg::GeometryPtr& target, const ::osg::GeometryPtr& source,
                             bool write_ids, std::size_t vertices) {
    types = target->getTypes();
    if (types == ::osg::NullFC)
        types = ::osg::GeoPTypesUI8::create();
    lengths = target->getLengths();
    if (lengths == ::osg::NullFC && source->getLengths() != ::osg::NullFC) {
        lengths = ::osg::GeoPLengthsUI32::create();
    }
    prepareRows<::osg::GeoPositions3fPtr>(positions, target->getPositions(),
                                          source->getPositions() != ::osg::NullFC, vertices,
                                          ::osg::Pnt3f());
    prepareRows<::osg::GeoNormals3fPtr>(normals, target->getNormals(),
                                        source->getNormals() != ::osg::NullFC, vertices, upward);
    prepareRows<::osg::GeoColors3fPtr>(colors, target->getColors(),
                                       source->getColors() != ::osg::NullFC, vertices, white);
    prepareRows<::osg::GeoColors3fPtr>(secondary, target->getSecondaryColors(),
                                       source->getSecondaryColors() != ::osg::NullFC, vertices,
                                       white);
    ids = target->getTexCoords7();
    if (ids == ::osg::NullFC && (write_ids || source->getTexCoords7() != ::osg::NullFC)) {
        ids = ::osg::GeoTexCoords1f::create();
        ids->resize(vertices);
    }
    if (ids != ::osg::NullFC)
        id_rows = firstRow<::osg::GeoTexCoords1fPtr>(ids.get());
}

std::size_t target_fields::room() const {
    std::size_t rows = std::numeric_limits<std::size_t>::max();
    rows = rowsOf(positions.property, rows);
    rows = rowsOf(normals.property, rows);
    rows = rowsOf(colors.property, rows);
    rows = rowsOf(secondary.property, rows);
    return rowsOf(ids, rows);
}

void target_fields::store(const ::osg::GeometryPtr& target, bool with_ids) const {
    target->setTypes(types.get());
    target->setLengths(lengths.get());
    target->setPositions(positions.property.get());
    target->setNormals(normals.property.get());
    target->setColors(colors.property.get());
    target->setSecondaryColors(secondary.property.get());
    if (with_ids)
        target->setTexCoords7(ids.get());
}

void target_fields::putId(std::size_t row, const ::osg::Vec2f& value) {
    if (id_rows != nullptr) {
        id_rows[row] = value[0];
    } else {
        ids->setValue(value, static_cast<::osg::UInt32>(row));
    }
}

world_mover::world_mover(const ::osg::NodePtr& node, bool to_world) : moves(to_world) {
    matrix = node->getToWorld();
    ::osg::Vec3f translation, scale;
    ::osg::Quaternion scale_orientation;
    matrix.getTransform(translation, rotation, scale, scale_orientation);
}

::osg::Pnt3f world_mover::point(const ::osg::Pnt3f& p) const {
    if (!moves)
        return p;
    ::osg::Pnt3f moved;
    for (::osg::UInt32 row = 0; row < 3; ++row) {
        moved[row] =
            matrix[0][row] * p[0] + matrix[1][row] * p[1] + matrix[2][row] * p[2] + matrix[3][row];
    }
    return moved;
}

::osg::Vec3f world_mover::normal(const ::osg::Vec3f& n) const {
    if (!moves)
        return n;
    ::osg::Vec3f turned;
    rotation.multVec(n, turned);
    const float length = turned.length();
    if (length < 1e-6F)
        return turned;
    return turned * (1.0F / length);
}

void appendElement(target_fields& target, const source_fields& source, const world_mover& mover,
                   const vertex_indices* vertices, unsigned int corners, std::size_t first,
                   bool write_ids, int id) {
    const bool own_ids = source.has_ids && vertices[0].id != -1;
    for (unsigned int k = 0; k < corners; ++k) {
        const vertex_indices& vertex = vertices[k];
        const std::size_t row = first + k;
        if (target.positions.present()) {
            target.positions.put(row, mover.point(valueAt(source.positions, vertex.position)));
        }
        if (write_ids) {
            target.putId(row, own_ids ? valueAt(source.ids, vertex.id)
                                      : ::osg::Vec2f(static_cast<float>(id), 0.0F));
        }
        if (target.normals.present()) {
            target.normals.put(row, source.has_normals
                                        ? mover.normal(valueAt(source.normals, vertex.normal))
                                        : upward);
        }
        if (target.colors.present()) {
            target.colors.put(row,
                              source.has_colors ? valueAt(source.colors, vertex.color) : white);
        }
        if (target.secondary.present()) {
            target.secondary.put(
                row, source.has_secondary ? valueAt(source.secondary, vertex.secondary) : white);
        }
    }
}

const ::osg::Char8* mapName(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry) {
    const ::osg::Char8* name = ::osg::getName(node);
    if (name != nullptr)
        return name;
    name = ::osg::getName(geometry);
    return name != nullptr && *name != '\0' ? name : nullptr;
}

int enterInMap(const ::osg::NodePtr& node, const std::string& name, bool to_world) {
    ::osg::Pnt3f min, max;
    ::osg::DynamicVolume volume;
    if (to_world) {
        node->getWorldVolume(volume);
    } else {
        node->updateVolume();
        volume = node->getVolume();
    }
    if (!volume.isEmpty())
        volume.getBounds(min, max);

    const ::osg::MaterialPtr material = getMaterial(node);
    const ::osg::Char8* material_name = ::osg::getName(material);
    std::string text = name;
    return getIDmapHandler().insertNodeName(text, min, max, material,
                                            material_name != nullptr ? material_name : "");
}

int vertexId(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry, bool to_world,
             bool& write_ids) {
    idmapHandler& handler = getIDmapHandler();
    if (!write_ids || handler.merged)
        return 0;
    const ::osg::Char8* name = mapName(node, geometry);
    if (name == nullptr) {
        std::cout << "Node has no name and will not get an IDmap." << std::endl;
        write_ids = false;
        return 0;
    }
    const int known = handler.settled ? handler.findNodeName(name) : -1;
    return known >= 0 ? known : enterInMap(node, name, to_world);
}

void adoptMaterial(const ::osg::GeometryPtr& target, const ::osg::NodePtr& node,
                   const ::osg::GeometryPtr& source, bool search) {
    if (target->getMaterial() == ::osg::NullFC)
        target->setMaterial(source->getMaterial());
    if (!search || target->getMaterial() != ::osg::NullFC)
        return;
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group == ::osg::NullFC)
        return;
    target->setMaterial(::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial());
}

void resizeFields(const ::osg::GeometryPtr& geometry, std::size_t vertices) {
    if (geometry->getPositions() != ::osg::NullFC)
        geometry->getPositions()->resize(vertices);
    if (geometry->getNormals() != ::osg::NullFC)
        geometry->getNormals()->resize(vertices);
    if (geometry->getColors() != ::osg::NullFC)
        geometry->getColors()->resize(vertices);
    if (geometry->getSecondaryColors() != ::osg::NullFC) {
        geometry->getSecondaryColors()->resize(vertices);
    }
    if (geometry->getTexCoords7() != ::osg::NullFC)
        geometry->getTexCoords7()->resize(vertices);
}

bool fieldsHold(const ::osg::GeometryPtr& geometry, std::size_t vertices) {
    const auto holds = [vertices](const auto& property) {
        return property == ::osg::NullFC || property->size() >= vertices;
    };
    return holds(geometry->getPositions()) && holds(geometry->getNormals()) &&
           holds(geometry->getColors()) && holds(geometry->getSecondaryColors()) &&
           holds(geometry->getTexCoords7());
}

float_box boxOfVertices(const ::osg::GeometryPtr& geometry, std::size_t vertices) {
    float_box box;
    if (geometry == ::osg::NullFC || vertices == 0)
        return box;
    const auto block = readBlock(geometry->getPositions());
    const span<const ::osg::Pnt3f> points = block.view();
    if (points.empty())
        return box;
    ::osg::Pnt3f low = points[0], high = low;
    for (const ::osg::Pnt3f& point : points.subspan(0, vertices)) {
        for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
            low[axis] = point[axis] < low[axis] ? point[axis] : low[axis];
            high[axis] = point[axis] > high[axis] ? point[axis] : high[axis];
        }
    }
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        box.min[axis] = low[axis];
        box.max[axis] = high[axis];
    }
    box.refresh_extent();
    return box;
}

::osg::GeometryPtr extractable(const ::osg::NodePtr& node, const char* messages) {
    if (node == ::osg::NullFC) {
        std::cout << messages << "::Extract: No Node" << std::endl;
        return ::osg::NullFC;
    }
    const ::osg::NodeCorePtr core = node->getCore();
    if (core == ::osg::NullFC) {
        std::cout << messages << "::Extract: No Core" << std::endl;
        return ::osg::NullFC;
    }
    if (!core->getType().isDerivedFrom(::osg::Geometry::getClassType())) {
        std::cout << messages << "::Extract: No GeometryCore" << std::endl;
        return ::osg::NullFC;
    }
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(core);
    if (geometry == ::osg::NullFC) {
        std::cout << "No Geo." << std::endl;
        return ::osg::NullFC;
    }
    return checkGeoProperties(geometry) ? geometry : ::osg::GeometryPtr(::osg::NullFC);
}

} // namespace morva::osg
