#include "gltf_nodes.h"

#include <vector>

#include "glb_json.h"
#include "host_error.h"

namespace morva::host {

namespace {

using nlohmann::json;

/// Whether the import library had to put a node of its own above those of the file.
bool hasMadeUpRoot(const json& text) {
    const auto scene = text.find("scene"), scenes = text.find("scenes");
    if (scene == text.end() || !scene->is_string() || scenes == text.end() || !scenes->is_object())
        return false;
    const auto shown = scenes->find(scene->get_ref<const std::string&>());
    if (shown == scenes->end() || !shown->is_object())
        return false;
    const auto nodes = shown->find("nodes");
    return nodes != shown->end() && nodes->size() > 1;
}

void place(const json& nodes, aiNode& node) {
    const auto from = nodes.find(node.mName.C_Str());
    if (from == nodes.end() || !from->is_object())
        return;
    try {
        node.mTransformation = nodeMatrix(*from);
    } catch (const host_error&) {
        // As the import library has it.
    }
}

} // namespace

aiMatrix4x4 nodeMatrix(const json& node) {
    float m[16], shift[3], turn[4], stretch[3];
    if (readFloats(node, "matrix", m, 16))
        return {m[0], m[4], m[8],  m[12], m[1], m[5], m[9],  m[13],
                m[2], m[6], m[10], m[14], m[3], m[7], m[11], m[15]};
    aiMatrix4x4 matrix, step;
    if (readFloats(node, "translation", shift, 3))
        matrix = matrix * aiMatrix4x4::Translation({shift[0], shift[1], shift[2]}, step);
    if (readFloats(node, "rotation", turn, 4))
        matrix = matrix * aiMatrix4x4(aiQuaternion(turn[3], turn[0], turn[1], turn[2]).GetMatrix());
    if (readFloats(node, "scale", stretch, 3))
        matrix = matrix * aiMatrix4x4::Scaling({stretch[0], stretch[1], stretch[2]}, step);
    return matrix;
}

void placeOldNodes(const gltf_document& document, aiNode& root) {
    const auto nodes = document.json().find("nodes");
    if (document.version() != 1 || nodes == document.json().end() || !nodes->is_object())
        return;
    std::vector<aiNode*> todo = {&root};
    while (!todo.empty()) {
        aiNode& node = *todo.back();
        todo.pop_back();
        if (&node != &root || !hasMadeUpRoot(document.json()))
            place(*nodes, node);
        todo.insert(todo.end(), node.mChildren, node.mChildren + node.mNumChildren);
    }
}

} // namespace morva::host
