#include <morva/geosets/morva_osg_flat_elements.h>

#include <string>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::osg {

namespace {

const ::osg::Color3f white(1.0F, 1.0F, 1.0F);
const ::osg::Vec3f upward(0.0F, 1.0F, 0.0F);

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

target_fields::target_fields(const ::osg::GeometryPtr& target, const source_columns& source,
                             bool write_ids, std::size_t vertices) {
    types = target->getTypes();
    if (types == ::osg::NullFC)
        types = ::osg::GeoPTypesUI8::create();
    lengths = target->getLengths();
    if (lengths == ::osg::NullFC)
        lengths = ::osg::GeoPLengthsUI32::create();
    prepareRows<::osg::GeoPositions3fPtr>(positions, target->getPositions(),
                                          source.positions.present(), vertices, ::osg::Pnt3f());
    prepareRows<::osg::GeoNormals3fPtr>(normals, target->getNormals(), source.normals.present(),
                                        vertices, upward);
    prepareRows<::osg::GeoColors3fPtr>(colors, target->getColors(), source.colors.present(),
                                       vertices, white);
    prepareRows<::osg::GeoColors3fPtr>(secondary, target->getSecondaryColors(),
                                       source.secondary.present(), vertices, white);
    ids = target->getTexCoords7();
    if (ids == ::osg::NullFC && (write_ids || source.ids.present())) {
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

void appendElement(target_fields& target, const source_columns& source, const to_world_move* move,
                   span<const std::size_t> vertices, std::size_t first, bool write_ids, int id) {
    const auto placed = [move](const auto& value) {
        return move != nullptr ? (*move)(value) : value;
    };
    const bool own_ids = source.ids.present() && source.ids.hasIndex(vertices[0]);
    for (std::size_t k = 0; k < vertices.size(); ++k) {
        const std::size_t vertex = vertices[k], row = first + k;
        if (target.positions.present())
            target.positions.put(row, placed(source.positions.at(vertex)));
        if (write_ids) {
            target.putId(row, own_ids ? source.ids.at(vertex)
                                      : ::osg::Vec2f(static_cast<float>(id), 0.0F));
        }
        if (target.normals.present()) {
            target.normals.put(row, source.normals.present() ? placed(source.normals.at(vertex))
                                                             : upward);
        }
        if (target.colors.present())
            target.colors.put(row, source.colors.present() ? source.colors.at(vertex) : white);
        if (target.secondary.present()) {
            target.secondary.put(row,
                                 source.secondary.present() ? source.secondary.at(vertex) : white);
        }
    }
}

void makePrimitive(const ::osg::GeoPTypesPtr& types, const ::osg::GeoPLengthsPtr& lengths,
                   ::osg::UInt8 type) {
    if (types->size() == 0)
        types->addValue(type);
    if (lengths->size() == 0)
        lengths->addValue(0);
}

void countVertices(const ::osg::GeoPLengthsPtr& lengths, std::uint64_t more) {
    lengths->setValue(lengths->getValue(0) + static_cast<::osg::UInt32>(more), 0);
}

void settleLength(const ::osg::GeometryPtr& core, std::uint64_t vertices) {
    if (core == ::osg::NullFC || core->getIndices() != ::osg::NullFC)
        return;
    const ::osg::GeoPLengthsPtr lengths = core->getLengths();
    if (lengths != ::osg::NullFC && lengths->size() == 1)
        lengths->setValue(static_cast<::osg::UInt32>(vertices), 0);
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
    return canBeExtracted(geometry) ? geometry : ::osg::GeometryPtr(::osg::NullFC);
}

} // namespace morva::osg
