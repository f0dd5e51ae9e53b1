#include <morva/core/morva_osg_scene_rules.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <new>
#include <set>
#include <vector>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

/// Vertices that the primitives of a core use; those without lengths take all `held` vertices.
std::uint64_t usedVertices(const ::osg::GeometryPtr& core, std::uint64_t held) {
    if (core->getLengths() == ::osg::NullFC)
        return held;
    std::uint64_t used = 0;
    for (const ::osg::UInt32 length : readBlock(core->getLengths()))
        used += length;
    return used;
}

std::uint64_t sizeOf(const ::osg::GeometryPtr& core, ::osg::UInt16 bit) {
    const auto* property = core->getProperty(bit);
    return property == nullptr ? 0 : property->getSize();
}

/// Of a core without indices: vertex v takes element v of every property.
const char* brokenRuleOfPlain(const ::osg::GeometryPtr& core) {
    const std::uint64_t used = usedVertices(core, sizeOf(core, ::osg::Geometry::MapPosition));
    for (const vertex_property property : all_properties) {
        const ::osg::UInt16 bit = mappingBit(property);
        if (core->getProperty(bit) != nullptr && sizeOf(core, bit) < used)
            return "every property has an element for each vertex";
    }
    return "";
}

/// Of an indexed core: each entry of the mapping leads to elements of the properties it names.
const char* brokenRuleOfIndexed(const ::osg::GeometryPtr& core) {
    const auto& entries = *core->getMFIndexMapping();
    const std::vector<::osg::UInt16> mapping(entries.begin(), entries.end());
    const std::size_t stride = indicesPerCorner(core);
    const property_block<::osg::UInt32> indices = readBlock(core->getIndices());
    if (indices.size() % stride != 0)
        return "every vertex has an index for each entry of the mapping";
    if (usedVertices(core, cornersOf(core)) > cornersOf(core))
        return "primitives use no more vertices than there are indices for";
    unsigned int seen = 0;
    for (const ::osg::UInt16 entry : mapping) {
        if ((seen & entry) != 0)
            return "a property stands in one entry of the mapping";
        seen |= entry;
    }
    for (std::size_t place = 0; place < stride; ++place) {
        std::uint64_t most = ~std::uint64_t(0); // elements of the shortest property of this entry
        for (const vertex_property property : all_properties) {
            const ::osg::UInt16 bit = mappingBit(property);
            if (core->getProperty(bit) != nullptr &&
                (mapping.empty() || (mapping[place] & bit) != 0))
                most = std::min(most, sizeOf(core, bit));
        }
        for (std::size_t i = place; i < indices.size(); i += stride) {
            if (indices[i] >= most)
                return "indices lead to elements that there are";
        }
    }
    return "";
}

const char* brokenRuleOfCore(const ::osg::GeometryPtr& core) {
    const std::size_t types = core->getTypes() == ::osg::NullFC ? 0 : core->getTypes()->getSize();
    if (core->getLengths() != ::osg::NullFC && core->getLengths()->getSize() != types)
        return "every primitive has a type and a length";
    return core->getIndices() == ::osg::NullFC ? brokenRuleOfPlain(core)
                                               : brokenRuleOfIndexed(core);
}

/// Walks a subtree once; the stack is its own, so that a long chain needs no deep one.
class scene_walk {
  public:
    std::string run(const ::osg::NodePtr& root) {
        const ::osg::NodePtr above = root->getParent();
        if (above != ::osg::NullFC && above->findChild(root) < 0)
            return "a parent has its children";
        open_.push_back(root);
        while (!open_.empty() && broken_.empty()) {
            const ::osg::NodePtr node = open_.back();
            open_.pop_back();
            visit(node);
        }
        for (auto core = nodes_of_.begin(); core != nodes_of_.end() && broken_.empty(); ++core)
            visitCore(core->first, core->second);
        return broken_;
    }

  private:
    void rule(bool holds, const char* words) {
        if (!holds && broken_.empty())
            broken_ = words;
    }

    void visit(const ::osg::NodePtr& node) {
        rule(seen_.insert(node).second, "a node stands in one place");
        if (node->getCore() != ::osg::NullFC)
            nodes_of_[node->getCore()].push_back(node);
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
            const ::osg::NodePtr child = node->getChild(i);
            rule(child != ::osg::NullFC, "a child is a node");
            if (!broken_.empty())
                return;
            rule(child->getParent() == node, "a child knows its parent");
            rule(child.getRefCount() >= 1, "a parent references its children");
            open_.push_back(child);
        }
    }

    void visitCore(const ::osg::NodeCorePtr& core, const std::vector<::osg::NodePtr>& nodes) {
        const auto& parents = core->getParents();
        rule(core.getRefCount() >= nodes.size(), "every node references its core");
        const std::multiset<::osg::NodePtr> known(parents.begin(), parents.end());
        for (const ::osg::NodePtr& node : nodes)
            rule(known.count(node) == 1, "a core knows each of its nodes once");
        const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(core);
        if (geometry == ::osg::NullFC || !broken_.empty())
            return;
        const char* words = brokenRuleOfCore(geometry);
        rule(*words == '\0', words);
    }

    std::vector<::osg::NodePtr> open_;
    std::set<::osg::NodePtr> seen_;
    std::map<::osg::NodeCorePtr, std::vector<::osg::NodePtr>> nodes_of_;
    std::string broken_;
};

} // namespace

std::string broken_rule_of(const ::osg::NodePtr& root) {
    return root == ::osg::NullFC ? std::string() : scene_walk().run(root);
}

bool isWhole(const ::osg::NodePtr& root) noexcept {
    try {
        return broken_rule_of(root).empty();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace morva::osg
