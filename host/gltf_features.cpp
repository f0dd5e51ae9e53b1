#include "gltf_features.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "text.h"

namespace morva::host {

namespace {

using nlohmann::json;

/// Where values of a table begin, at least.
constexpr std::size_t table_alignment = 8;

void append(const void* from, std::size_t bytes, std::vector<std::uint8_t>& to) {
    const auto* first = static_cast<const std::uint8_t*>(from);
    to.insert(to.end(), first, first + bytes);
}

/// The texts end to end and where each begins; null if all are empty.
json addTexts(const std::vector<part_row>& rows, std::string part_row::*field,
              gltf_buffer& buffer) {
    std::vector<std::uint8_t> texts, offsets;
    for (std::size_t i = 0; i <= rows.size(); ++i) {
        const auto at = static_cast<std::uint32_t>(texts.size());
        append(&at, sizeof at, offsets);
        if (i == rows.size())
            break;
        const std::string text = validUtf8(rows[i].*field);
        append(text.data(), text.size(), texts);
    }
    if (texts.empty())
        return {};
    const int values = buffer.addBytes(texts, table_alignment);
    return {{"values", values},
            {"stringOffsets", buffer.addBytes(offsets, table_alignment)},
            {"stringOffsetType", "UINT32"}};
}

json addPoints(const std::vector<part_row>& rows, ::osg::Pnt3f part_row::*field,
               gltf_buffer& buffer) {
    std::vector<std::uint8_t> bytes;
    for (const part_row& row : rows) {
        for (::osg::UInt32 k = 0; k < 3; ++k) {
            const float value = (row.*field)[k];
            append(&value, sizeof value, bytes);
        }
    }
    return {{"values", buffer.addBytes(bytes, table_alignment)}};
}

} // namespace

int gltf_features::setOf(const ::osg::NodePtr& node) const {
    if (parts_ == nullptr)
        return -1;
    if (!parts_->brought)
        return idSetOf(node, parts_->sources);
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    return core->getTexCoords7() != ::osg::NullFC ? 7 : -1;
}

/// A row per vertex; empty if nothing is known of the core.
std::vector<std::uint32_t> gltf_features::rowsOf(const flat_mesh& mesh,
                                                 const ::osg::GeometryPtr& core) const {
    const auto whole = parts_->row_of_core.find(core.getFieldContainerId());
    if (whole != parts_->row_of_core.end())
        return std::vector<std::uint32_t>(mesh.vertex_count, whole->second);
    std::vector<std::uint32_t> rows;
    const auto width = static_cast<std::size_t>(mesh.ids.components);
    for (std::size_t i = 0; width != 0 && i < mesh.vertex_count; ++i) {
        const float id = mesh.ids.values[i * width];
        const bool known = id >= 0.f && id < static_cast<float>(parts_->ids); // false for NaN
        rows.push_back(known ? static_cast<std::uint32_t>(id) : none());
    }
    return rows;
}

void gltf_features::addTo(json& primitives, const flat_mesh& mesh, const ::osg::GeometryPtr& core) {
    if (parts_ == nullptr || !fits())
        return;
    const std::vector<std::uint32_t> rows = rowsOf(mesh, core);
    last_mesh_.resize(none(), 0);
    const std::uint32_t now = meshes_ + 1;
    std::uint32_t highest = 0;
    std::size_t count = 0;
    for (const std::uint32_t row : rows) {
        highest = std::max(highest, row);
        if (row == none() || last_mesh_[row] == now)
            continue;
        last_mesh_[row] = now;
        ++count;
    }
    if (count == 0)
        return;
    meshes_ = now;
    json entry = {{"featureCount", count}, {"attribute", 0}, {"propertyTable", 0}};
    if (highest == none())
        entry["nullFeatureId"] = none();
    const int accessor = buffer_.addRows(rows, highest);
    for (json& primitive : primitives) {
        primitive["attributes"]["_FEATURE_ID_0"] = accessor;
        primitive["extensions"]["EXT_mesh_features"]["featureIds"] = json::array({entry});
    }
}

void gltf_features::addTo(json& file) const {
    if (parts_ == nullptr || parts_->rows.empty() || !fits())
        return;
    const std::vector<part_row>& rows = parts_->rows;
    const json text = {{"type", "STRING"}},
               point = {{"type", "VEC3"}, {"componentType", "FLOAT32"}};
    const std::pair<const char*, json> columns[] = {
        {"name", addTexts(rows, &part_row::name, buffer_)},
        {"path", addTexts(rows, &part_row::path, buffer_)},
        {"boxMin", addPoints(rows, &part_row::low, buffer_)},
        {"boxMax", addPoints(rows, &part_row::high, buffer_)}};
    json properties, values;
    for (const auto& [key, column] : columns) {
        if (column.is_null())
            continue;
        properties[key] = column.contains("stringOffsets") ? text : point;
        values[key] = column;
    }
    if (properties.contains("name"))
        properties["name"]["semantic"] = "NAME";
    json& metadata = file["extensions"]["EXT_structural_metadata"];
    metadata["schema"] = {{"id", "morva_parts"},
                          {"classes", {{"part", {{"properties", properties}}}}}};
    metadata["propertyTables"] =
        json::array({{{"class", "part"}, {"count", rows.size()}, {"properties", values}}});
    file["extensionsUsed"] = json::array({"EXT_structural_metadata"});
    if (meshes_ != 0)
        file["extensionsUsed"].push_back("EXT_mesh_features");
}

std::vector<std::string> gltf_features::notes() const {
    if (parts_ == nullptr || fits())
        return {};
    return {withCommas(parts_->rows.size()) + " parts are more than the " +
            withCommas(gltf_buffer::exact_rows) +
            " that a file can tell apart: it names none of them"};
}

} // namespace morva::host
