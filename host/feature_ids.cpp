#include "feature_ids.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_map>
#include <utility>

#include <OpenSG/OSGGeometry.h>

#include "geometry_view.h"
#include "gltf_source.h"
#include "host_error.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::json;

constexpr std::uint32_t no_row = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t not_read = std::numeric_limits<std::size_t>::max();

/// An object inside another one; null if it is not there.
const json* find(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_object() ? &*found : nullptr;
}

const json* findExtension(const json& object, const char* name) {
    const json* const extensions = find(object, "extensions");
    return extensions != nullptr ? find(*extensions, name) : nullptr;
}

/// The part tables of a file, end to end.
class table_reader {
  public:
    explicit table_reader(const gltf_source& file) : file_(file) {
        const json* const metadata = findExtension(file.json(), "EXT_structural_metadata");
        const json* const schema = metadata != nullptr ? find(*metadata, "schema") : nullptr;
        const json* const classes = schema != nullptr ? find(*schema, "classes") : nullptr;
        if (classes == nullptr || !metadata->contains("propertyTables"))
            return;
        for (const json& table : (*metadata)["propertyTables"])
            read(table, find(*classes, gltf_source::text(table, "class").c_str()));
    }

    std::vector<part_row> rows;
    std::vector<std::size_t> first;  ///< row of each table; `not_read` if it tells of no parts
    std::vector<std::size_t> counts; ///< of rows of each table

  private:
    void read(const json& table, const json* type) {
        first.push_back(not_read);
        counts.push_back(0);
        const json* const values = find(table, "properties");
        const json* const properties = type != nullptr ? find(*type, "properties") : nullptr;
        if (values == nullptr || properties == nullptr)
            return;
        const auto column = [&](const char* key, const char* form,
                                const char* component) -> const json* {
            const json* const property = find(*properties, key);
            const bool right = property != nullptr && !property->contains("array") &&
                               gltf_source::text(*property, "type") == form &&
                               gltf_source::text(*property, "componentType") == component;
            return right ? find(*values, key) : nullptr;
        };
        const json* const name = column("name", "STRING", "");
        const json* const path = column("path", "STRING", "");
        if (name == nullptr && path == nullptr)
            return;
        const std::size_t count = file_.number(table, "count");
        const std::vector<std::string> names = texts(name, count), paths = texts(path, count);
        const std::vector<::osg::Pnt3f> low = points(column("boxMin", "VEC3", "FLOAT32"), count);
        const std::vector<::osg::Pnt3f> high = points(column("boxMax", "VEC3", "FLOAT32"), count);
        first.back() = rows.size();
        counts.back() = count;
        for (std::size_t i = 0; i < count; ++i)
            rows.push_back(rowOf(i, names, paths, low, high));
    }

    /// A row of the columns that are there.
    static part_row rowOf(std::size_t i, const std::vector<std::string>& names,
                          const std::vector<std::string>& paths,
                          const std::vector<::osg::Pnt3f>& low,
                          const std::vector<::osg::Pnt3f>& high) {
        part_row row;
        if (!names.empty())
            row.name = names[i];
        if (!paths.empty())
            row.path = paths[i];
        if (!low.empty() && !high.empty()) {
            row.low = low[i];
            row.high = high[i];
        }
        return row;
    }

    /// The width of an offset in bytes.
    std::size_t widthOf(const std::string& type) const {
        for (const auto& [name, width] : {std::pair<const char*, std::size_t>{"UINT8", 1},
                                          {"UINT16", 2},
                                          {"UINT32", 4},
                                          {"", 4},
                                          {"UINT64", 8}}) {
            if (type == name)
                return width;
        }
        file_.damaged("its part table has offsets of type '" + type + "'");
    }

    std::vector<std::string> texts(const json* column, std::size_t count) const {
        if (column == nullptr)
            return {};
        const std::vector<std::uint8_t> values = file_.view(file_.number(*column, "values"));
        const std::vector<std::uint8_t> offsets =
            file_.view(file_.number(*column, "stringOffsets"));
        const std::size_t width = widthOf(gltf_source::text(*column, "stringOffsetType"));
        if (offsets.size() / width < 1 || offsets.size() / width - 1 < count)
            file_.damaged("its part table is longer than its names");
        const auto offset = [&](std::size_t i) {
            std::uint64_t value = 0;
            std::memcpy(&value, offsets.data() + i * width, width);
            return value;
        };
        std::vector<std::string> read;
        read.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t begin = offset(i), end = offset(i + 1);
            if (begin > end || end > values.size())
                file_.damaged("names of its part table lie outside their data");
            read.push_back(
                validUtf8(std::string(values.begin() + static_cast<std::ptrdiff_t>(begin),
                                      values.begin() + static_cast<std::ptrdiff_t>(end))));
        }
        return read;
    }

    std::vector<::osg::Pnt3f> points(const json* column, std::size_t count) const {
        if (column == nullptr)
            return {};
        const std::vector<std::uint8_t> values = file_.view(file_.number(*column, "values"));
        if (values.size() / 12 < count)
            file_.damaged("its part table is longer than its boxes");
        std::vector<::osg::Pnt3f> read(count);
        for (std::size_t i = 0; i < count; ++i)
            std::memcpy(&read[i], values.data() + 12 * i, 12);
        return read;
    }

    const gltf_source& file_;
};

/// A primitive of the file as the importer makes a geometry node of it.
struct drawn_primitive {
    const json* node;
    const json* primitive;
    bool triangles; ///< a list of them
    std::size_t corners;
};

/// The primitives that draw, in the order of the tree.
class tree_reader {
  public:
    explicit tree_reader(const gltf_source& file) : file_(file) {
        const json& text = file.json();
        seen_.resize(text.contains("nodes") ? text["nodes"].size() : 0, false);
        const json& scene = file.entry("scenes", file.number(text, "scene", 0));
        std::vector<std::size_t> todo;
        pushReversed(scene, "nodes", todo);
        while (!todo.empty()) {
            const std::size_t number = todo.back();
            todo.pop_back();
            const json& node = file.entry("nodes", number);
            if (seen_[number])
                file.damaged("its node tree is no tree");
            seen_[number] = true;
            if (node.contains("mesh"))
                addMesh(node);
            pushReversed(node, "children", todo);
        }
    }

    std::vector<drawn_primitive> drawn;

  private:
    void pushReversed(const json& from, const char* key, std::vector<std::size_t>& todo) const {
        const auto list = from.find(key);
        if (list == from.end() || !list->is_array())
            return;
        for (auto child = list->rbegin(); child != list->rend(); ++child) {
            if (!child->is_number_unsigned())
                file_.damaged(std::string("its ") + key + " are no numbers");
            todo.push_back(child->get<std::size_t>());
        }
    }

    void addMesh(const json& node) {
        const json& mesh = file_.entry("meshes", file_.number(node, "mesh"));
        const auto primitives = mesh.find("primitives");
        if (primitives == mesh.end() || !primitives->is_array())
            return;
        // Corners of the first face, by mode: points, lines, loops, strips of lines, triangles, ...
        static constexpr std::size_t first_face[] = {1, 2, 2, 2, 3, 3, 3};
        for (const json& primitive : *primitives) {
            const std::size_t mode = file_.number(primitive, "mode", 4);
            const std::size_t corners = cornersOf(primitive);
            if (mode < 7 && corners >= first_face[mode])
                drawn.push_back({&node, &primitive, mode == 4, corners});
        }
    }

    std::size_t cornersOf(const json& primitive) const {
        const json* const attributes = find(primitive, "attributes");
        if (primitive.contains("indices"))
            return countOf(primitive, "indices");
        return attributes != nullptr && attributes->contains("POSITION")
                   ? countOf(*attributes, "POSITION")
                   : 0;
    }

    std::size_t countOf(const json& object, const char* key) const {
        return file_.number(file_.entry("accessors", file_.number(object, key)), "count");
    }

    const gltf_source& file_;
    std::vector<bool> seen_;
};

/// The first feature set of a primitive that leads to a part table; null if there is none.
const json* findSet(const gltf_source& file, const table_reader& tables, const json& primitive) {
    const json* const features = findExtension(primitive, "EXT_mesh_features");
    if (features == nullptr || !features->contains("featureIds"))
        return nullptr;
    for (const json& set : (*features)["featureIds"]) {
        if (!set.contains("attribute") || !set.contains("propertyTable"))
            continue;
        const std::size_t table = file.number(set, "propertyTable");
        if (table >= tables.first.size())
            file.damaged("it has no part table " + std::to_string(table));
        if (tables.first[table] != not_read)
            return &set;
    }
    return nullptr;
}

/// The rows of the corners of a primitive, triangle by triangle; empty if it names no parts.
std::vector<std::uint32_t> rowsOf(const gltf_source& file, const table_reader& tables,
                                  const drawn_primitive& drawn) {
    const json* const set = findSet(file, tables, *drawn.primitive);
    const json* const attributes = find(*drawn.primitive, "attributes");
    if (set == nullptr || attributes == nullptr || !drawn.triangles)
        return {};
    const std::string key = "_FEATURE_ID_" + std::to_string(file.number(*set, "attribute"));
    const std::vector<std::uint32_t> ids = file.wholeNumbers(file.number(*attributes, key.c_str()));
    const std::size_t null_id = file.number(*set, "nullFeatureId", no_row);
    const std::size_t table = file.number(*set, "propertyTable");
    const auto row = [&](std::size_t vertex) {
        if (vertex >= ids.size())
            file.damaged("its triangles have more vertices than there are feature IDs");
        if (ids[vertex] == null_id)
            return no_row;
        if (ids[vertex] >= tables.counts[table])
            file.damaged("feature " + std::to_string(ids[vertex]) + " is no row of its table");
        return static_cast<std::uint32_t>(tables.first[table] + ids[vertex]);
    };
    std::vector<std::uint32_t> rows;
    if (drawn.primitive->contains("indices")) {
        for (const std::uint32_t vertex :
             file.wholeNumbers(file.number(*drawn.primitive, "indices")))
            rows.push_back(row(vertex));
    } else {
        for (std::size_t vertex = 0; vertex < drawn.corners; ++vertex)
            rows.push_back(row(vertex));
    }
    rows.resize(rows.size() / 3 * 3);
    return rows;
}

std::size_t cornersOf(const ::osg::GeometryPtr& core) {
    std::size_t corners = 0;
    forEachTriangle(geometry_view(core),
                    [&](std::uint32_t, std::uint32_t, std::uint32_t) { corners += 3; });
    return corners;
}

} // namespace

const part_row* feature_ids::partOf(const ::osg::NodePtr& node, std::size_t triangle,
                                    unsigned corner) const {
    const auto rows = rows_.find(node->getCore().getFieldContainerId());
    if (rows != rows_.end()) {
        const std::size_t place = 3 * triangle + corner;
        const std::uint32_t row =
            corner < 3 && place < rows->second.size() ? rows->second[place] : no_row;
        return row != no_row ? &parts_[row] : nullptr;
    }
    const auto whole = row_of_node_.find(node.getFieldContainerId());
    return whole != row_of_node_.end() ? &parts_[whole->second] : nullptr;
}

feature_ids readFeatureIds(const std::string& path, const model& read) {
    feature_ids result;
    const std::string extension = extensionOf(path);
    if (extension != "glb" && extension != "gltf")
        return result;
    const gltf_source file(path, "EXT_structural_metadata");
    table_reader tables(file);
    if (tables.rows.empty())
        return result;
    std::unordered_map<std::string, std::uint32_t> row_of_path;
    for (std::size_t row = 0; row < tables.rows.size(); ++row)
        row_of_path.emplace(tables.rows[row].path, static_cast<std::uint32_t>(row));
    row_of_path.erase(std::string());

    const tree_reader tree(file);
    const std::vector<::osg::NodePtr> nodes = geometryNodes(read.root.get());
    if (nodes.size() != tree.drawn.size())
        throw host_error("cannot tell the parts of '" + path + "': it draws " +
                         std::to_string(tree.drawn.size()) + " primitives, the scene " +
                         std::to_string(nodes.size()));
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const drawn_primitive& drawn = tree.drawn[i];
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(nodes[i]->getCore());
        const ::osg::UInt32 id = core.getFieldContainerId();
        if (result.rows_.count(id) != 0)
            continue; // drawn before, by another node
        std::vector<std::uint32_t> rows = rowsOf(file, tables, drawn);
        if (!rows.empty() && rows.size() != cornersOf(core))
            throw host_error("cannot tell the parts of '" + path +
                             "': its triangles are not those of the scene");
        if (!rows.empty())
            result.rows_.emplace(id, std::move(rows));
        const auto whole = row_of_path.find(gltf_source::text(*drawn.node, "name"));
        if (whole != row_of_path.end())
            result.row_of_node_.emplace(nodes[i].getFieldContainerId(), whole->second);
    }
    result.parts_ = std::move(tables.rows);
    return result;
}

} // namespace morva::host
