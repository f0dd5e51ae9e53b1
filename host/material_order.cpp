#include "material_order.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <OpenSG/OSGSimpleAttachments.h>

#include "gltf_source.h"

namespace morva::host {

namespace {

using nlohmann::json;

class use_order {
  public:
    explicit use_order(const gltf_document& document) : document_(document) {
        const json* const scene =
            document.entry("scenes", wholeNumber(document.json(), "scene").value_or(0));
        if (scene != nullptr)
            addNodes(*scene, "nodes");
    }
    /// Materials of the file, by first use.
    const std::vector<std::size_t>& materials() const { return materials_; }

  private:
    /// Nodes behind their children; without recursion, as files may be deep.
    void addNodes(const json& owner, const char* key) {
        std::vector<std::pair<std::size_t, bool>> todo; // node, whether its children are done
        push(owner, key, todo);
        while (!todo.empty()) {
            const auto [index, ready] = todo.back();
            const json* const node = document_.entry("nodes", index);
            if (!ready && node != nullptr && nodes_.insert(index).second) {
                todo.back().second = true;
                push(*node, "children", todo);
                continue;
            }
            todo.pop_back();
            if (ready)
                addMesh(*node);
        }
    }

    static void push(const json& owner, const char* key,
                     std::vector<std::pair<std::size_t, bool>>& todo) {
        const auto list = owner.find(key);
        if (list == owner.end() || !list->is_array())
            return;
        for (auto entry = list->rbegin(); entry != list->rend(); ++entry) {
            if (entry->is_number_unsigned())
                todo.emplace_back(entry->get<std::size_t>(), false);
        }
    }

    void addMesh(const json& node) {
        const auto index = wholeNumber(node, "mesh");
        const json* const mesh = index ? document_.entry("meshes", *index) : nullptr;
        if (mesh == nullptr || !mesh->contains("primitives"))
            return;
        for (const json& primitive : (*mesh)["primitives"]) {
            const auto material =
                primitive.is_object() ? wholeNumber(primitive, "material") : std::nullopt;
            if (material && seen_.insert(*material).second)
                materials_.push_back(*material);
        }
    }

    const gltf_document& document_;
    std::set<std::size_t> nodes_, seen_;
    std::vector<std::size_t> materials_;
};

std::string nameOf(const ::osg::RefPtr<::osg::MaterialPtr>& material) {
    const ::osg::Char8* const name = getName(material.get());
    return name != nullptr ? name : "";
}

} // namespace

std::vector<::osg::RefPtr<::osg::MaterialPtr>>
inFileOrder(const gltf_document& document,
            const std::vector<::osg::RefPtr<::osg::MaterialPtr>>& by_use) {
    std::vector<std::string> names;
    std::map<std::string, std::size_t> times;
    while (const json* const entry = document.entry("materials", names.size())) {
        names.push_back(gltf_source::text(*entry, "name"));
        ++times[names.back()];
    }
    std::vector<::osg::RefPtr<::osg::MaterialPtr>> found(names.size());
    const use_order order(document);
    for (std::size_t i = 0; i < by_use.size(); ++i) {
        if (by_use[i] == ::osg::NullFC)
            continue;
        const std::string name = nameOf(by_use[i]);
        if (i < order.materials().size() && order.materials()[i] < names.size() &&
            names[order.materials()[i]] == name) {
            found[order.materials()[i]] = by_use[i];
            continue;
        }
        for (std::size_t k = 0; k < names.size() && !name.empty() && times[name] == 1; ++k) {
            if (names[k] == name)
                found[k] = by_use[i];
        }
    }
    return found;
}

} // namespace morva::host
