#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

template <typename Value> void takeBlock(const property_block<Value>& block, property_column& to) {
    to.width = sizeof(Value) / sizeof(float);
    to.rows = block.size();
    to.values = block.empty() ? nullptr : &(*block.data())[0];
    to.property = block.property();
    to.converted = block.storage();
}

/// Colours with alpha keep it if they are stored as floats.
template <typename Role> bool takeAlpha(const Role& property, property_column& to) {
    if constexpr (std::is_same_v<Role, ::osg::GeoColorsPtr>) {
        const ::osg::GeoColors4fPtr four = ::osg::GeoColors4fPtr::dcast(property);
        if (four == ::osg::NullFC)
            return false;
        takeBlock(property_block<::osg::Color4f>(editSpan(four), property), to);
        return true;
    }
    return false;
}

} // namespace

std::size_t indicesPerCorner(const ::osg::GeometryPtr& geometry) {
    return std::max<std::size_t>(1, geometry->getMFIndexMapping()->size());
}

std::size_t cornersOf(const ::osg::GeometryPtr& geometry) {
    if (geometry->getIndices() != ::osg::NullFC)
        return geometry->getIndices()->size() / indicesPerCorner(geometry);
    return geometry->getPositions() != ::osg::NullFC ? geometry->getPositions()->size() : 0;
}

geometry_columns::geometry_columns(const ::osg::GeometryPtr& geometry,
                                   span<const vertex_property> chosen, color_form colors)
    : source_(geometry), choice_(chosen), index_block_(readBlock(geometry->getIndices())),
      index_stride_(indicesPerCorner(geometry)), corner_count_(cornersOf(geometry)),
      has_indices_(geometry->getIndices() != ::osg::NullFC) {
    for (const vertex_property property : chosen)
        read(property, colors);
}

void geometry_columns::read(vertex_property which, color_form colors) {
    property_column& column = columns_[static_cast<std::size_t>(which)];
    withProperty(source_, source_, which, [&](const auto& property, const auto&) {
        column.present = property != ::osg::NullFC;
        if (colors == color_form::rgb || !takeAlpha(property, column))
            takeBlock(readBlock(property), column);
    });
    if (!column.present)
        return;
    const bool one_for_all = source_->getMFIndexMapping()->size() == 0;
    column.slot = !has_indices_ || one_for_all ? 0 : source_->calcMappingIndex(mappingBit(which));
    if (!has_indices_) {
        column.index = nullptr;
    } else if (column.slot >= 0 && corner_count_ > 0) {
        column.index = index_block_.data() + column.slot;
        column.step = index_stride_;
    }
}

std::size_t plainRun(const geometry_columns& columns, UInt32 type, std::size_t element) {
    const auto types = readBlock(columns.geometry()->getTypes());
    const auto lengths = readBlock(columns.geometry()->getLengths());
    if (types.size() != lengths.size())
        return no_run;
    std::size_t used = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i] != type || lengths[i] % element != 0)
            return no_run;
        used += lengths[i];
    }
    return used <= columns.corners() ? used : no_run;
}

::osg::RefPtr<::osg::AttachmentPtr> makeProperty(const ::osg::GeometryPtr& geometry,
                                                 vertex_property which, span<const float> values) {
    ::osg::RefPtr<::osg::AttachmentPtr> result;
    withProperty(geometry, geometry, which, [&](const auto& property, const auto&) {
        const auto made = usual_form<decltype(property)>::StoredObjectType::create();
        result = made;
        using value = std::decay_t<decltype(made->editField()[0])>;
        made->editField().resize(values.size() * sizeof(float) / sizeof(value));
        if (!values.empty())
            std::copy(values.begin(), values.end(), &made->editField()[0][0]);
    });
    return result;
}

void setProperty(const ::osg::GeometryPtr& geometry, vertex_property which,
                 const ::osg::AttachmentPtr& made) {
    withProperty(geometry, geometry, which, [&](const auto& property, const auto& take) {
        take(std::decay_t<decltype(property)>::dcast(made));
    });
}

} // namespace morva::osg
