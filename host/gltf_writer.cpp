#include "gltf_writer.h"

#include <cstring>
#include <map>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_tools.h>

#include "file_references.h"
#include "flat_mesh.h"
#include "gltf_buffer.h"
#include "gltf_features.h"
#include "gltf_material.h"
#include "gltf_values.h"
#include "host_error.h"
#include "output_file.h"
#include "parallel.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::json;

/// A core on its way into the file. Blocks of the buffer point into it.
struct written_core {
    written_core(const geometry_view& core, int set) : view(core), id_set(set) {}
    void fill() { values.emplace(mesh.emplace(view, id_set)); }

    const geometry_view& view;
    int id_set; ///< of its IDs; -1 for none
    std::optional<flat_mesh> mesh;
    std::optional<gltf_values> values;
};

class gltf_scene {
  public:
    gltf_scene(const image_sources& images, const part_table* parts,
               const material_records* records, view_store& views)
        : views_(views), materials_(buffer_, images, records), features_(buffer_, parts) {}

    /// Once.
    json build(const ::osg::NodePtr& root) {
        prepare(root);
        json file = {{"asset", {{"version", "2.0"}, {"generator", "morva"}}}, {"scene", 0}};
        json scene = json::object();
        if (root->getTravMask() != 0)
            scene["nodes"] = json::array({addNode(root)});
        file["scenes"] = json::array({std::move(scene)});
        const auto add = [&](const char* key, json list) {
            if (!list.empty())
                file[key] = std::move(list);
        };
        features_.addTo(file);
        add("nodes", std::move(nodes_));
        add("meshes", std::move(meshes_));
        add("accessors", buffer_.takeAccessors());
        add("bufferViews", buffer_.takeViews());
        materials_.addTo(file);
        return file;
    }
    const gltf_buffer& buffer() const { return buffer_; }
    std::vector<std::string> notes() const {
        std::vector<std::string> notes = features_.notes();
        for (std::string& note : materials_.notes())
            notes.push_back(std::move(note));
        value_changes changes;
        for (const auto& [id, core] : cores_)
            changes.add(core.values->changes());
        if (!changes.text().empty())
            notes.push_back(changes.text());
        return notes;
    }

  private:
    /// Makes the meshes of all cores that are drawn, on several threads.
    void prepare(const ::osg::NodePtr& root) {
        std::vector<written_core*> all;
        for (const drawn_node& drawn : drawnNodes(root)) {
            const auto place =
                cores_.try_emplace(drawn.core.getFieldContainerId(), views_.of(drawn.core),
                                   features_.setOf(drawn.node));
            if (place.second)
                all.push_back(&place.first->second);
        }
        runParallel(all.size(), [&](std::size_t i) { all[i]->fill(); });
    }

    /// Enters a node and what is shown below it; returns its number.
    std::size_t addNode(const ::osg::NodePtr& node) {
        const std::size_t number = nodes_.size();
        nodes_.push_back(json::object());
        json entry = json::object();
        const ::osg::Char8* name = getName(node);
        if (name != nullptr)
            entry["name"] = validUtf8(name);
        ::osg::Matrix matrix;
        if (placementOf(node, matrix)) {
            for (int i = 0; i < 16; ++i)
                entry["matrix"].push_back(
                    matrix[static_cast<::osg::UInt32>(i / 4)][static_cast<::osg::UInt32>(i % 4)]);
        }
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        const int mesh = core != ::osg::NullFC ? meshOf(node, core) : -1;
        if (mesh >= 0)
            entry["mesh"] = mesh;
        for (const ::osg::NodePtr& child : shownChildren(node))
            entry["children"].push_back(addNode(child));
        nodes_[number] = std::move(entry);
        return number;
    }

    /// The mesh of a core under the material that holds at the node; -1 if nothing is drawn.
    int meshOf(const ::osg::NodePtr& node, const ::osg::GeometryPtr& core) {
        const json& primitives = primitivesOf(core);
        if (primitives.empty())
            return -1;
        const int material = materials_.numberOf(morva::osg::getMaterial(node),
                                                 setNumbers(core.getFieldContainerId()));
        const auto place = mesh_numbers_.emplace(
            std::make_pair(core.getFieldContainerId(), material), static_cast<int>(meshes_.size()));
        if (!place.second)
            return place.first->second;
        json mesh = {{"primitives", primitives}};
        if (material >= 0) {
            for (json& primitive : mesh["primitives"])
                primitive["material"] = material;
        }
        const ::osg::Char8* name = getName(core);
        if (name != nullptr)
            mesh["name"] = validUtf8(name);
        meshes_.push_back(std::move(mesh));
        return place.first->second;
    }

    /// The format wants sets without gaps.
    set_numbers setNumbers(::osg::UInt32 core) const {
        const gltf_values& values = *cores_.at(core).values;
        set_numbers numbers;
        numbers.fill(-1);
        int next = 0;
        for (std::size_t set = 0; set < flat_mesh::written_sets; ++set) {
            if (!values.coordinates(set).empty())
                numbers[set] = next++;
        }
        return numbers;
    }

    /// The primitives of a core without material, made at its first coming.
    const json& primitivesOf(const ::osg::GeometryPtr& core) {
        const ::osg::UInt32 id = core.getFieldContainerId();
        const auto place = primitives_.emplace(id, json(json::array()));
        if (place.second) {
            const written_core& written = cores_.at(id);
            place.first->second = addMesh(*written.mesh, *written.values, setNumbers(id));
            features_.addTo(place.first->second, *written.mesh, core);
        }
        return place.first->second;
    }

    json addMesh(const flat_mesh& mesh, const gltf_values& values, const set_numbers& sets) {
        json primitives = json::array();
        if (mesh.vertex_count == 0)
            return primitives;
        const bool any =
            mesh.running || !mesh.triangles.empty() || !mesh.lines.empty() || !mesh.points.empty();
        if (!any)
            return primitives;
        const json attributes = addAttributes(mesh, values, sets);
        const auto add = [&](int mode, const std::vector<std::uint32_t>& indices) {
            if (indices.empty())
                return;
            primitives.push_back({{"attributes", attributes},
                                  {"mode", mode},
                                  {"indices", buffer_.addIndices(indices, mesh.vertex_count)}});
        };
        if (mesh.running)
            primitives.push_back({{"attributes", attributes}, {"mode", GL_TRIANGLES}});
        add(GL_TRIANGLES, mesh.triangles);
        add(GL_LINES, mesh.lines);
        add(GL_POINTS, mesh.points);
        return primitives;
    }

    json addAttributes(const flat_mesh& mesh, const gltf_values& values, const set_numbers& sets) {
        const std::size_t count = mesh.vertex_count;
        json attributes = {{"POSITION", buffer_.addPositions(values.positions(), count,
                                                             values.low(), values.high())}};
        if (mesh.normals.components == 3)
            attributes["NORMAL"] = buffer_.addFloats(values.normals(), 3, count);
        if (mesh.colors.components != 0)
            attributes["COLOR_0"] =
                buffer_.addFloats(values.colors(), mesh.colors.components, count);
        const std::vector<float>* last = nullptr;
        int accessor = -1;
        for (std::size_t set = 0; set < flat_mesh::written_sets; ++set) {
            if (sets[set] < 0)
                continue;
            const std::vector<float>& coordinates = values.coordinates(set);
            if (last == nullptr || coordinates != *last)
                accessor = buffer_.addFloats(coordinates.data(), 2, count);
            last = &coordinates;
            attributes["TEXCOORD_" + std::to_string(sets[set])] = accessor;
        }
        return attributes;
    }

    view_store& views_;
    gltf_buffer buffer_;
    gltf_materials materials_;
    gltf_features features_;
    // Blocks of the buffer point into them: they keep their place and live until all is written.
    std::map<::osg::UInt32, written_core> cores_;
    std::map<::osg::UInt32, json> primitives_;
    std::map<std::pair<::osg::UInt32, int>, int> mesh_numbers_;
    json nodes_ = json::array();
    json meshes_ = json::array();
};

void writeBinary(json file, const gltf_buffer& buffer, const std::string& path) {
    if (buffer.size() != 0)
        file["buffers"] = json::array({json{{"byteLength", buffer.size()}}});
    std::string text = file.dump(-1, ' ', false, json::error_handler_t::replace);
    text.append((4 - text.size() % 4) % 4, ' ');
    const std::uint64_t total = 12 + 8 + text.size() + (buffer.size() != 0 ? 8 + buffer.size() : 0);
    if (total > 0xFFFFFFFFull)
        throw host_error("the scene needs more than the 4 GiB that a .glb can hold: write .gltf");
    output_file out(path);
    const auto word = [&](std::uint64_t value) {
        const auto narrow = static_cast<std::uint32_t>(value);
        out.write(&narrow, 4);
    };
    out.write("glTF", 4);
    word(2);
    word(total);
    word(text.size());
    out.write("JSON", 4);
    out.write(text.data(), text.size());
    if (buffer.size() != 0) {
        word(buffer.size());
        out.write("BIN\0", 4);
        buffer.writeTo(out);
    }
    out.close();
}

void writeText(json file, const gltf_buffer& buffer, const std::string& path) {
    if (buffer.size() != 0) {
        const std::size_t start = path.rfind('/') + 1;
        const std::size_t length = path.size() - std::strlen(".gltf") - start;
        const std::string name = bufferName(path.substr(start, length), buffer.print());
        file["buffers"] =
            json::array({json{{"byteLength", buffer.size()}, {"uri", encodedUri(name)}}});
        output_file data(path.substr(0, start) + name);
        buffer.writeTo(data);
        data.close();
    }
    const std::string text = file.dump(1, ' ', false, json::error_handler_t::replace) + "\n";
    output_file out(path);
    out.write(text.data(), text.size());
    out.close();
}

} // namespace

std::vector<std::string> writeGltf(const ::osg::NodePtr& root, const image_sources& images,
                                   const part_table* parts, const material_records* records,
                                   view_store& views, const std::string& path) {
    gltf_scene scene(images, parts, records, views);
    json file = scene.build(root);
    if (extensionOf(path) == "glb")
        writeBinary(std::move(file), scene.buffer(), path);
    else
        writeText(std::move(file), scene.buffer(), path);
    return scene.notes();
}

} // namespace morva::host
